#include "refhost/SimEcatSystem.h"

namespace refhost {
namespace {

TSimEcatSlaveKind KindOf(uint32_t word1, uint32_t word2) {
  const auto ipg = TSimEcatSystem::kIpgLaserIdentity;
  return word1 == ipg.Word1 && word2 == ipg.Word2 ? TSimEcatSlaveKind::IpgLaser : TSimEcatSlaveKind::Plain;
}

}  // namespace

void TSimEcatSystem::SetLaserSlave(bool present, uint32_t word1, uint32_t word2) {
  std::lock_guard lock(FMutex);
  FPresent = present;
  SetIdentityLocked(word1, word2);
}

void TSimEcatSystem::SetPresent(bool present) {
  std::lock_guard lock(FMutex);
  FPresent = present;
}

void TSimEcatSystem::SetIdentity(uint32_t word1, uint32_t word2) {
  std::lock_guard lock(FMutex);
  SetIdentityLocked(word1, word2);
}

void TSimEcatSystem::SetIdentityLocked(uint32_t word1, uint32_t word2) {
  if (FIdentity.Word1 == word1 && FIdentity.Word2 == word2) return;
  FIdentity = {word1, word2};
  FSlave = std::make_shared<TSimEcatLaserSlave>(KindOf(word1, word2));
}

std::shared_ptr<TSimEcatLaserSlave> TSimEcatSystem::Slave() {
  std::lock_guard lock(FMutex);
  return FSlave;
}

bool TSimEcatSystem::GetLaserSlave(nchost::TEcatLaserIdentity& identity) {
  std::lock_guard lock(FMutex);
  if (FPresent) identity = FIdentity;
  return FPresent;
}

std::shared_ptr<nchost::IEcatLaserSlave> TSimEcatSystem::LaserSlaveImage() {
  std::lock_guard lock(FMutex);
  return FPresent ? FSlave : nullptr;
}

}  // namespace refhost
