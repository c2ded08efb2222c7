// The 32-bit status word of an IPG YLR laser as the simulator reports it to "STA", with the bit meanings of the
// laser's RS-232 manual.
//
// Laser-state bits (all inside the drivers' laser-state mask 0x08759D14) follow the commands the laser received:
//   bit  2  emission on                         "EMON" / "EMOFF"
//   bit  4  analogue (external) power control   "EEC" / "DEC"
//   bit  8  aiming beam on                      "ABN" / "ABF"
//   bit 10  pulse mode                          "EPM" / "DPM"
//   bit 11  power supply off                    set by the test or the program, never by a command
//   bit 12  modulation enabled                  "EMOD" / "DMOD"
//   bit 15  emission start-up phase             from "EMON" until the start-up time has passed (about 3 s on a
//                                               real laser; 0 by default here, so the bit never shows)
//   bit 16  gate mode (newer generation)        "EGM" / "DGM"
//   bit 18  hardware emission control           "ELE" / "DLE"
//   bit 21  key switch in remote                set by the program's key-switch option, never by a command
//   bit 22  aiming beam under hardware control  "EEABC" / "DEABC"
// Bits 20 and 27 stay clear. All other bits are alarm and warning bits; they come from the alarm word.
#pragma once

#include <cstdint>

namespace lasersim::ipgylr {

inline constexpr uint32_t Bit(int n) { return uint32_t{1} << n; }

inline constexpr uint32_t kEmission = Bit(2);
inline constexpr uint32_t kExternalControl = Bit(4);
inline constexpr uint32_t kAimingBeam = Bit(8);
inline constexpr uint32_t kPulseMode = Bit(10);
inline constexpr uint32_t kPowerSupplyOff = Bit(11);
inline constexpr uint32_t kModulation = Bit(12);
inline constexpr uint32_t kEmissionStartup = Bit(15);
inline constexpr uint32_t kGateMode = Bit(16);
inline constexpr uint32_t kEmissionControl = Bit(18);
inline constexpr uint32_t kKeySwitchRemote = Bit(21);
inline constexpr uint32_t kExternalAimControl = Bit(22);
inline constexpr uint32_t kLaserStateMask = 0x08759D14;
static_assert(((kEmission | kExternalControl | kAimingBeam | kPulseMode | kPowerSupplyOff | kModulation |
                kEmissionStartup | kGateMode | kEmissionControl | kKeySwitchRemote | kExternalAimControl) &
               ~kLaserStateMask) == 0);

inline constexpr uint32_t kCommandBufferOverload = Bit(0);
inline constexpr uint32_t kOverheat = Bit(1);
inline constexpr uint32_t kHighBackReflection = Bit(3);
inline constexpr uint32_t kPulseTooLong = Bit(5);
inline constexpr uint32_t kModuleDisconnected = Bit(6);
inline constexpr uint32_t kPulseTooShort = Bit(9);
inline constexpr uint32_t kHighPulseEnergy = Bit(17);
inline constexpr uint32_t kPowerSupplyFailure = Bit(19);
inline constexpr uint32_t kHighDutyCycle = Bit(23);
inline constexpr uint32_t kLowTemperature = Bit(24);
inline constexpr uint32_t kMainsOutOfRange = Bit(25);
inline constexpr uint32_t kCriticalError = Bit(29);
inline constexpr uint32_t kOpticalInterlockOpen = Bit(30);
inline constexpr uint32_t kAveragePowerTooHigh = Bit(31);

// Faults after which a real laser will not emit: overheat, back reflection, power supply failure, low temperature,
// mains out of range, critical error, interlock open. Warnings (buffer overload, pulse shape, duty cycle, average
// power) do not stop emission.
inline constexpr uint32_t kEmissionBlockingAlarms = kOverheat | kHighBackReflection | kPowerSupplyFailure |
                                                    kLowTemperature | kMainsOutOfRange | kCriticalError |
                                                    kOpticalInterlockOpen;
static_assert(kEmissionBlockingAlarms == 0x6308000A);

}  // namespace lasersim::ipgylr
