// The master side of a pseudo-terminal, standing in for a serial cable in tests and laser simulators: a serial
// port opened on its slave device talks to whoever reads and writes the master.
//
// Closing the master is a cable pull: the slave side hangs up. Reopening makes a new pseudo-terminal, whose slave
// device has another name; give a link path so that the port finds the terminal again under one stable name.
//
// Not synchronised: use one object from one thread at a time.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "refhost/transport/UniqueFd.h"

namespace refhost {

class TPseudoTerminal {
 public:
  // `linkPath`: where a symbolic link to the slave device is kept while the terminal is open (replaced if it
  // exists, removed on Close). Empty: no link.
  explicit TPseudoTerminal(std::string linkPath = {});
  ~TPseudoTerminal();
  TPseudoTerminal(const TPseudoTerminal&) = delete;
  TPseudoTerminal& operator=(const TPseudoTerminal&) = delete;

  // Opens a new pseudo-terminal in raw mode; false with LastError() when it cannot.
  bool Open();
  // Closes the master: a serial port on the slave sees a hang-up.
  void Close();
  // Close, then Open.
  bool Reopen();
  bool IsOpen() const { return FMaster.Valid(); }

  // The slave device (such as /dev/pts/5) while open, else empty.
  const std::string& SlavePath() const { return FSlavePath; }
  // What a serial port should open: the link path when there is one, else the slave device.
  std::string PortPath() const { return FLinkPath.empty() ? FSlavePath : FLinkPath; }
  // The master descriptor (non-blocking) for callers that wait on it themselves; -1 when closed.
  int MasterFd() const { return FMaster.Get(); }

  // Waits up to `timeoutMs` for data and returns what is waiting, up to `maxBytes`; empty when nothing came.
  std::string Read(size_t maxBytes, int timeoutMs);
  // Reads until `count` bytes came or `timeoutMs` passed; returns what came.
  std::string ReadExactly(size_t count, int timeoutMs);
  // Writes all of `data` to the slave side; false when the terminal is closed or the data does not go out within
  // a second.
  bool Write(std::string_view data);

  std::string LastError() const { return FLastError; }

 private:
  const std::string FLinkPath;
  TUniqueFd FMaster;
  // Held open so that the master does not see an error while no serial port has the slave open.
  TUniqueFd FSlave;
  std::string FSlavePath;
  std::string FLastError;
};

}  // namespace refhost
