// The Raycus serial command set: short commands that begin with ESC and end with CR, without length byte or
// checksum, and the one answer that means something to the controller, "TS" (the connection stands).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "serial/SerialCmdThread.h"

namespace devlaser::raycus {

inline constexpr uint8_t kEsc = 0x1B;
inline constexpr uint8_t kCr = 0x0D;

inline constexpr std::array<uint8_t, 3> kEmissionOnCmd{kEsc, 'O', kCr};
inline constexpr std::array<uint8_t, 3> kEmissionOffCmd{kEsc, 'S', kCr};

// ESC 'C' 'P' p CR: the diode current in whole percent.
std::array<uint8_t, 5> DiodeCurrentCmd(uint8_t percent);
// ESC 'F' fH fL 'D' r 'P' w CR: the QCW pulse frequency in Hz (its low 16 bits, high byte first), the duty ratio
// and the pulse power in percent (their low bytes). Values are cut, not checked: the laser judges them.
std::array<uint8_t, 9> QcwPulseCmd(int32_t frequencyHz, int32_t ratioPercent, int32_t powerPercent);

// Whether the receive buffer starts with the laser's "TS" answer.
bool IsConnectedAnswer(const TReceiveBuffer& buffer);
// Whether a chunk is text the laser sent: not empty and not starting with ESC (a binary answer).
bool IsTextChunk(const TReceiveBuffer& buffer, size_t count);

// The Raycus part of the shared serial thread: the diode current is the repeated setting; text answers are logged
// unless the configuration ignores the laser's answers, everything else is hex-dumped in debug mode.
class TRaycusCmdSet final : public TSerialCmdSet {
 public:
  static constexpr const char* kTextFaultPrefix = "TRaycusLaser Thread Exception:";

  explicit TRaycusCmdSet(bool ignoreCommResult) : FIgnoreCommResult(ignoreCommResult) {}
  TCommCmd RepeatedCmd(uint8_t value) const override;
  void OnReceived(const TReceiveBuffer& buffer, size_t count, TSerialRun& run) override;

 private:
  const bool FIgnoreCommResult;
};

}  // namespace devlaser::raycus
