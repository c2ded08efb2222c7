// The sub-nodes of the laser configuration: the analogue and PWM output settings every laser has, and one node per
// laser family with the settings only that family reads. Ports are IO-extension port numbers (0: not used), DA
// ports are numbered from 1200, times are milliseconds.
#pragma once

#include <cstdint>
#include <string>

#include "frame/LaserConfigNode.h"

namespace devlaser {

// ---- analogue output ---------------------------------------------------------------------------------------------

#define DEVLASER_DA_KEYS(K)                                               \
  K(int32_t, DAPort, 0)                                                   \
  K(double, MaxVoltage, 10.0) /* volts meaning full scale at the laser */ \
  K(double, ProofMax, 10.0)   /* full-scale volts of the controller's DA output */

class TLaserDAConfig : public TLaserConfigNode {
 public:
  TLaserDAConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_DA_KEYS)
};

// ---- PWM output --------------------------------------------------------------------------------------------------

#define DEVLASER_PWM_KEYS(K)    \
  K(int32_t, EnablePort1, 0)    \
  K(int32_t, EnablePort2, 0)    \
  K(double, MinRatio, 0.01)     \
  K(double, DiodeCurrent, 10.0) \
  K(int32_t, Frequency, 5000)   \
  K(double, Ratio, 1.0)

class TLaserPwmConfig : public TLaserConfigNode {
 public:
  TLaserPwmConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_PWM_KEYS)
  // Kept as an attribute of the node's element in the XML form.
  bool DynamicPwm() const { return Value<bool>("DynamicPwm"); }
  void SetDynamicPwm(bool value) { SetValue("DynamicPwm", value); }
};

// ---- serial families ---------------------------------------------------------------------------------------------

#define DEVLASER_COMM_KEYS(K)                        \
  K(bool, CheckAlarm, false)                         \
  K(int32_t, CommPort, 1)                            \
  K(std::string, CommSettings, FDefaultCommSettings) \
  K(bool, DebugMode, false)                          \
  K(bool, IgnoreCommResult, true)

// The serial-line settings shared by every family that talks to its laser over a serial port. `CommSettings` is
// "baud,parity,data bits,stop bits"; each family has its own factory setting.
class TLaserCommConfig : public TLaserConfigNode {
 public:
  TLaserCommConfig(nchost::TXmlSubConfig* parent, std::string nodeName, std::string defaultCommSettings);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_COMM_KEYS)

  // The baud rate: the first field of CommSettings (0 when it is not a number).
  int32_t GetBaudrate() const;
  // Replaces the first field of CommSettings, keeping parity, data and stop bits.
  void SetBaudrate(int32_t baudrate);

 private:
  std::string FDefaultCommSettings;
};

// The hard-wired handshake and network settings of IPG YLS lasers; Trumpf lasers read their ports and delays from
// here as well.
#define DEVLASER_IPG_YLS2000_KEYS(K)            \
  K(int32_t, EmissionStatusPort, 0) /* input */ \
  K(int32_t, LaserOnPort, 6)                    \
  K(int32_t, LaserRequestPort, 7)               \
  K(int32_t, ProgramStartPort, 8)               \
  K(bool, UseNetCtrl, false)                    \
  K(std::string, TcpHost, "192.168.100.1")      \
  K(int32_t, TcpPort, 8080)                     \
  K(bool, DebugMode, false)                     \
  K(bool, PowerCtrl, false)                     \
  K(int32_t, PowerCtrlPort, 0)                  \
  K(int32_t, LaserExtActivationDelay, 0)        \
  K(int32_t, LaserExtActivationOkPort, 0)       \
  K(int32_t, LaserOnDelay, 10000)               \
  K(int32_t, LaserOnOkPort, 0)                  \
  K(int32_t, LaserRequestDelay, 200)            \
  K(int32_t, LaserExtActivationPort, 0)         \
  K(int32_t, PowerOnStrategy, 0)

class TIPGYLS2000Config : public TLaserConfigNode {
 public:
  TIPGYLS2000Config(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_IPG_YLS2000_KEYS)
};

// MaxCurrent is the percent ceiling of a QCW diode-current set: 100 lets every valid value through.
#define DEVLASER_IPG_KEYS(K)              \
  K(std::string, Model, "")               \
  K(int32_t, PowerCtrlPort, 0)            \
  K(std::string, TcpHost, "192.168.1.10") \
  K(int32_t, TcpPort, 8080)               \
  K(bool, UseTcp, false)                  \
  K(double, MaxCurrent, 100.0)            \
  K(std::string, PulseModel, "CW")        \
  K(double, PulseWidth, 0.0)              \
  K(int32_t, RepRate, 0)                  \
  K(int32_t, IPGType, 0)                  \
  K(int32_t, CtrlModel, 0)                \
  K(int32_t, LaserRequestDelay, 200)      \
  K(int32_t, LaserOnDelay, 10000)         \
  K(int32_t, LaserOnPulse, 500)           \
  K(bool, IgnoreDiodeReply, false)        \
  K(bool, GateMode, false)                \
  K(bool, UseOutputLaserOn, false)        \
  K(bool, UseRemoteCtrl, false)           \
  K(int32_t, YLRKeyOnPort, 0)             \
  K(int32_t, YLRStartPort, 0)             \
  K(int32_t, YLRLaserPort, 0)             \
  K(int32_t, PulseMode, 0)                \
  K(bool, YLPIndependentEmsOn, false)     \
  K(int32_t, YLPMO, 0)                    \
  K(bool, YLPAlarmIgnore, false)          \
  K(int32_t, YLPPower5, 0)                \
  K(int32_t, YLPPower6, 0)                \
  K(int32_t, YLPPower7, 0)                \
  K(int32_t, YLPPower8, 0)                \
  K(int32_t, YLPPowerDelay1, 0)           \
  K(int32_t, YLPPowerDelay2, 0)           \
  K(int32_t, YLPLock, 0)                  \
  K(int32_t, YLPAlarm16, 0)               \
  K(int32_t, YLPAlarm21, 0)

class TLaserIPGConfig : public TLaserCommConfig {
 public:
  static constexpr const char* kYLS2000Node = "YLS2000";

  TLaserIPGConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_IPG_KEYS)

  TIPGYLS2000Config& YLS2000() { return *FYLS2000; }
  const TIPGYLS2000Config& YLS2000() const { return *FYLS2000; }

  bool IsYLR() const;
  bool IsYLS() const;
  // Whether a YLR laser is reached over a link: not when it has neither TCP nor a serial port.
  bool UseComm() const;

 private:
  TIPGYLS2000Config* FYLS2000;
};

#define DEVLASER_RAYCUS_KEYS(K)            \
  K(std::string, PulseModel, "CW")         \
  K(std::string, TcpHost, "192.168.0.100") \
  K(bool, UseTcp, false)                   \
  K(bool, UseOutputLaserOn, false)         \
  K(bool, UseRemoteCtrl, false)            \
  K(int32_t, RayStartPort, 0)              \
  K(int32_t, RayLaserPort, 0)              \
  K(bool, IgnoreDiodeReply, false)         \
  K(int32_t, CtrlMode, 0)                  \
  K(double, MaxCurrent, 100.0) /* percent */

class TRaycusLaserConfig : public TLaserCommConfig {
 public:
  TRaycusLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_RAYCUS_KEYS)
  // The Raycus model string (it selects the protocol); an attribute of the node's element in the XML form.
  std::string Type() const { return Value<std::string>("Type"); }
  void SetType(const std::string& value) { SetValue("Type", value); }
};

#define DEVLASER_MODEL_KEYS(K) K(std::string, Model, "")
#define DEVLASER_DAPORT_KEYS(K) K(int32_t, DAPort, 0)

class TSPILaserConfig : public TLaserCommConfig {
 public:
  TSPILaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_MODEL_KEYS)
};

class TMaxLaserConfig : public TLaserCommConfig {
 public:
  TMaxLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_MODEL_KEYS)
};

class TGSILaserConfig : public TLaserCommConfig {
 public:
  TGSILaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  // The laser's bus address is one byte; a stored value outside 0..255 reads as the nearest valid address.
  uint8_t Address() const;
  void SetAddress(int32_t value) { SetValue("Address", value); }
};

class TQYLaserConfig : public TLaserCommConfig {
 public:
  TQYLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_DAPORT_KEYS)
};

class TQingHuaLaserConfig : public TLaserCommConfig {
 public:
  TQingHuaLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_DAPORT_KEYS)
};

class TMarsLaserConfig : public TLaserCommConfig {
 public:
  TMarsLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
};

class TNLightLaserConfig : public TLaserCommConfig {
 public:
  TNLightLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
};

class TCASLaserConfig : public TLaserCommConfig {
 public:
  TCASLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
};

// ---- hard-wired and network families -----------------------------------------------------------------------------

#define DEVLASER_ROFIN_KEYS(K)       \
  K(int32_t, FaultReset, 0)          \
  K(int32_t, GatePort, 0)            \
  K(int32_t, LaserOn, 0)             \
  K(int32_t, MainsOn, 0)             \
  K(int32_t, StandbyOn, 0)           \
  K(int32_t, StandbyReady, 0)        \
  K(int32_t, SystemReady, 0)         \
  K(int32_t, DelayAfterMainsOn, 0)   \
  K(int32_t, DelayAfterReset, 0)     \
  K(int32_t, DelayAfterResetOff, 0)  \
  K(int32_t, DelayAfterStandby, 0)   \
  K(int32_t, Warning, 0) /* input */ \
  K(int32_t, Error, 0)   /* input */

class TRofinLaserConfig : public TLaserConfigNode {
 public:
  TRofinLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_ROFIN_KEYS)
};

#define DEVLASER_CO2_KEYS(K)   \
  K(int32_t, DynamicDA, 0)     \
  K(int32_t, LaserMode, 0)     \
  K(int32_t, ModeSelect0, 0)   \
  K(int32_t, ModeSelect1, 0)   \
  K(int32_t, ShutterPort, 0)   \
  K(int32_t, ShutterStatus, 0) \
  K(int32_t, ShutterDelay, 0)

class TCO2LaserConfig : public TLaserConfigNode {
 public:
  TCO2LaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_CO2_KEYS)
};

// Frequency and duty ratio are set through two DA outputs.
#define DEVLASER_MEIMAN_KEYS(K) \
  K(int32_t, FreqDAPort, 0)     \
  K(int32_t, RatioDAPort, 0)

class TMeimanLaserConfig : public TLaserConfigNode {
 public:
  TMeimanLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_MEIMAN_KEYS)
};

// How the own-brand laser is reached: CommType 0 none, 1 serial, 2 UDP, 3 TCP.
#define DEVLASER_ZORUN_KEYS(K)            \
  K(int32_t, LaserIdx, 0)                 \
  K(int32_t, CommType, 0)                 \
  K(int32_t, CommPort, 1)                 \
  K(int32_t, NetPort, 10001)              \
  K(std::string, NetAddress, "127.0.0.1") \
  K(std::string, Desc, "无激光器文件") /* no laser file */

class TZorunLaserConfig : public TLaserConfigNode {
 public:
  TZorunLaserConfig(nchost::TXmlSubConfig* parent, std::string nodeName);
  void Initialize() override;
  DEVLASER_CONFIG_ACCESSORS(DEVLASER_ZORUN_KEYS)
};

}  // namespace devlaser
