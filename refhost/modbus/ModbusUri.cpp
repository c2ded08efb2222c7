#include "refhost/modbus/ModbusUri.h"

#include <charconv>
#include <optional>
#include <string_view>

namespace refhost {
namespace {

std::optional<int> WholeNumber(std::string_view text, int low, int high) {
  int value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || value < low || value > high)
    return std::nullopt;
  return value;
}

}  // namespace

bool ParseModbusUri(const std::string& uri, TModbusIOOptions& options, std::string& error) {
  const auto fail = [&](const std::string& what) {
    error = uri + ": " + what;
    return false;
  };
  const std::string_view scheme = kModbusTcpScheme;
  if (uri.compare(0, scheme.size(), scheme) != 0)
    return fail(std::string("an IO module's address starts with ") + kModbusTcpScheme);
  std::string_view rest = std::string_view(uri).substr(scheme.size());
  std::string_view query;
  if (const auto mark = rest.find('?'); mark != std::string_view::npos) {
    query = rest.substr(mark + 1);
    rest = rest.substr(0, mark);
  }

  TModbusIOOptions parsed;
  std::string_view port;
  if (!rest.empty() && rest.front() == '[') {
    const auto close = rest.find(']');
    if (close == std::string_view::npos) return fail("an IPv6 address ends with ]");
    parsed.Host = std::string(rest.substr(1, close - 1));
    rest = rest.substr(close + 1);
    if (!rest.empty() && rest.front() != ':') return fail("a port follows the address after a colon");
    if (!rest.empty()) port = rest.substr(1);
  } else {
    const auto colon = rest.find(':');
    parsed.Host = std::string(rest.substr(0, colon));
    if (colon != std::string_view::npos) port = rest.substr(colon + 1);
  }
  if (parsed.Host.empty()) return fail("the module's host is missing");
  if (parsed.Host.find('/') != std::string::npos) return fail("the address has no path; options follow a ?");
  if (!port.empty() || rest.find(':') != std::string_view::npos) {
    const auto number = WholeNumber(port, 1, 65535);
    if (!number) return fail("the port is a number from 1 to 65535");
    parsed.Port = *number;
  }

  std::optional<int> unit;
  std::string mapFile;
  while (!query.empty()) {
    const auto amp = query.find('&');
    const std::string_view pair = query.substr(0, amp);
    query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
    const auto equals = pair.find('=');
    const std::string_view key = pair.substr(0, equals);
    const std::string_view value = equals == std::string_view::npos ? std::string_view() : pair.substr(equals + 1);
    if (key == "unit") {
      unit = WholeNumber(value, 0, 255);
      if (!unit) return fail("unit is a number from 0 to 255");
    } else if (key == "scan-ms") {
      const auto ms = WholeNumber(value, 1, 10000);
      if (!ms) return fail("scan-ms is a number of milliseconds from 1 to 10000");
      parsed.ScanPeriod = std::chrono::milliseconds(*ms);
    } else if (key == "map") {
      if (value.empty()) return fail("map names a JSON map file");
      mapFile = std::string(value);
    } else {
      return fail("unknown option \"" + std::string(key) + "\" (the options are unit, scan-ms and map)");
    }
  }
  if (!mapFile.empty() && !LoadModbusMapFile(mapFile, parsed.Map, error)) return false;
  parsed.Unit = unit.value_or(parsed.Map.Unit.value_or(1));
  options = std::move(parsed);
  return true;
}

}  // namespace refhost
