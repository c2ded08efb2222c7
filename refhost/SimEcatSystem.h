// A simulated EtherCAT system for hosts without a bus: a program or a test decides whether a laser slave is
// present and which two identity words it reports.
#pragma once

#include <cstdint>
#include <mutex>

#include "host/Ecat.h"

namespace refhost {

class TSimEcatSystem : public nchost::IEcatSystem {
 public:
  TSimEcatSystem() = default;
  TSimEcatSystem(bool present, uint32_t word1, uint32_t word2) { SetLaserSlave(present, word1, word2); }

  void SetLaserSlave(bool present, uint32_t word1, uint32_t word2);
  void SetPresent(bool present);
  void SetIdentity(uint32_t word1, uint32_t word2);

  // Leaves `identity` untouched when no slave is present.
  bool GetLaserSlave(nchost::TEcatLaserIdentity& identity) override;

 private:
  std::mutex FMutex;
  bool FPresent = false;
  nchost::TEcatLaserIdentity FIdentity;
};

}  // namespace refhost
