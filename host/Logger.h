// The host's logger with four levels and a category.
#pragma once

#include <string>

#include "HostDefs.h"

namespace nchost {

// Safe to call from several threads.
class NCHOST_API TCodeSiteLogger {
 public:
  virtual ~TCodeSiteLogger() = default;
  virtual void Send(const std::string& msg) = 0;
  virtual void SendMsg(const std::string& msg) = 0;
  virtual void SendWarning(const std::string& msg) = 0;
  virtual void SendError(const std::string& msg) = 0;
  virtual std::string Category() const = 0;
  virtual bool Enabled() const = 0;
  virtual void SetEnabled(bool enabled) = 0;
};

}  // namespace nchost
