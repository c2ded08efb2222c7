// The Raycus serial laser's reading phase: the shared serial thread reads whatever the fuzz input says the laser
// sent, in the pieces it says, and hands each chunk to the Raycus command set, which logs text answers, reports
// line noise once and shows the connection when the receive buffer starts with "TS".
//
// Input: a flag byte (bit 0: the configuration ignores the laser's answers, bit 1: debug mode), then pieces, each a
// length byte and that many bytes; a length of 0 is a read that finds nothing, which ends a reading phase.
// What the thread logs and shows is checked against an independent reading of the same pieces.
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "FuzzInput.h"
#include "FuzzSerialLine.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"
#include "raycus/RaycusEsc.h"
#include "raycus/RaycusLaser.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "serial/SerialCmdThread.h"

namespace {

// Well-formed UTF-8 by the table of valid byte sequences (first byte, then the range the second byte must be in),
// written apart from the library's decoder so that the two check each other.
bool WellFormedUtf8(std::string_view s) {
  size_t i = 0;
  auto cont = [&](size_t k, uint8_t low = 0x80, uint8_t high = 0xBF) {
    return i + k < s.size() && static_cast<uint8_t>(s[i + k]) >= low && static_cast<uint8_t>(s[i + k]) <= high;
  };
  while (i < s.size()) {
    const auto b = static_cast<uint8_t>(s[i]);
    size_t len = 0;
    if (b <= 0x7F)
      len = 1;
    else if (b >= 0xC2 && b <= 0xDF)
      len = cont(1) ? 2 : 0;
    else if (b == 0xE0)
      len = cont(1, 0xA0) && cont(2) ? 3 : 0;
    else if ((b >= 0xE1 && b <= 0xEC) || b == 0xEE || b == 0xEF)
      len = cont(1) && cont(2) ? 3 : 0;
    else if (b == 0xED)
      len = cont(1, 0x80, 0x9F) && cont(2) ? 3 : 0;
    else if (b == 0xF0)
      len = cont(1, 0x90) && cont(2) && cont(3) ? 4 : 0;
    else if (b >= 0xF1 && b <= 0xF3)
      len = cont(1) && cont(2) && cont(3) ? 4 : 0;
    else if (b == 0xF4)
      len = cont(1, 0x80, 0x8F) && cont(2) && cont(3) ? 4 : 0;
    if (len == 0) return false;
    i += len;
  }
  return true;
}

std::string Hex(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (char c : bytes) {
    const auto b = static_cast<uint8_t>(c);
    text += {kDigits[b >> 4], kDigits[b & 15], ' '};
  }
  return text;
}

struct THost {
  std::shared_ptr<refhost::TRecordingSink> Sink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp App{Sink};
  THost() { devlaser::SetHost(&App); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static THost host;
  host.Sink->Clear();
  fuzz::TFuzzInput in(data, size);
  const uint8_t flags = in.Byte();
  const bool ignoreAnswers = flags & 1;
  devlaser::SetLaserDebugMode(flags & 2);

  auto line = std::make_shared<fuzz::TFuzzSerialLine>();
  std::vector<std::string> logged;  // what the thread must log, in order
  size_t faults = 0;
  bool connected = false;
  std::array<char, std::tuple_size_v<devlaser::TReceiveBuffer>> buffer{};  // bytes stay from read to read
  while (!in.Empty()) {
    const std::string_view piece = in.Text(in.Byte());
    line->QueueRead(piece);
    if (piece.empty()) continue;
    std::copy(piece.begin(), piece.end(), buffer.begin());
    connected = connected || (buffer[0] == 'T' && buffer[1] == 'S');
    const bool text = !ignoreAnswers && piece[0] != '\x1B';
    if (text && WellFormedUtf8(piece)) {
      logged.emplace_back(piece);
      continue;
    }
    if (text) ++faults;
    if (flags & 2) logged.push_back("Rev Data: " + Hex(piece));
  }

  devlaser::TSerialThreadOptions options;
  options.Name = "FuzzRaycus";
  options.FaultPrefix = devlaser::TRaycusLaser::kFaultPrefix;
  options.Pacing = {.AfterChunkMs = 0, .AfterWriteMs = 0, .IdleMs = 0, .QuietMaxMs = 0, .ClosedMs = 0, .FaultMs = 0};
  devlaser::TSerialCmdThread thread(std::move(options),
                                    std::make_unique<devlaser::raycus::TRaycusCmdSet>(ignoreAnswers),
                                    std::make_unique<fuzz::TFuzzSerialPort>(line));
  if (!line->WaitDrained()) __builtin_trap();  // the thread stopped reading
  thread.Stop();
  devlaser::SetLaserDebugMode(false);

  using refhost::TEntryKind;
  if (host.Sink->Texts(TEntryKind::Log) != logged) __builtin_trap();
  // Operator messages only: the laser's own text may say anything.
  const std::vector<std::string> shown = host.Sink->Texts(TEntryKind::Message);
  const std::string connectedText = devlaser::SLaserConnectedOk.Text();
  if (std::count(shown.begin(), shown.end(), connectedText) != (connected ? 1 : 0)) __builtin_trap();
  // Line noise reaches the operator once in the thread's life, however often it comes.
  const std::string_view faultPrefix = devlaser::raycus::TRaycusCmdSet::kTextFaultPrefix;
  if (std::count_if(shown.begin(), shown.end(), [&](const std::string& s) { return s.starts_with(faultPrefix); }) !=
      (faults > 0 ? 1 : 0))
    __builtin_trap();
  return 0;
}
