// The laser plug-in as laserctl loads it: dlopen, the interface-version check, the API table, dlclose.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "api/DevLaserPlugin.h"

namespace laserctl {

class TPluginLibrary {
 public:
  // Opens the plug-in at `path` and checks that it was built against this host's interfaces. Null, with `error`
  // saying why, when the file cannot be loaded, is not a laser plug-in, or reports another interface version (the
  // class layouts of the host interfaces would not match, so nothing of it is called beyond the version query).
  static std::unique_ptr<TPluginLibrary> Open(const std::string& path, std::string& error);
  ~TPluginLibrary();
  TPluginLibrary(const TPluginLibrary&) = delete;
  TPluginLibrary& operator=(const TPluginLibrary&) = delete;

  const devlaser::TDevLaserApi& Api() const { return *FApi; }
  // The plug-in's version and registry query; null for a plug-in that does not export one.
  const devlaser::TDevLaserQuery* Query() const { return FQuery; }
  const std::string& Path() const { return FPath; }

  // Where the plug-in is looked for when --lib is not given, in order: beside the executable (the build puts both
  // in one folder), the library folder of an installation beside it, then the configured install location.
  static std::vector<std::string> DefaultCandidates(const std::string& exeDir);
  // The plug-in to open: `lib` when given, else the first default candidate that exists. Empty, with `error`
  // naming what was tried, when there is none.
  static std::string Locate(const std::string& lib, const std::string& exeDir, std::string& error);

 private:
  TPluginLibrary(void* handle, const devlaser::TDevLaserApi* api, const devlaser::TDevLaserQuery* query,
                 std::string path)
      : FHandle(handle), FApi(api), FQuery(query), FPath(std::move(path)) {}

  void* FHandle;
  const devlaser::TDevLaserApi* FApi;
  const devlaser::TDevLaserQuery* FQuery;
  std::string FPath;
};

}  // namespace laserctl
