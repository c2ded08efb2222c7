// The library's one laser: created from a configuration or a parameter record through the registry, replaced by
// the next creation, ended by DestroyLaser. Also the library's load and unload, which build and free the registry.
// Nothing here throws to the host.
#pragma once

#include <memory>

#include "core/NcLaser.h"
#include "frame/LaserConfig.h"
#include "frame/LaserParams.h"
#include "host/AppSystem.h"
#include "host/HostDefs.h"
#include "host/InfoSource.h"

namespace devlaser {

class TLaserParamsInit;
class TNcLaserLib;

// Builds the logger, the parameter initialiser and the registry, and registers the message locale procedure
// (running it once, so a host whose language is already set gets it). Loading twice is a no-op.
bool LoadLaserLibrary(nchost::TAppSystem* app);
// Destroys the current laser, unregisters the locale procedure and frees what LoadLaserLibrary built.
void UnloadLaserLibrary();

// Null configuration: the default laser.
std::shared_ptr<TNcLaser> CreateLaser(TLaserConfig* config, std::shared_ptr<nchost::IInterface> io,
                                      TLaserParams* used = nullptr);
std::shared_ptr<TNcLaser> CreateLaser(const TLaserParams& params, std::shared_ptr<nchost::IInterface> io);
// Switches the current laser off, stops and joins its threads and drops the library's reference.
void DestroyLaser();
// The current laser (null when there is none).
std::shared_ptr<TNcLaser> CurrentLaser();
std::shared_ptr<nchost::TVkInfoSource> CreateLaserInfoSource();

// The registry's parts while the library is loaded (null otherwise), for hosts and tests that inspect them.
TLaserParamsInit* LaserParamsInit();
TNcLaserLib* LaserLib();

}  // namespace devlaser
