// laserctl --sim for a laser on the EtherCAT bus: a simulated EtherCAT system whose laser slave is the one the
// configured laser expects (an IPG laser, or the Max bus laser), installed in the reference host before the laser
// is created and removed again when this object goes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "SimTarget.h"
#include "refhost/MessageSink.h"
#include "refhost/RefApp.h"
#include "refhost/SimEcatSystem.h"

namespace laserctl {

// The laser's side of the simulated slave, from --ecat-alarm and --ecat-status.
struct TEcatSlaveSettings {
  std::optional<uint32_t> AlarmDword;
  std::optional<uint32_t> StatusFlags;
};

// A process-image word as an operator types it: decimal, or hexadecimal with 0x. False when it is not one.
bool ParseEcatWord(const std::string& text, uint32_t& value);
// The settings of --ecat-alarm and --ecat-status; false with `error` for a word that is not a number.
bool EcatSlaveSettingsFrom(const TOptions& options, TEcatSlaveSettings& settings, std::string& error);
// True when --ecat-alarm or --ecat-status was given.
bool HasEcatSlaveSettings(const TOptions& options);

class TEcatBusSim {
 public:
  // Without --ecat-status, an alarm dword comes with this status flag, so that the laser takes the alarm bits as
  // valid.
  static constexpr uint32_t kAlarmBitsValid = 0x100;

  // Installs a system with the slave of `target` in `app`; every controller write is printed to `sink`.
  TEcatBusSim(const TSimTarget& target, const TEcatSlaveSettings& settings, refhost::TRefApp& app,
              std::shared_ptr<refhost::TMessageSink> sink);
  ~TEcatBusSim();
  TEcatBusSim(const TEcatBusSim&) = delete;
  TEcatBusSim& operator=(const TEcatBusSim&) = delete;

  // What laserctl tells the operator: "simulated IPG EtherCAT laser slave (identity 0xE0000044, 3) on the bus".
  std::string Description() const;

 private:
  refhost::TRefApp& FApp;
  const TSimTarget FTarget;
  std::shared_ptr<refhost::TSimEcatSystem> FSystem;
};

}  // namespace laserctl
