// The 32-bit status word of an IPG YLR laser as the simulator reports it to "STA".
//
// The laser-state bits (mask 0x08759D14) follow the commands the laser received; the simulator gives them these
// meanings:
//   bit  2  emission on                      "EMON" / "EMOFF"
//   bit  4  modulation enabled               "EMOD" / "DMOD"
//   bit  8  aiming beam on                   "ABN" / "ABF"
//   bit 10  pulse mode                       "EPM" / "DPM"
//   bit 11  power supply off                 set by the test or the program, never by a command
//   bit 12  gate mode                        "EGM" / "DGM"
//   bit 15  external (analogue) control      "EEC" / "DEC"
//   bit 16  external aiming beam control     "EEABC" / "DEABC"
//   bit 18  hardware emission control        "ELE" / "DLE"
//   bit 20  digital power select             set by "SDS", cleared by "EEC" (the analogue input takes over)
// Bits 21, 22 and 27 stay clear. All other bits are alarm and warning bits; they come from the alarm word.
#pragma once

#include <cstdint>

namespace lasersim::ipgylr {

inline constexpr uint32_t Bit(int n) { return uint32_t{1} << n; }

inline constexpr uint32_t kEmission = Bit(2);
inline constexpr uint32_t kModulation = Bit(4);
inline constexpr uint32_t kAimingBeam = Bit(8);
inline constexpr uint32_t kPulseMode = Bit(10);
inline constexpr uint32_t kPowerSupplyOff = Bit(11);
inline constexpr uint32_t kGateMode = Bit(12);
inline constexpr uint32_t kExternalControl = Bit(15);
inline constexpr uint32_t kExternalAimControl = Bit(16);
inline constexpr uint32_t kEmissionControl = Bit(18);
inline constexpr uint32_t kDigitalPowerSelect = Bit(20);
inline constexpr uint32_t kLaserStateMask = 0x08759D14;

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
