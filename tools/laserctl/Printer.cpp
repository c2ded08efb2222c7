#include "Printer.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace laserctl {

void TPrinter::Command(const std::string& text) {
  if (!FJson) Line(Stamp() + " " + text);
}

void TPrinter::Status(const char* cmd, const std::string& json) {
  if (!FJson) {
    Line(Stamp() + " " + cmd + " " + json);
    return;
  }
  nlohmann::ordered_json line = {{"t", Seconds()}, {"cmd", cmd}};
  // Parsed in order, so that the members keep the order the information source wrote them in.
  auto status = nlohmann::ordered_json::parse(json, nullptr, false);
  line["status"] = status.is_discarded() ? nlohmann::ordered_json(json) : std::move(status);
  Line(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void TPrinter::Alarms(const std::vector<TAlarmLine>& alarms) {
  if (FJson) {
    for (const auto& alarm : alarms) {
      nlohmann::ordered_json line = {
          {"t", Seconds()}, {"cmd", "alarms"}, {"id", alarm.Id}, {"raised", alarm.Raised}, {"desc", alarm.Desc}};
      Line(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    }
    return;
  }
  if (alarms.empty()) {
    Line(Stamp() + " alarms: the laser registered none");
    return;
  }
  for (const auto& alarm : alarms)
    Line(Stamp() + " alarm " + std::to_string(alarm.Id) + (alarm.Raised ? " RAISED: " : " clear: ") + alarm.Desc);
}

void TPrinter::Exec(int32_t number, double param, int32_t result) {
  if (FJson) {
    Line(nlohmann::ordered_json{
        {"t", Seconds()}, {"cmd", "exec"}, {"number", number}, {"param", param}, {"result", result}}
             .dump());
    return;
  }
  Line(Stamp() + " exec " + std::to_string(number) + " -> " + std::to_string(result));
}

void TPrinter::StatusChange(const std::string& key, const std::string& before, const std::string& after) {
  if (FJson) {
    nlohmann::ordered_json line = {{"t", Seconds()}, {"cmd", "watch"}, {"key", key}};
    line["before"] = nlohmann::json::parse(before, nullptr, false);
    line["after"] = nlohmann::json::parse(after, nullptr, false);
    Line(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    return;
  }
  Line(Stamp() + " " + key + ": " + before + " -> " + after);
}

void TPrinter::AlarmChange(const TAlarmLine& alarm) {
  if (FJson) {
    nlohmann::ordered_json line = {
        {"t", Seconds()}, {"cmd", "watch"}, {"alarm", alarm.Id}, {"raised", alarm.Raised}, {"desc", alarm.Desc}};
    Line(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    return;
  }
  Line(Stamp() + " alarm " + std::to_string(alarm.Id) + (alarm.Raised ? " RAISED: " : " cleared: ") + alarm.Desc);
}

double TPrinter::Seconds() const {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - FStart);
  return static_cast<double>(ms.count()) / 1000.0;
}

void TPrinter::Line(const std::string& text) {
  std::lock_guard lock(FMutex);
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fputc('\n', stdout);
  // Flushed at once, so that results and the IO lines on standard error interleave in the order they happened.
  std::fflush(stdout);
}

std::string TPrinter::Stamp() const {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - FStart);
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "[%6lld.%03lld s]", static_cast<long long>(ms.count() / 1000),
                static_cast<long long>(ms.count() % 1000));
  return buffer;
}

}  // namespace laserctl
