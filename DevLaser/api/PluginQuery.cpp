// The plug-in's exported query: its version and its laser registry, read from the registrations themselves.
#include <algorithm>
#include <exception>

#include "api/DevLaserPlugin.h"
#include "registry/LaserLib.h"
#include "registry/LaserRegistrations.h"

#ifndef DEVLASER_VERSION
#define DEVLASER_VERSION "unknown"
#endif

namespace devlaser {
namespace {

std::vector<std::string> LinkNames(uint8_t links) {
  static constexpr std::pair<TLaserLink, const char*> kNames[] = {
      {llIO, "io"}, {llSerial, "serial"}, {llTcp, "tcp"}, {llUdp, "udp"}, {llEthercat, "ethercat"}};
  std::vector<std::string> names;
  for (const auto& [bit, name] : kNames)
    if (links & bit) names.emplace_back(name);
  return names;
}

std::vector<TLaserRegistrationInfo> Registrations() {
  try {
    // A registry of its own, built as Load builds the library's: the query needs no host and no loaded library.
    TNcLaserLib lib;
    TLaserTypeDic types;
    RegisterBuiltInLasers(lib, types);
    std::vector<TLaserRegistrationInfo> infos;
    for (const auto& entry : lib.Entries()) {
      TLaserRegistrationInfo info;
      const bool firstOfFamily = std::none_of(infos.begin(), infos.end(), [&](const TLaserRegistrationInfo& i) {
        return i.Family == LaserTypeName(entry.LaserType);
      });
      if (firstOfFamily)
        for (const auto& [key, type] : types.Keys())
          if (type == entry.LaserType) {
            info.ModelKey = key;
            break;
          }
      info.Family = LaserTypeName(entry.LaserType);
      for (size_t s = 0; s < entry.SubTypes.size(); ++s)
        if (entry.SubTypes[s]) info.SubTypes.push_back(static_cast<int>(s));
      info.ClassName = entry.LaserClass.Name;
      info.Links = LinkNames(entry.LaserClass.Links);
      info.OwnProtocol = entry.LaserClass.OwnProtocol;
      infos.push_back(std::move(info));
    }
    return infos;
  } catch (const std::exception&) {
    return {};  // nothing of the library may throw into a host
  }
}

const TDevLaserQuery kQuery = {DEVLASER_VERSION, Registrations};

}  // namespace
}  // namespace devlaser

extern "C" NCHOST_API const devlaser::TDevLaserQuery* DevLaser_GetQuery() { return &devlaser::kQuery; }
