#include "EcatBusSim.h"

#include <charconv>
#include <cstdio>
#include <tuple>

namespace laserctl {

bool ParseEcatWord(const std::string& text, uint32_t& value) {
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const char* first = text.data() + (hex ? 2 : 0);
  const char* last = text.data() + text.size();
  auto [end, ec] = std::from_chars(first, last, value, hex ? 16 : 10);
  return !text.empty() && ec == std::errc() && end == last;
}

bool EcatSlaveSettingsFrom(const TOptions& options, TEcatSlaveSettings& settings, std::string& error) {
  for (auto [option, text, setting] : {std::tuple{"--ecat-alarm", &options.EcatAlarm, &settings.AlarmDword},
                                       std::tuple{"--ecat-status", &options.EcatStatus, &settings.StatusFlags}}) {
    if (text->empty()) continue;
    uint32_t value = 0;
    if (!ParseEcatWord(*text, value)) {
      error = std::string(option) + " needs a 32-bit number, decimal or 0x-hexadecimal, not \"" + *text + "\"";
      return false;
    }
    *setting = value;
  }
  return true;
}

bool HasEcatSlaveSettings(const TOptions& options) { return !options.EcatAlarm.empty() || !options.EcatStatus.empty(); }

TEcatBusSim::TEcatBusSim(const TSimTarget& target, const TEcatSlaveSettings& settings, refhost::TRefApp& app,
                         std::shared_ptr<refhost::TMessageSink> sink)
    : FApp(app),
      FTarget(target),
      FSystem(std::make_shared<refhost::TSimEcatSystem>(true, target.EcatIdentity.Word1, target.EcatIdentity.Word2)) {
  auto slave = FSystem->Slave();
  slave->SetPrintSink(std::move(sink), "Ecat");
  const uint32_t alarms = settings.AlarmDword.value_or(0);
  slave->SetAlarmDword(alarms);
  slave->SetStatusFlags(settings.StatusFlags.value_or(alarms != 0 ? kAlarmBitsValid : 0));
  FApp.SetEcatSystem(FSystem);
}

TEcatBusSim::~TEcatBusSim() { FApp.SetEcatSystem(nullptr); }

std::string TEcatBusSim::Description() const {
  char identity[48];
  std::snprintf(identity, sizeof identity, "0x%08X, %u", FTarget.EcatIdentity.Word1, FTarget.EcatIdentity.Word2);
  return "simulated " + FTarget.Family + " laser slave (identity " + identity + ") on the bus";
}

}  // namespace laserctl
