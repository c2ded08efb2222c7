// The registry of laser classes: for each laser family, which class serves which sub-types. The first
// registration that accepts a family and sub-type wins, so the table's order is the rule.
#pragma once

#include <bitset>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "core/LaserLifetime.h"
#include "frame/LaserParams.h"
#include "registry/LaserLinks.h"
#include "registry/LaserTypeDic.h"

namespace devlaser {

// A laser class as the registry knows it: its name and how to build one.
struct TLaserClass {
  using TMake = std::shared_ptr<TNcLaser> (*)(const TLaserParams&, std::shared_ptr<nchost::ICtrlExtIO>,
                                              std::string* error);
  const char* Name = "";
  TMake Make = nullptr;
  uint8_t Links = llIO;      // TLaserLink bits
  bool OwnProtocol = false;  // speaks a protocol of its own rather than working as a hard-wired fiber laser
};

template <class T>
TLaserClass LaserClassOf(const char* name) {
  TLaserClass laserClass{
      name,
      [](const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io,
         std::string* error) -> std::shared_ptr<TNcLaser> { return MakeLaser<T>(params, std::move(io), error); }};
  if constexpr (requires { T::kProtocolLinks; }) {
    laserClass.Links = T::kProtocolLinks;
    laserClass.OwnProtocol = true;
  }
  return laserClass;
}

class TNcLaserLib {
 public:
  struct TEntry {
    TLaserClass LaserClass;
    TEnumLaserType LaserType;
    std::bitset<256> SubTypes;
  };

  // Registers `laserClass` for a family and its sub-types (an empty list means sub-type 0). A sub-type that is
  // already served is refused with the log line "RegisterLaser Error ..." and nothing is added.
  void RegisterLaser(TEnumLaserType laserType, std::initializer_list<int> subTypes, const TLaserClass& laserClass);
  // The same, after entering `model` as the family's key in `types` (whose duplicate error is not caught).
  void RegisterLaser(TEnumLaserType laserType, std::initializer_list<int> subTypes, const TLaserClass& laserClass,
                     const std::string& model, TLaserTypeDic& types);

  // The class of the first entry for this family that accepts the sub-type; null when none does.
  const TLaserClass* GetDefLaserClass(TEnumLaserType laserType, uint8_t subType) const;
  const std::vector<TEntry>& Entries() const { return FEntries; }

 private:
  std::vector<TEntry> FEntries;
};

}  // namespace devlaser
