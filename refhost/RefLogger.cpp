#include "refhost/RefLogger.h"

#include "host/HostDefs.h"

namespace refhost {

void TRefLogger::Send(const std::string& msg) { Write(nchost::msgtype::kTrace, msg); }
void TRefLogger::SendMsg(const std::string& msg) { Write(nchost::msgtype::kInformation, msg); }
void TRefLogger::SendWarning(const std::string& msg) { Write(nchost::msgtype::kWarning, msg); }
void TRefLogger::SendError(const std::string& msg) { Write(nchost::msgtype::kError, msg); }

void TRefLogger::Write(int msgType, const std::string& msg) {
  if (!Enabled() || !FSink) return;
  FSink->Write(TMessageEntry{TEntryKind::Logger, msgType, FCategory, msg, 0});
}

}  // namespace refhost
