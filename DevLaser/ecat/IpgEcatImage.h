// The IPG laser's EtherCAT process image: which entries the controller and the laser exchange, what their bits
// mean, and the laser's alarms with the bits that report them. Plain data, no bus access.
#pragma once

#include <array>
#include <cstdint>

namespace devlaser::ipgecat {

// Entries of the process image.
inline constexpr uint32_t kControlWord = 0;  // input: written by the controller
inline constexpr uint32_t kPowerWatts = 1;   // input: power set-point in watts
inline constexpr uint32_t kStatusWord = 0;   // output: written by the laser
inline constexpr uint32_t kAlarmDword = 3;   // output: alarm bits 16..28

// Control word bits.
inline constexpr uint32_t kCtrlEnable = 0x01;    // power / enable
inline constexpr uint32_t kCtrlStart = 0x02;     // second step of the emission start
inline constexpr uint32_t kCtrlReset = 0x04;     // alarm reset, written alone
inline constexpr uint32_t kCtrlAiming = 0x08;    // aiming beam on
inline constexpr uint32_t kCtrlEmission = 0x10;  // emission on

// Status word bits.
inline constexpr uint32_t kStatStarted = 0x01 | 0x02;       // both set: the laser is started
inline constexpr uint32_t kStatAiming = 0x08;               // aiming beam on
inline constexpr uint32_t kStatEmission = 0x13;             // all set: emission on
inline constexpr uint32_t kStatProgramInterrupted = 0x40;   // alarm 6
inline constexpr uint32_t kStatAlarmsValid = 0x100 | 0x04;  // either set: the alarm bits mean something
inline constexpr uint32_t kStatLaserOn = 0x400;

// Where an alarm's bit is.
enum class TAlarmSource { StatusWord, AlarmDword };

struct TEcatAlarm {
  int32_t Id;
  TAlarmSource Source;
  uint32_t Bit;      // bit number in its source
  bool DebugOnly;    // reported only in the library's debug mode
  const char* Text;  // the operator's text
};

// In the order they are reported. Laser busy, spare module enabled, too few modules and low supply voltage are
// for the service engineer: they are reported only in the library's debug mode, and the host never sees them
// otherwise.
inline constexpr std::array<TEcatAlarm, 13> kAlarms{{
    {6, TAlarmSource::StatusWord, 6, false, "程序被中断"},             // program interrupted
    {16, TAlarmSource::AlarmDword, 16, false, "激光器错误"},           // laser error
    {17, TAlarmSource::AlarmDword, 17, false, "激光器警告"},           // laser warning
    {18, TAlarmSource::AlarmDword, 18, false, "水冷机错误"},           // chiller error
    {19, TAlarmSource::AlarmDword, 19, false, "水冷机警告"},           // chiller warning
    {20, TAlarmSource::AlarmDword, 20, false, "安全互锁打开"},         // safety interlock open
    {21, TAlarmSource::AlarmDword, 21, false, "通道错误"},             // channel error
    {23, TAlarmSource::AlarmDword, 23, false, "槽错误"},               // slot error
    {24, TAlarmSource::AlarmDword, 24, false, "机柜门打开"},           // cabinet door open
    {22, TAlarmSource::AlarmDword, 22, true, "激光器繁忙"},            // laser busy
    {25, TAlarmSource::AlarmDword, 25, true, "备用模块启用"},          // spare module enabled
    {26, TAlarmSource::AlarmDword, 26, true, "启动的激光器模块不足"},  // too few laser modules started
    {28, TAlarmSource::AlarmDword, 28, true, "电压供应不足"},          // supply voltage too low
}};

// The alarm's text, or null for an ID that is not one of the laser's.
inline const char* AlarmText(int32_t id) {
  for (const auto& alarm : kAlarms)
    if (alarm.Id == id) return alarm.Text;
  return nullptr;
}

}  // namespace devlaser::ipgecat
