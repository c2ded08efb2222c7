#include "refhost/SimEcatSystem.h"

namespace refhost {

void TSimEcatSystem::SetLaserSlave(bool present, uint32_t word1, uint32_t word2) {
  std::lock_guard lock(FMutex);
  FPresent = present;
  FIdentity = {word1, word2};
}

void TSimEcatSystem::SetPresent(bool present) {
  std::lock_guard lock(FMutex);
  FPresent = present;
}

void TSimEcatSystem::SetIdentity(uint32_t word1, uint32_t word2) {
  std::lock_guard lock(FMutex);
  FIdentity = {word1, word2};
}

bool TSimEcatSystem::GetLaserSlave(nchost::TEcatLaserIdentity& identity) {
  std::lock_guard lock(FMutex);
  if (FPresent) identity = FIdentity;
  return FPresent;
}

}  // namespace refhost
