#include "ipg/IpgYlr2Driver.h"

namespace devlaser {
namespace {
// The newer generation is given longer to accept a connection.
constexpr int32_t kYlr2ConnectTimeoutMs = 5000;
}  // namespace

TIPGYLR2Driver::TIPGYLR2Driver(const TLaserParams& params, TLaserPorts* ports)
    : TIPGYLRDriver(params, {kYlr2ConnectTimeoutMs, &ipg::Ylr2AlarmTable(), &ipg::Ylr2WarningTable()}, ports) {}

void TIPGYLR2Driver::SetQCWMode(bool on) {
  if (on)
    SetAlarmMask(ipg::kYlr2AlarmMaskQcw);
  else
    SetMasks(ipg::kYlr2AlarmMaskCw, ipg::kYlr2WarningMaskCw);
}

}  // namespace devlaser
