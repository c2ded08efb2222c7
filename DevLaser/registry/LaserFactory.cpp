#include "registry/LaserFactory.h"

#include <exception>
#include <mutex>

#include "core/DefaultLaser.h"
#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"
#include "info/LaserInfo.h"
#include "registry/LaserLib.h"
#include "registry/LaserParamsInit.h"
#include "registry/LaserRegistrations.h"

namespace devlaser {
namespace {

// EtherCAT laser slaves by their identity words.
constexpr uint32_t kIpgEcatWord1 = 0xE0000044;
constexpr uint32_t kIpgEcatWord2 = 3;
constexpr uint32_t kMaxEcatWord1 = 1638;
constexpr int32_t kEcatSubType = 9;

struct TLibrary {
  std::recursive_mutex Lock;  // host calls are serialised; re-entrant because creation frees the old laser
  bool Loaded = false;
  std::unique_ptr<TCSLogger> Logger;
  std::unique_ptr<TLaserParamsInit> ParamsInit;
  std::unique_ptr<TNcLaserLib> Lib;
  std::shared_ptr<TNcLaser> Current;
  int LocaleHandle = -1;
};

TLibrary& Library() {
  static TLibrary library;
  return library;
}

void FreeCurrentLaser(TLibrary& lib) {
  std::shared_ptr<TNcLaser> laser = std::move(lib.Current);
  if (laser) laser->Shutdown();  // also when the host still holds a reference
}

std::shared_ptr<TNcLaser> MakeDefaultLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io) {
  return MakeLaser<TDefaultLaser>(params, std::move(io));
}

}  // namespace

bool LoadLaserLibrary(nchost::TAppSystem* app) {
  TLibrary& lib = Library();
  std::lock_guard guard(lib.Lock);
  if (lib.Loaded) return true;
  try {
    SetHost(app);
    lib.Logger = std::make_unique<TCSLogger>();
    SetCSLogger(lib.Logger.get());
    lib.ParamsInit = std::make_unique<TLaserParamsInit>();
    lib.Lib = std::make_unique<TNcLaserLib>();
    RegisterBuiltInLasers(*lib.Lib, lib.ParamsInit->Types());
    if (app != nullptr) lib.LocaleHandle = app->RegisterLocaleProc(MessagesLocaleProc);
    MessagesLocaleProc();
    lib.Loaded = true;
    return true;
  } catch (const std::exception& e) {
    LogMsg(std::string("DevLaser load failed: ") + e.what(), nchost::msgtype::kLaserLog);
  }
  SetCSLogger(nullptr);
  lib.Lib.reset();
  lib.ParamsInit.reset();
  lib.Logger.reset();
  return false;
}

void UnloadLaserLibrary() {
  TLibrary& lib = Library();
  std::lock_guard guard(lib.Lock);
  if (!lib.Loaded) return;
  FreeCurrentLaser(lib);
  if (auto* app = Host(); app != nullptr && lib.LocaleHandle >= 0) app->UnregisterLocaleProc(lib.LocaleHandle);
  lib.LocaleHandle = -1;
  lib.ParamsInit.reset();
  lib.Lib.reset();
  SetCSLogger(nullptr);
  lib.Logger.reset();
  lib.Loaded = false;
  SetHost(nullptr);
}

std::shared_ptr<TNcLaser> CreateLaser(TLaserConfig* config, std::shared_ptr<nchost::IInterface> io,
                                      TLaserParams* used) {
  TLibrary& lib = Library();
  std::lock_guard guard(lib.Lock);
  TLaserParams params;
  try {
    if (config == nullptr) {
      params.Initialize();
      params.Model = "Default";
    } else if (lib.ParamsInit) {
      lib.ParamsInit->LaserConfigToParams(*config, params);
    } else {
      TLaserParamsInit standalone;  // library not loaded: no model keys, so the default laser results
      standalone.LaserConfigToParams(*config, params);
    }
  } catch (const std::exception& e) {
    ShowMsg(e.what(), nchost::msgtype::kError);
    params.Initialize();
    params.Model = "Default";
  }
  if (used != nullptr) *used = params;
  return CreateLaser(params, std::move(io));
}

std::shared_ptr<TNcLaser> CreateLaser(const TLaserParams& params, std::shared_ptr<nchost::IInterface> ioObject) {
  TLibrary& lib = Library();
  std::lock_guard guard(lib.Lock);
  try {
    std::shared_ptr<nchost::ICtrlExtIO> io;
    if (ioObject) {
      if (void* p = ioObject->QueryInterface(nchost::ICtrlExtIO::kIID))
        io = std::shared_ptr<nchost::ICtrlExtIO>(ioObject, static_cast<nchost::ICtrlExtIO*>(p));
    }
    if (!io) LogMsg("CreateLaser not Support uLaserSupportIntf.ICtrlExtIO", nchost::msgtype::kCommLog);

    FreeCurrentLaser(lib);

    TEnumLaserType laserType = params.LaserMainType;
    int32_t subType = params.LaserSubType;
    nchost::IEcatSystem* ecat = Host() != nullptr ? Host()->EcatSystem() : nullptr;
    nchost::TEcatLaserIdentity identity;
    const bool busLaser = ecat != nullptr && ecat->GetLaserSlave(identity);
    if (busLaser) {
      if (identity.Word1 == kIpgEcatWord1 && identity.Word2 == kIpgEcatWord2) {
        laserType = eltIPG;
        subType = kEcatSubType;
      } else if (identity.Word1 == kMaxEcatWord1) {
        laserType = eltMaxSZ;
        subType = 3;
      } else {
        laserType = eltNone;
        subType = 0;
      }
    } else {
      if (laserType == eltNone && lib.ParamsInit)
        laserType = lib.ParamsInit->Types().LaserModelToLaserType(params.Model);
      if (params.DefParams.DataTransType == dttEthercat) subType = kEcatSubType;
    }
    SetLaserDebugMode(params.DefParams.DebugMode);

    const TLaserClass* laserClass = lib.Lib && subType >= 0 && subType <= 255
                                        ? lib.Lib->GetDefLaserClass(laserType, static_cast<uint8_t>(subType))
                                        : nullptr;
    if (subType == kEcatSubType && !busLaser) {
      ShowMsg(SNoneEcatLaser, nchost::msgtype::kError);
      laserClass = nullptr;
    } else if (laserClass == nullptr) {
      ShowMsg(SUnkownLaserType, nchost::msgtype::kError);
    }
    if (GLaserDebugMode())
      CSLog(Format("CreateLaser ClassType %s", laserClass ? laserClass->Name : "TDefaultLaser"),
            nchost::msgtype::kInformation);

    std::shared_ptr<TNcLaser> laser;
    if (laserClass != nullptr) {
      std::string error;
      laser = laserClass->Make(params, io, &error);
      if (!laser) ShowMsg(Format("%s: %s", laserClass->Name, error), nchost::msgtype::kError);
    }
    if (!laser) laser = MakeDefaultLaser(params, io);
    lib.Current = laser;
    return laser;
  } catch (const std::exception& e) {
    ShowMsg(e.what(), nchost::msgtype::kError);
  } catch (...) {
    ShowMsg(SUnkownLaserType, nchost::msgtype::kError);
  }
  return nullptr;
}

void DestroyLaser() {
  TLibrary& lib = Library();
  std::lock_guard guard(lib.Lock);
  CSLog("DestoyLaser Begin", nchost::msgtype::kInformation);
  FreeCurrentLaser(lib);
  CSLog("DestoyLaser End", nchost::msgtype::kInformation);
}

std::shared_ptr<TNcLaser> CurrentLaser() {
  TLibrary& lib = Library();
  std::lock_guard guard(lib.Lock);
  return lib.Current;
}

std::shared_ptr<nchost::TVkInfoSource> CreateLaserInfoSource() {
  try {
    return CreateLaserInfo(CurrentLaser());
  } catch (const std::exception& e) {
    LogMsg(std::string("CreateLaserInfoSource: ") + e.what(), nchost::msgtype::kLaserLog);
  }
  return nullptr;
}

TLaserParamsInit* LaserParamsInit() { return Library().ParamsInit.get(); }
TNcLaserLib* LaserLib() { return Library().Lib.get(); }

}  // namespace devlaser
