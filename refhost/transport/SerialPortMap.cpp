#include "refhost/transport/SerialPortMap.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

namespace refhost {

namespace {

constexpr std::array<std::string_view, 3> kDeviceGroups = {"ttyS", "ttyUSB", "ttyACM"};

// The number after `prefix` when `name` is exactly prefix + digits.
std::optional<long> DeviceNumber(std::string_view name, std::string_view prefix) {
  if (!name.starts_with(prefix) || name.size() == prefix.size()) return std::nullopt;
  const std::string_view digits = name.substr(prefix.size());
  if (!std::all_of(digits.begin(), digits.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
    return std::nullopt;
  long number = 0;
  const auto [end, status] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (status != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

// A ttyS device whose kernel description gives UART type 0 is a placeholder with no hardware.
bool IsPlaceholderUart(const std::string& sysTtyDir, const std::string& name) {
  std::ifstream typeFile(sysTtyDir + "/" + name + "/type");
  int type = -1;
  return typeFile >> type && type == 0;
}

}  // namespace

TSerialPortMap::TSerialPortMap(std::string deviceDir, std::string sysTtyDir)
    : FDeviceDir(std::move(deviceDir)), FSysTtyDir(std::move(sysTtyDir)) {}

bool TSerialPortMap::Set(int32_t number, std::string path) {
  if (number < 1 || path.empty()) return false;
  std::lock_guard lock(FMutex);
  FExplicit[number] = std::move(path);
  return true;
}

bool TSerialPortMap::SetFromText(std::string_view assignment, std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error != nullptr) *error = "serial port assignment \"" + std::string(assignment) + "\": " + why;
    return false;
  };
  const auto equals = assignment.find('=');
  if (equals == std::string_view::npos) return fail("expected N=PATH such as 1=/dev/ttyUSB0");
  const std::string_view numberText = assignment.substr(0, equals);
  const std::string_view path = assignment.substr(equals + 1);
  int32_t number = 0;
  const auto [end, status] = std::from_chars(numberText.data(), numberText.data() + numberText.size(), number);
  if (numberText.empty() || status != std::errc() || end != numberText.data() + numberText.size() || number < 1)
    return fail("the port number must be a whole number from 1");
  if (path.empty()) return fail("the device path is empty");
  return Set(number, std::string(path));
}

std::string TSerialPortMap::PathFor(int32_t number) const {
  {
    std::lock_guard lock(FMutex);
    if (const auto found = FExplicit.find(number); found != FExplicit.end()) return found->second;
  }
  if (number < 1) return {};
  const auto devices = ListSerialDevices();
  return static_cast<size_t>(number) <= devices.size() ? devices[static_cast<size_t>(number) - 1] : std::string();
}

std::vector<std::string> TSerialPortMap::ListSerialDevices() const {
  struct TFound {
    size_t Group;
    long Number;
    std::string Path;
  };
  std::vector<TFound> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(FDeviceDir, error)) {
    const std::string name = entry.path().filename().string();
    for (size_t group = 0; group < kDeviceGroups.size(); ++group) {
      const auto number = DeviceNumber(name, kDeviceGroups[group]);
      if (!number) continue;
      if (group == 0 && IsPlaceholderUart(FSysTtyDir, name)) break;
      found.push_back({group, *number, entry.path().string()});
      break;
    }
  }
  std::sort(found.begin(), found.end(), [](const TFound& a, const TFound& b) {
    return a.Group != b.Group ? a.Group < b.Group : a.Number < b.Number;
  });
  std::vector<std::string> paths;
  paths.reserve(found.size());
  for (auto& device : found) paths.push_back(std::move(device.Path));
  return paths;
}

}  // namespace refhost
