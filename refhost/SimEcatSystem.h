// A simulated EtherCAT system for hosts without a bus: a program or a test decides whether a laser slave is
// present and which two identity words it reports. The slave behind them is a simulated one: an IPG laser for
// the IPG identity, a slave that keeps its outputs as they are set for any other.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "host/Ecat.h"
#include "refhost/SimEcatLaserSlave.h"

namespace refhost {

class TSimEcatSystem : public nchost::IEcatSystem {
 public:
  // The identities of the laser slaves the library knows.
  static constexpr nchost::TEcatLaserIdentity kIpgLaserIdentity{0xE0000044, 3};
  static constexpr nchost::TEcatLaserIdentity kMaxLaserIdentity{1638, 0};

  TSimEcatSystem() = default;
  TSimEcatSystem(bool present, uint32_t word1, uint32_t word2) { SetLaserSlave(present, word1, word2); }

  // A changed identity plugs in a fresh slave of the matching kind; a laser built on the old one keeps it.
  void SetLaserSlave(bool present, uint32_t word1, uint32_t word2);
  void SetPresent(bool present);
  void SetIdentity(uint32_t word1, uint32_t word2);

  // The simulated slave that the identity selects (also while it is not present), for tests and programs to set
  // the laser's side and read what the controller wrote.
  std::shared_ptr<TSimEcatLaserSlave> Slave();

  // Leaves `identity` untouched when no slave is present.
  bool GetLaserSlave(nchost::TEcatLaserIdentity& identity) override;
  std::shared_ptr<nchost::IEcatLaserSlave> LaserSlaveImage() override;

 private:
  void SetIdentityLocked(uint32_t word1, uint32_t word2);

  std::mutex FMutex;
  bool FPresent = false;
  nchost::TEcatLaserIdentity FIdentity;
  std::shared_ptr<TSimEcatLaserSlave> FSlave = std::make_shared<TSimEcatLaserSlave>(TSimEcatSlaveKind::Plain);
};

}  // namespace refhost
