// Links the installed plug-in and asks it what it is: the host-interface version must match the installed headers
// and the registry must list lasers.
#include <cstdio>

#include "api/DevLaserPlugin.h"

int main() {
  if (DevLaser_HostInterfaceVersion() != nchost::kHostInterfaceVersion) return 1;
  const devlaser::TDevLaserQuery* query = DevLaser_GetQuery();
  if (query == nullptr || query->Registrations().empty()) return 2;
  std::printf("plug-in %s in %s with %zu registrations\n", query->Version, PLUGIN_DIR, query->Registrations().size());
  return DevLaser_GetApi() != nullptr ? 0 : 3;
}
