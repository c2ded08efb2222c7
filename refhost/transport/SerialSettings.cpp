#include "refhost/transport/SerialSettings.h"

#include <array>
#include <cctype>
#include <charconv>
#include <utility>
#include <vector>

namespace refhost {

namespace {

constexpr std::array<std::pair<int, speed_t>, 30> kSpeeds = {{
    {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
}};

std::string_view Trim(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return text;
}

std::optional<int> ParseWholeNumber(std::string_view text) {
  int value = 0;
  const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (status != std::errc() || end != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

std::vector<std::string_view> SplitFields(std::string_view text) {
  std::vector<std::string_view> fields;
  for (;;) {
    const auto comma = text.find(',');
    fields.push_back(Trim(text.substr(0, comma)));
    if (comma == std::string_view::npos) return fields;
    text.remove_prefix(comma + 1);
  }
}

}  // namespace

std::string TSerialSettings::ToString() const {
  return std::to_string(Baud) + "," + Parity + "," + std::to_string(DataBits) + "," + std::to_string(StopBits);
}

speed_t BaudToSpeed(int baud) {
  for (const auto& [rate, speed] : kSpeeds) {
    if (rate == baud) return speed;
  }
  return B0;
}

std::optional<TSerialSettings> ParseSerialSettings(std::string_view text, std::string* error) {
  const std::string quoted = "serial settings \"" + std::string(text) + "\"";
  auto fail = [&](const std::string& why) -> std::optional<TSerialSettings> {
    if (error != nullptr) *error = quoted + ": " + why;
    return std::nullopt;
  };

  const auto fields = SplitFields(text);
  if (fields.size() != 4) return fail("expected baud,parity,data bits,stop bits such as \"57600,n,8,1\"");

  TSerialSettings settings;
  const auto baud = ParseWholeNumber(fields[0]);
  if (!baud) return fail("baud rate \"" + std::string(fields[0]) + "\" is not a number");
  if (BaudToSpeed(*baud) == B0) {
    return fail("baud rate " + std::to_string(*baud) +
                " is not a standard rate (50 to 4000000, such as 9600 or 57600)");
  }
  settings.Baud = *baud;

  const std::string_view parity = fields[1];
  const char letter = parity.size() == 1 ? static_cast<char>(std::tolower(static_cast<unsigned char>(parity[0]))) : 0;
  if (letter != 'n' && letter != 'e' && letter != 'o' && letter != 'm' && letter != 's') {
    return fail("parity \"" + std::string(parity) + "\" must be n, e, o, m or s");
  }
  settings.Parity = letter;

  const auto dataBits = ParseWholeNumber(fields[2]);
  if (!dataBits || *dataBits < 5 || *dataBits > 8) {
    return fail("data bits \"" + std::string(fields[2]) + "\" must be 5, 6, 7 or 8");
  }
  settings.DataBits = *dataBits;

  const auto stopBits = ParseWholeNumber(fields[3]);
  if (!stopBits || (*stopBits != 1 && *stopBits != 2)) {
    return fail("stop bits \"" + std::string(fields[3]) + "\" must be 1 or 2");
  }
  settings.StopBits = *stopBits;
  return settings;
}

}  // namespace refhost
