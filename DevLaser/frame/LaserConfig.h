// The persisted laser settings: the root node of the laser configuration tree. The root holds the settings every
// laser has; the analogue ("DA") and PWM ("PWM") output settings are sub-nodes created with the root, and each
// laser family's own settings live in a sub-node created the first time it is asked for (or named in a loaded
// file), so a saved configuration holds only the families that were ever used.
#pragma once

#include <cstdint>
#include <string>

#include "frame/LaserConfigFamilies.h"
#include "frame/LaserConfigNode.h"

namespace devlaser {

#define DEVLASER_ROOT_KEYS(K)                                 \
  K(int32_t, CtrlPort, 0) /* output that gates emission */    \
  K(int32_t, AimingPort, 0)                                   \
  K(bool, AimingLowActive, false)                             \
  K(bool, AnalogControl, false) /* power by DA, not by PWM */ \
  K(std::string, Model, "Raycus")                             \
  K(std::string, Brand, "")                                   \
  K(double, Power, 1000.0) /* rated power, W */               \
  K(bool, DebugMode, false)                                   \
  K(int32_t, ShutterReadyDelay, 100)                          \
  K(int32_t, ShutterReady, 0) /* input */                     \
  K(int32_t, LaserPeriod, 100)                                \
  K(bool, IgnoreLaserAlarm, false)                            \
  K(bool, LaserAlarm2Warning, false)                          \
  K(bool, IgnoreDiodeReply, false)                            \
  K(bool, DiodeSetAlarmEn, false)                             \
  K(int32_t, DiodeSetTimeOut, 1000)                           \
  K(bool, HardWireMutexEmAndAB, false)

class TLaserConfig : public TLaserConfigNode {
 public:
  static constexpr const char* kDefaultNodeName = "Laser";
  static constexpr const char* kDANode = "DA";
  static constexpr const char* kPwmNode = "PWM";

  explicit TLaserConfig(nchost::TXmlSubConfig* parent = nullptr, std::string nodeName = kDefaultNodeName);

  // Puts the root keys and the DA and PWM settings back to their defaults; family nodes are kept.
  void Initialize() override;

  DEVLASER_CONFIG_ACCESSORS(DEVLASER_ROOT_KEYS)

  TLaserDAConfig& DA() { return *FDA; }
  const TLaserDAConfig& DA() const { return *FDA; }
  TLaserPwmConfig& Pwm() { return *FPwm; }
  const TLaserPwmConfig& Pwm() const { return *FPwm; }

  // The family node `name`, created on first access; the same object afterwards. Null only when a node of that
  // name exists with another class.
  template <class T>
  T* GetLaserConfig(const std::string& name) {
    if (TXmlSubConfig* existing = FindSubConfig(name)) return dynamic_cast<T*>(existing);
    return AddSubConfig<T>(name);
  }

  TCO2LaserConfig& GetCO2Config() { return *GetLaserConfig<TCO2LaserConfig>("CO2"); }
  TLaserIPGConfig& GetIPGConfig() { return *GetLaserConfig<TLaserIPGConfig>("IPG"); }
  TGSILaserConfig& GetGSIConfig() { return *GetLaserConfig<TGSILaserConfig>("GSI"); }
  TMaxLaserConfig& GetMaxSZConfig() { return *GetLaserConfig<TMaxLaserConfig>("MaxSZ"); }
  TMeimanLaserConfig& GetMeimanConfig() { return *GetLaserConfig<TMeimanLaserConfig>("Meiman"); }
  TQingHuaLaserConfig& GetQingHuaConfig() { return *GetLaserConfig<TQingHuaLaserConfig>("Qinghua"); }
  TQYLaserConfig& GetQYZConfig() { return *GetLaserConfig<TQYLaserConfig>("QYZ"); }
  TRaycusLaserConfig& GetRaycusConfig() { return *GetLaserConfig<TRaycusLaserConfig>("Raycus"); }
  TRofinLaserConfig& GetRofinConfig() { return *GetLaserConfig<TRofinLaserConfig>("Rofin"); }
  TSPILaserConfig& GetSPIConfig() { return *GetLaserConfig<TSPILaserConfig>("SPI"); }
  TCASLaserConfig& GetCASConfig() { return *GetLaserConfig<TCASLaserConfig>("CAS"); }
  TMarsLaserConfig& GetMarsConfig() { return *GetLaserConfig<TMarsLaserConfig>("MARS"); }
  TNLightLaserConfig& GetNLightConfig() { return *GetLaserConfig<TNLightLaserConfig>("NLight"); }
  TZorunLaserConfig& GetZorunConfig() { return *GetLaserConfig<TZorunLaserConfig>("Zorun"); }

  // A loaded file's family node is created through its getter; unknown names stay unknown.
  TXmlSubConfig* SubConfigForLoad(const std::string& name) override;

  bool IsCO2() const;
  bool IsIPG() const;
  bool IsYAG() const;
  // The maker shown for this laser: Brand when it is set and the model is "Default" or names that brand,
  // otherwise the model ("UnkownBrand" when there is none).
  std::string GetBrand() const;

 private:
  TLaserDAConfig* FDA;
  TLaserPwmConfig* FPwm;
};

}  // namespace devlaser
