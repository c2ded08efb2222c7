#include "RayQcwSim.h"

#include <cctype>
#include <string_view>

namespace laserctl {

namespace {

constexpr int32_t kRaycusQcwSubType = 2;

bool Contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

bool SameTextAscii(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  return true;
}

// The plug-in reads the Raycus model string in this order: SM, MM and RFL name other lasers before QCW is looked
// for; an empty one leaves the choice to the pulse mode.
bool IsQcwModel(const std::string& type, const std::string& pulseModel) {
  if (type.empty()) return SameTextAscii(pulseModel, "QCW");
  if (Contains(type, "SM") || Contains(type, "MM") || Contains(type, "RFL")) return false;
  return Contains(type, "QCW");
}

}  // namespace

std::optional<TSimTarget> RayQcwTargetFromConfig(const nchost::TXmlSubConfig& root) {
  const std::string model = root.GetString("Model");
  // A configured model selects the first registry key that contains it; only "Raycus" itself reaches the Raycus
  // family without also matching an earlier key.
  if (model.empty() || !Contains("Raycus", model) || Contains("Zorun", model) || Contains("CO2", model) ||
      Contains("IPG", model))
    return std::nullopt;
  const nchost::TXmlSubConfig* ray = root.FindSubConfig("Raycus");
  if (ray == nullptr || !IsQcwModel(ray->GetString("Type"), ray->GetString("PulseModel"))) return std::nullopt;
  TSimTarget target;
  target.Family = kRayQcwFamily;
  if (!ray->GetBool("UseTcp") && ray->GetInteger("CommPort") >= 1) {
    target.Link = TSimLink::Serial;
    target.SerialPort = ray->GetInteger("CommPort");
    target.HasSimulator = true;
  }
  return target;
}

bool IsRayQcwParams(const devlaser::TLaserParams& params) {
  return params.LaserMainType == devlaser::eltRay && params.LaserSubType == kRaycusQcwSubType;
}

TRayQcwSimulator::TRayQcwSimulator(const TTrace& trace) {
  if (!trace) return;
  FEngine.SetTraceHook([trace](const std::string& command, const std::string& answer) {
    if (command == "CheckStatus") return;  // polled ten times a second
    trace("<- " + command + "  -> " + (answer.empty() ? "(no answer)" : std::to_string(answer.size()) + " bytes"));
  });
}

bool TRayQcwSimulator::Start(std::string& error) {
  if (FPty.Start()) {
    FPath = FPty.PortPath();
    return true;
  }
  error = std::string("cannot start the ") + kRayQcwFamily + " simulator on a pseudo-terminal: " + FPty.LastError();
  return false;
}

void TRayQcwSimulator::Stop() { FPty.Stop(); }

}  // namespace laserctl
