#include "core/LaserLifetime.h"

#include "frame/HostServices.h"
#include "frame/LaserComm.h"

namespace devlaser {

void ReportLaserFailure(const std::string& step, const std::string& what) noexcept {
  try {
    std::string line = "Laser " + step + " failed: " + what;
    LogMsg(line, nchost::msgtype::kLaserLog);
    CSLog(line, nchost::msgtype::kError);
  } catch (...) {
    // Nothing is left to report with.
  }
}

void TLaserDeleter::operator()(TNcLaser* laser) const noexcept {
  if (!laser) return;
  laser->Shutdown();
  delete laser;  // destructors do not throw
}

}  // namespace devlaser
