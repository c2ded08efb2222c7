#include "raycus/RaycusEsc.h"

#include <exception>
#include <string>

#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "serial/SerialText.h"

namespace devlaser::raycus {

std::array<uint8_t, 5> DiodeCurrentCmd(uint8_t percent) { return {kEsc, 'C', 'P', percent, kCr}; }

std::array<uint8_t, 9> QcwPulseCmd(int32_t frequencyHz, int32_t ratioPercent, int32_t powerPercent) {
  const auto frequency = static_cast<uint16_t>(static_cast<uint32_t>(frequencyHz) & 0xFFFFu);
  return {kEsc,
          'F',
          static_cast<uint8_t>(frequency >> 8),
          static_cast<uint8_t>(frequency & 0xFFu),
          'D',
          static_cast<uint8_t>(static_cast<uint32_t>(ratioPercent) & 0xFFu),
          'P',
          static_cast<uint8_t>(static_cast<uint32_t>(powerPercent) & 0xFFu),
          kCr};
}

bool IsConnectedAnswer(const TReceiveBuffer& buffer) { return buffer[0] == 'T' && buffer[1] == 'S'; }

bool IsTextChunk(const TReceiveBuffer& buffer, size_t count) { return count > 0 && buffer[0] != kEsc; }

TCommCmd TRaycusCmdSet::RepeatedCmd(uint8_t value) const {
  TCommCmd cmd;
  cmd.Assign(DiodeCurrentCmd(value));
  return cmd;
}

void TRaycusCmdSet::OnReceived(const TReceiveBuffer& buffer, size_t count, TSerialRun& run) {
  const std::span<const uint8_t> chunk(buffer.data(), count);
  std::string text;
  if (!FIgnoreCommResult && IsTextChunk(buffer, count)) {
    try {
      text = DecodeText(chunk);
    } catch (const std::exception& e) {
      text.clear();
      run.ReportFault(kTextFaultPrefix, e.what());
    }
  }
  if (!text.empty())
    LogMsg(text, nchost::msgtype::kInformation);
  else if (GLaserDebugMode())
    LogMsg("Rev Data: " + HexDump(chunk), nchost::msgtype::kInformation);
  // A one-byte chunk is judged together with the byte an earlier read left behind it.
  if (IsConnectedAnswer(buffer)) run.ShowConnectedOnce();
}

}  // namespace devlaser::raycus
