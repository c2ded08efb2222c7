// The plug-in's exported C entry points. Every call is caught here: nothing the library throws reaches a host.
#include <exception>

#include "api/DevLaserPlugin.h"
#include "frame/HostServices.h"
#include "frame/LaserConfig.h"
#include "registry/LaserFactory.h"

namespace devlaser {
namespace {

void ReportEntryFailure(const char* entry, const char* what) noexcept {
  try {
    LogMsg(std::string(entry) + " failed: " + what, nchost::msgtype::kLaserLog);
  } catch (...) {
  }
}

// Runs `body`, turning an exception into a log line and `fallback`.
template <class R, class F>
R Guarded(const char* entry, R fallback, F&& body) noexcept {
  try {
    return body();
  } catch (const std::exception& e) {
    ReportEntryFailure(entry, e.what());
  } catch (...) {
    ReportEntryFailure(entry, "unknown exception");
  }
  return fallback;
}

bool Load(nchost::TAppSystem* app) {
  return Guarded("Load", false, [&] { return LoadLaserLibrary(app); });
}

void Unload() {
  Guarded("Unload", 0, [] {
    UnloadLaserLibrary();
    return 0;
  });
}

nchost::TXmlSubConfig* NewConfig() {
  return Guarded<nchost::TXmlSubConfig*>("NewConfig", nullptr, [] { return new TLaserConfig(); });
}

void FreeConfig(nchost::TXmlSubConfig* config) {
  Guarded("FreeConfig", 0, [&] {
    delete config;
    return 0;
  });
}

std::shared_ptr<nchost::INcLaser30> CreateFromConfig(nchost::TXmlSubConfig* config,
                                                     std::shared_ptr<nchost::IInterface> io, TLaserParams* used) {
  return Guarded<std::shared_ptr<nchost::INcLaser30>>("CreateLaser", nullptr, [&] {
    auto* laserConfig = dynamic_cast<TLaserConfig*>(config);
    if (config != nullptr && laserConfig == nullptr)
      LogMsg("CreateLaser: the configuration is not a laser configuration", nchost::msgtype::kLaserLog);
    return std::shared_ptr<nchost::INcLaser30>(CreateLaser(laserConfig, std::move(io), used));
  });
}

std::shared_ptr<nchost::INcLaser30> CreateFromParams(const TLaserParams& params,
                                                     std::shared_ptr<nchost::IInterface> io) {
  return Guarded<std::shared_ptr<nchost::INcLaser30>>(
      "CreateLaser", nullptr, [&] { return std::shared_ptr<nchost::INcLaser30>(CreateLaser(params, std::move(io))); });
}

void Destroy() {
  Guarded("DestroyLaser", 0, [] {
    DestroyLaser();
    return 0;
  });
}

std::shared_ptr<nchost::TVkInfoSource> InfoSource() {
  return Guarded<std::shared_ptr<nchost::TVkInfoSource>>("CreateLaserInfoSource", nullptr,
                                                         [] { return CreateLaserInfoSource(); });
}

const TDevLaserApi kApi = {Load,    Unload,    NewConfig, FreeConfig, CreateFromConfig, CreateFromParams,
                           Destroy, InfoSource};

}  // namespace
}  // namespace devlaser

extern "C" {
NCHOST_API int32_t DevLaser_HostInterfaceVersion() { return nchost::kHostInterfaceVersion; }
NCHOST_API const devlaser::TDevLaserApi* DevLaser_GetApi() { return &devlaser::kApi; }
}
