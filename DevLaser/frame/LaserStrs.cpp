#include "frame/LaserStrs.h"

#include <array>
#include <mutex>
#include <shared_mutex>

#include "frame/HostServices.h"

namespace devlaser {
namespace {

struct TMessageDef {
  const char* Name;
  const char* Default;
};

constexpr TMessageDef kMessages[] = {
    {"SLaser", "激光器"},
    {"SLaserType1", "连续波"},
    {"SLaserType2", "门脉冲"},
    {"SLaserType3", "强脉冲"},
    {"SLaserAlarm", " 激光器报警"},
    {"SLaserDiodeSetErr", "峰值功率通讯设置超时"},
    {"SLaserConnectedOk", "激光器串口/网络已连接成功."},
    {"SLaserConnectedFail", "激光器串口/网络连接失败."},
    {"SSetDiodeParamsInValid", "峰值功率参数非法: %.2f"},
    {"SSetDiodeParamsFaild", "峰值功率参数设置失败(当前值/设置值):(%.2f / %.2f)"},
    {"SForceSetDiode", "设置峰值功率：当前值：%.2f, 设置值：%.2f"},
    {"SNoneEcatLaser", "总线激光器未成功连接"},
    {"SUnkownLaserType", "未知的激光器类型导致异常"},
    {"SWarning", "激光器警告"},
    {"SControledLaserOn", "执行精准出光指令, 出光时间=%dms"},
    {"SIPGCommCommunicationException", "IPG串口通讯异常"},
    {"SIPGCommBUfferOverload", "通讯阻塞"},
    {"SIPGOverheat", "过热"},
    {"SIPGHighBackReflectionLevel", "高反射异常"},
    {"SIPGPulseTooLong", "脉冲时间太长"},
    {"SIPGModuleDisconnected", "激光模块连接失败"},
    {"SIPGPulseTooShort", "Pulse Too Short"},
    {"SIPGPowerSupplyOff", "主电源关闭"},
    {"SIPGModulationDisabled", "调制模式关"},
    {"SIPGModulationEnable", "调制模式开"},
    {"SIPGGateModeEnabled", "Gate模式开"},
    {"SIPGHighPulseEnergy", "High Pulse Energy"},
    {"SIPGPowerSupplyFailure", "主电源故障"},
    {"SIPGHighDutyCycle", "High Duty Cycle"},
    {"SIPGLowTemperature", "温度低"},
    {"SIPGPowerSupplyFailure2", "主电源电压超范围"},
    {"SIPGCriticalError", "Critical Error模块已保护"},
    {"SIPGOpticalInterlockactive", "光路安全互锁开路"},
    {"SIPGAveragePowertooHigh", "平均功率太高"},
    {"SYLSPowerSupplyOn", "YLS电源启动与光闸使能"},
    {"SYLSLaserNotReady", "激光器未准备好"},
    {"SYLSLaserNotInExternCtrl", "激光器不处于外控模式"},
    {"SYLSLaserInRobotMode", "激光器处于ROBOT工作模式"},
    {"SSetAccessLevel", "设置访问级别"},
    {"SAccessLevelResponse", "访问级别回复"},
    {"SYLSAnalyzeResponseErr", "通讯数据转换异常"},
    {"SYLSCmdErr", "指令执行异常"},
    {"STemperature1Err", "温度1异常"},
    {"STemperature2Err", "温度2异常"},
    {"STemperature3Err", "温度3异常"},
    {"STemperature4Err", "温度4异常"},
    {"SLaserOnStatus1Err", "出光1状态异常"},
    {"SLaserOnStatus2Err", "出光2状态异常"},
    {"SPowerStatus1Err", "功率1状态异常"},
    {"SPowerStatus2Err", "功率1状态异常"},
    {"SPowerPanelStatusErr", "电源板状态异常"},
    {"SCurrentPanelStatusErr", "电流板状态异常"},
    {"SLaserOnBtnStatusErr", "出光按钮状态异常"},
    {"SInterLockStatusErr", "InterLock状态异常"},
    {"SPulseWidthStatusErr", "脉宽状态异常"},
    {"SReadParams", "读取参数"},
    {"SSystemInfo", "读取系统信息"},
    {"SInternalPWM", "设置内调功率频率和占空比"},
    {"SEmissionOpen", "光闸开启"},
    {"SEmissionClose", "光闸关闭"},
    {"SReadErrLog", "读取故障记录"},
    {"SClearException", "清除激光器异常"},
    {"SFrontPanelBtn", "前面板按钮状态"},
    {"SONREMState", "ON/REM状态"},
    {"SACDC1State", "ACDC1状态"},
    {"SACDC2State", "ACDC2状态"},
    {"SALARMState", "ALARM指示灯"},
    {"SCurrentDriverState", "电流驱动板状态"},
    {"SRelayOutputState", "继电器输出状态"},
    {"SBackPanelLaserBtn", "后面板LASER按钮"},
    {"SAD232Mode", "AD/232模式选择"},
    {"SLaserLock", "InterLock状态"},
    {"SModSignal", "MOD信号"},
    {"SReadyOutput", "Ready输出状态"},
    {"SLaerOnState", "出光状态"},
    {"SInterLockError", "InterLock检测异常"},
    {"SACDC1Error", "ACDC1检测异常"},
    {"SACDC2Error", "ACDC2检测异常"},
    {"SCurrentDriverError", "电流驱动板检测异常"},
    {"SLaserOnProtectMonitor1Error", "出光监控保护1异常"},
    {"SPowerMonitor1Error", "功率监控1异常"},
    {"SLaserOnProtectMonitor2Error", "出光监控保护2异常"},
    {"SPowerMonitor2Error", "功率监控2异常"},
    {"ST1Error", "T1温度异常"},
    {"ST2Error", "T2温度异常"},
    {"ST3Error", "T3温度异常"},
    {"ST4Error", "T4温度异常"},
    {"SMCUVoltageError", "单片机电压异常"},
    {"SLaserBtnPressedError", "上电时Laser按钮被按下"},
    {"SEnvirTempError", "环境温度异常"},
    {"SEnvirHumidityError", "环境湿度异常"},
    {"SWaterflowError", "水流量异常"},
    {"SSlaveDeviceError", "从设备异常"},
    {"SSalveDevCommError", "从设备通讯异常"},
    {"SGetLaserRunTimeState", "读取激光器运行参数"},
    {"SEmissionOn", "开光闸"},
    {"SEmissionOff", "关光闸"},
    {"SLaserErrorReset", "激光器异常复位"},
    {"SSetPowerFreqRatio", "设置功率频率占空比"},
    {"SFormatError", "格式错误"},
    {"SLengthError", "长度错误"},
    {"SGetErrorRecord", "读取异常记录"},
    {"SGetLaserInfo", "获取激光器信息"},
    {"SSysPowerSupply", "系统供电电压"},
    {"SMcuTemp", "单片机芯片温度"},
    {"SAnalogVoltValue", "0-10模拟量电压值"},
    {"SLaserPowerPerValue", "当前激光器的功率百分数"},
    {"SLaserOutPowerValue", "当前激光器输出功率"},
    {"SAnaloyTemp1", "模拟温度1"},
    {"SAnaloyTemp2", "模拟温度2"},
    {"SMachineTemp", "机内环境温度"},
    {"SMachineHumidity", "机内环境湿度"},
    {"SDewPoint", "当前露点"},
    {"SPowerOnTm", "激光器累计上电时间"},
    {"SLaserOnTm", "激光器累计出光时间"},
    {"SMonitorBoardTempHigh", "监控板%d温度%d温度高异常"},
    {"SMonitorBoardLowTemp", "监控板%d温度%d温度低异常"},
    {"SACDC1Err", "模块1异常"},
    {"SACDC2Err", "模块2异常"},
    {"SMachineTempErr", "机内温湿度异常"},
    {"SRayNotREM", "激光器面板钥匙未处于REM状态!!!"},
    {"SRayLowFlow", "冷却装置水流量低故障"},
    {"SPowerSupplyNumError", "%d号电源异常"},
    {"SPowerNumError", "%d号功率异常"},
    {"SLaserOutNumError", "%d号出光异常"},
    {"SBoardTempError", "监控板%d温度%d异常"},
    {"SRFLCommBuffSpill", "命令缓冲区溢出"},
    {"SRFLOverTemperature", "温度过高"},
    {"SRFLHighBackReflectionLevel", "高反射异常"},
    {"SRFLPulseWidthTooLong", "脉冲宽度过长"},
    {"SRFLPulseWidthTooShort", "脉冲宽度过短"},
    {"SRFLOverPulseEnergy", "脉冲能量过高"},
    {"SRFLModulePowerFault", "模块主电源故障"},
    {"SRFLDutyCycleTooLong", "占空比过高"},
    {"SRFLLowTemperature", "低温故障"},
    {"SRFLPowerFault", "电源故障"},
    {"SRFLAimingError", "红光报警"},
    {"SRFLFatalError", "严重错误"},
    {"SRFLOpticalInterLockActive", "光学回路安全互锁开路"},
    {"SRFLAveragePowertooHigh", "平均功率过高"},
    {"SDebugLogStart", "调试模式日志记录开始"},
    {"SErrCtrlModelDebug", "控制模式未设置成调制模式"},
    {"SErrCtrlModelInner", "控制模式未设置成内控模式"},
    {"SErrCtrlModelGate", "控制模式未设置成Gate模式"},
    {"SExtAimingCtrl", "激光器红光通过外部控制"},
    {"SV101CurrentErr", "驱动电流过流"},
    {"SV101PanelDisConnectErr", "前面板未连接"},
    {"SV101InterLockErr", "连锁锁死"},
    {"SV101Err", "故障"},
    {"SV101Warning", "报警"},
    {"SV101ServerTimeOut", "服务过期"},
    {"SV102BreakLineErr", "断线报警"},
    {"SV102CondensationErr", "凝露报警"},
    {"SV102InterLockErr", "连锁锁死"},
    {"SV102Err", "故障"},
    {"SV102Warning", "报警"},
    {"SV102ServerTimeOut", "服务过期"},
    {"SInternalControlState", "内控状态"},
    {"SLaserLightOutState", "激光器出光状态"},
    {"SLaserMainPowerStartState", "主电源启动状态"},
    {"SFrontPanelStartState", "Start开关状态"},
    {"SLaserHasAlarmState", "报警状态"},
    {"SContinuousFLightLockedState", "连续前向光锁机状态"},
    {"SExtLineENConnectedAlarm", "外控线EN连接报警"},
    {"SExtLineModulateConnectedAlarm", "外控线调制连接报警"},
    {"SExtLineVoltageConnectedAlarm", "外控线0~10V连接报警"},
    {"SExtLineControlConnectedAlarm", "外控线Control连接报警"},
    {"SAimingOnState", "红光状态"},
    {"SEmissionOnState", "使能状态"},
    {"SOverVoltageAlarm", "过压告警"},
    {"SUnderVoltageAlarm", "欠压告警"},
    {"SWaterFlowAlarm", "水流量告警"},
    {"SScramAlarm", "急停告警"},
    {"SQBHInstallAlarm", "QBH安装告警"},
    {"SQBHTemperatureAlarm", "QBH温度告警"},
    {"SEWCBTemperaAlarm", "电水冷板温度告警"},
    {"SOWCBTemperaAlarm", "光水冷板温度告警"},
    {"SPumpSourCurrentAlarm", "泵源电流告警"},
    {"SPumpSourTemperaAlarm", "泵源温度告警"},
    {"SForwardLightAlarm", "前向光告警"},
    {"SBackLightAlarm", "回光告警"},
    {"SOpticalModuleTempAlarm", "光模块温度告警"},
    {"SOpticalModuleHumidityAlarm", "光模块湿度告警"},
    {"SAimingCurrentAlarm", "红光电流告警"},
    {"SMaxGetLaserParams", "读取激光器状态参数"},
    {"SMaxEmissionOn", "使能开光闸"},
    {"SMaxEmissionOff", "使能关光闸"},
    {"SMaxIntControlMode", "切换内控模式"},
    {"SMaxExtControlMode", "切换外控模式"},
    {"SMaxStartButtonOn", "Start按钮开"},
    {"SMaxStartButtonOff", "Start按钮关"},
    {"SMaxAimingOn", "开红光"},
    {"SMaxAimingOff", "关红光"},
    {"SMaxSetLaserParams", "设置功率频率占空比"},
    {"SDataTransTypeNone", "未配置激光器通讯方式"},
    {"SParamInvaild", "激光器设置参数超过设备限制"},
};
static_assert(std::size(kMessages) == kMessageCount);

// The current texts, replaced as a whole by a reload while readers take copies.
struct TMessageTexts {
  std::shared_mutex Mutex;
  std::array<std::string, kMessageCount> Texts;
  TMessageTexts() {
    for (int i = 0; i < kMessageCount; ++i) Texts[static_cast<size_t>(i)] = kMessages[i].Default;
  }
};

TMessageTexts& Texts() {
  static TMessageTexts texts;
  return texts;
}

constexpr const char* kLocaleSection = "Device_Strs";

}  // namespace

std::string TMessage::Text() const {
  auto& t = Texts();
  std::shared_lock lock(t.Mutex);
  return t.Texts[static_cast<size_t>(Id)];
}

const char* TMessage::Name() const { return kMessages[static_cast<int>(Id)].Name; }

const char* MessageDefault(EMsg id) { return kMessages[static_cast<int>(id)].Default; }

void ReloadMessages(const nchost::TVqLocaleResource& locale) {
  if (!locale.IsLoaded()) return;
  auto& t = Texts();
  std::array<std::string, kMessageCount> next;
  {
    std::shared_lock lock(t.Mutex);
    next = t.Texts;
  }
  for (int i = 0; i < kMessageCount; ++i)
    locale.ReadStr(kLocaleSection, kMessages[i].Name, next[static_cast<size_t>(i)]);
  std::unique_lock lock(t.Mutex);
  t.Texts = std::move(next);
}

void ResetMessages() {
  auto& t = Texts();
  std::unique_lock lock(t.Mutex);
  for (int i = 0; i < kMessageCount; ++i) t.Texts[static_cast<size_t>(i)] = kMessages[i].Default;
}

void MessagesLocaleProc() {
  auto* app = Host();
  if (app == nullptr) return;
  if (const auto* locale = app->Locale()) ReloadMessages(*locale);
}

}  // namespace devlaser
