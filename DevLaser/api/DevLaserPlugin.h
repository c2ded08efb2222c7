// The plug-in's public face: what a host that loads the library at run time (dlopen) finds by name (dlsym).
// This header, the host interfaces in host/ and the parameter record (frame/LaserParams.h) are the whole public
// header set; every other symbol of the library is hidden.
//
// A host first calls DevLaser_HostInterfaceVersion and refuses the plug-in when it differs from its own
// nchost::kHostInterfaceVersion: the class layouts of host/ are the binary contract between the two. Then it takes
// the API table from DevLaser_GetApi, calls Load with its application object, creates lasers, and calls Unload
// before dlclose.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frame/LaserParams.h"
#include "host/AppSystem.h"
#include "host/HostDefs.h"
#include "host/InfoSource.h"
#include "host/NcLaser30.h"
#include "host/XmlSubConfig.h"

namespace devlaser {

struct TDevLaserApi {
  // Hands over the host's services; builds the laser registry and registers the locale procedure. False when the
  // library cannot start (the reason went to the host's log).
  bool (*Load)(nchost::TAppSystem* app);
  // Destroys the current laser, unregisters the locale procedure and frees the registry.
  void (*Unload)();

  // A new laser configuration tree with every key at its default; the caller frees it with FreeConfig. Hosts load
  // and save it through the generic configuration-node interface.
  nchost::TXmlSubConfig* (*NewConfig)();
  void (*FreeConfig)(nchost::TXmlSubConfig* config);

  // The three creation forms. `config` may be null (the default laser); `io` is asked for the IO-extension
  // interface and may be null. `used`, when not null, receives the parameters the laser was built from.
  std::shared_ptr<nchost::INcLaser30> (*CreateLaserFromConfig)(nchost::TXmlSubConfig* config,
                                                               std::shared_ptr<nchost::IInterface> io,
                                                               TLaserParams* used);
  std::shared_ptr<nchost::INcLaser30> (*CreateLaserFromParams)(const TLaserParams& params,
                                                               std::shared_ptr<nchost::IInterface> io);
  // Switches the current laser off, stops its threads, closes its ports and drops the library's reference.
  void (*DestroyLaser)();
  // An information source for the current laser (null when there is none).
  std::shared_ptr<nchost::TVkInfoSource> (*CreateLaserInfoSource)();
};

// One registration of the plug-in's laser registry, as tools list them.
struct TLaserRegistrationInfo {
  std::string ModelKey;            // what a configured model selects the family by; empty on entries adding sub-types
  std::string Family;              // the family's enumerator name, "eltIPG"
  std::vector<int> SubTypes;       // the sub-types this class serves
  std::string ClassName;           // "TIPGYLR2Laser"
  std::vector<std::string> Links;  // "io", "serial", "tcp", "udp", "ethercat"
  bool OwnProtocol = false;        // speaks its own protocol; false: works as a hard-wired fiber laser on the IO
};

// What the plug-in is and which lasers it builds; callable without Load.
struct TDevLaserQuery {
  const char* Version;  // the plug-in's own version, "0.1.0"
  std::vector<TLaserRegistrationInfo> (*Registrations)();
};

}  // namespace devlaser

extern "C" {
NCHOST_API int32_t DevLaser_HostInterfaceVersion();
NCHOST_API const devlaser::TDevLaserApi* DevLaser_GetApi();
// Optional for hosts: plug-ins before version 0.1 lack it.
NCHOST_API const devlaser::TDevLaserQuery* DevLaser_GetQuery();
}
