// Reading and writing the non-blocking descriptors of the simulator front ends without ever blocking a stop.
#pragma once

#include <string>
#include <string_view>

namespace lasersim {

enum class TReadResult { Data, WouldBlock, Closed };

// Appends what `fd` has now (up to 4 KiB) to `out`. Closed means end of file or a read error.
TReadResult ReadAvailable(int fd, std::string& out);

// Writes all of `data` to the non-blocking `fd`, waiting for room while `wakeFd` stays quiet. A socket is written
// with MSG_NOSIGNAL so that a vanished peer gives an error instead of SIGPIPE. False when the peer is gone or
// `wakeFd` became readable (a stop) before everything was written.
bool WriteAll(int fd, std::string_view data, int wakeFd, bool isSocket);

}  // namespace lasersim
