#include "RaycusSim.h"

#include <cctype>
#include <string_view>

#include "sim/raycus/RaycusSimText.h"

namespace laserctl {
namespace {

bool Contains(std::string_view text, std::string_view part) {
  if (part.size() > text.size()) return false;
  for (size_t i = 0; i + part.size() <= text.size(); ++i) {
    size_t k = 0;
    while (k < part.size() &&
           std::tolower(static_cast<unsigned char>(text[i + k])) == std::tolower(static_cast<unsigned char>(part[k])))
      ++k;
    if (k == part.size()) return true;
  }
  return false;
}

// The plug-in's reading of the Raycus model text: the ESC serial laser is the CW model (or no model with the
// CW pulse mode); QCW, SM, MM and RFL are other protocols.
bool IsEscSerialModel(const std::string& type, const std::string& pulseModel) {
  if (type.empty()) return !(pulseModel.size() == 3 && Contains(pulseModel, "QCW"));
  if (Contains(type, "SM") || Contains(type, "MM") || Contains(type, "RFL") || Contains(type, "QCW")) return false;
  return true;
}

TSimTarget SerialTarget(int32_t port) {
  TSimTarget target;
  target.Link = TSimLink::Serial;
  target.Family = kRaycusFamily;
  target.SerialPort = port;
  target.HasSimulator = port >= 1;
  return target;
}

}  // namespace

std::optional<TSimTarget> RaycusSimTarget(const devlaser::TLaserParams& params) {
  if (params.LaserMainType != devlaser::eltRay || params.DefParams.DataTransType != devlaser::dttSerial) return {};
  if (params.LaserSubType != 0 && params.LaserSubType != 1) return {};
  return SerialTarget(params.DefParams.Comm.CommPort);
}

std::optional<TSimTarget> RaycusSimTarget(const nchost::TXmlSubConfig& root) {
  if (!Contains(kRaycusFamily, root.GetString("Model")) || root.GetString("Model").empty()) return {};
  const nchost::TXmlSubConfig* ray = root.FindSubConfig("Raycus");
  if (ray == nullptr || ray->GetBool("UseTcp")) return {};
  if (!IsEscSerialModel(ray->GetString("Type"), ray->GetString("PulseModel"))) return {};
  return SerialTarget(ray->GetInteger("CommPort"));
}

void TRaycusSimulator::SetTrace(TTrace trace) {
  if (!trace) {
    FEngine.SetTraceHook({});
    return;
  }
  FEngine.SetTraceHook(
      [this, trace = std::move(trace)](const lasersim::TRaycusEscEngine::TEntry& entry, const std::string& reply) {
        trace(lasersim::RaycusLogLine(entry, reply, FEngine.Started()));
      });
}

bool TRaycusSimulator::Start(std::string& error) {
  if (!FServer.Start()) {
    error = "cannot start the Raycus simulator on a pseudo-terminal: " + FServer.LastError();
    return false;
  }
  FPath = FServer.PortPath();
  return true;
}

}  // namespace laserctl
