#include "PluginLibrary.h"

#include <dlfcn.h>

#include <filesystem>

#include "host/HostDefs.h"

#ifndef DEVLASER_INSTALL_LIBDIR
#define DEVLASER_INSTALL_LIBDIR "/usr/local/lib/devlaser"
#endif
// The plug-in's folder relative to the installation prefix ("lib/x86_64-linux-gnu/devlaser").
#ifndef DEVLASER_PLUGIN_RELDIR
#define DEVLASER_PLUGIN_RELDIR "lib/devlaser"
#endif

namespace laserctl {
namespace {

constexpr const char* kPluginFile = "libDevLaser.so";

std::string DlError() {
  const char* text = dlerror();
  return text != nullptr ? text : "unknown error";
}

// dlsym returns an object pointer; the entry points are functions.
template <class F>
F Symbol(void* handle, const char* name) {
  void* symbol = dlsym(handle, name);
  F function = nullptr;
  static_assert(sizeof function == sizeof symbol);
  __builtin_memcpy(&function, &symbol, sizeof function);
  return function;
}

}  // namespace

std::unique_ptr<TPluginLibrary> TPluginLibrary::Open(const std::string& path, std::string& error) {
  // RTLD_LOCAL keeps the plug-in's symbols to itself; RTLD_NOW reports a missing symbol here, not mid-run.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    error = "cannot load the laser plug-in " + path + ": " + DlError();
    return nullptr;
  }
  using TVersionFn = int32_t (*)();
  using TApiFn = const devlaser::TDevLaserApi* (*)();
  const auto version = Symbol<TVersionFn>(handle, "DevLaser_HostInterfaceVersion");
  const auto getApi = Symbol<TApiFn>(handle, "DevLaser_GetApi");
  if (version == nullptr || getApi == nullptr) {
    error = path + " is not a laser plug-in: it does not export DevLaser_HostInterfaceVersion and DevLaser_GetApi";
    dlclose(handle);
    return nullptr;
  }
  const int32_t pluginVersion = version();
  if (pluginVersion != nchost::kHostInterfaceVersion) {
    error = "refusing the laser plug-in " + path + ": it was built for host interface version " +
            std::to_string(pluginVersion) + ", laserctl has version " + std::to_string(nchost::kHostInterfaceVersion) +
            "; rebuild the plug-in and laserctl from one source tree";
    dlclose(handle);
    return nullptr;
  }
  const devlaser::TDevLaserApi* api = getApi();
  if (api == nullptr || api->Load == nullptr || api->Unload == nullptr || api->NewConfig == nullptr ||
      api->FreeConfig == nullptr || api->CreateLaserFromConfig == nullptr || api->CreateLaserFromParams == nullptr ||
      api->DestroyLaser == nullptr || api->CreateLaserInfoSource == nullptr) {
    error = "the laser plug-in " + path + " returned an incomplete API table";
    dlclose(handle);
    return nullptr;
  }
  using TQueryFn = const devlaser::TDevLaserQuery* (*)();
  const auto getQuery = Symbol<TQueryFn>(handle, "DevLaser_GetQuery");
  const devlaser::TDevLaserQuery* query = getQuery != nullptr ? getQuery() : nullptr;
  return std::unique_ptr<TPluginLibrary>(new TPluginLibrary(handle, api, query, path));
}

TPluginLibrary::~TPluginLibrary() { dlclose(FHandle); }

std::vector<std::string> TPluginLibrary::DefaultCandidates(const std::string& exeDir) {
  std::vector<std::string> candidates;
  if (!exeDir.empty()) {
    candidates.push_back(exeDir + "/" + kPluginFile);
    candidates.push_back(exeDir + "/../" DEVLASER_PLUGIN_RELDIR "/" + std::string(kPluginFile));
    candidates.push_back(exeDir + "/../lib/" + kPluginFile);
  }
  candidates.push_back(std::string(DEVLASER_INSTALL_LIBDIR) + "/" + kPluginFile);
  return candidates;
}

std::string TPluginLibrary::Locate(const std::string& lib, const std::string& exeDir, std::string& error) {
  // A plug-in named with --lib is taken as it is (dlopen also searches the library path for a bare name).
  // Otherwise the first default candidate that exists is the plug-in: when it is refused, looking further would
  // hide why.
  if (!lib.empty()) return lib;
  std::string tried;
  for (const auto& candidate : DefaultCandidates(exeDir)) {
    std::error_code ec;
    if (std::filesystem::exists(candidate, ec)) return std::filesystem::path(candidate).lexically_normal().string();
    tried += (tried.empty() ? "" : ", ") + candidate;
  }
  error = "no laser plug-in found (looked for " + tried + "); name one with --lib";
  return {};
}

}  // namespace laserctl
