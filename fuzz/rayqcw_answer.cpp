// Raycus QCW answer frames: bytes the laser sent, searched for the latest answer and its data decoded as the driver
// does, then the same bytes played to the driver itself over its serial line, in pieces, as the answers to its
// requests. What the driver caches from them must stay within what the protocol allows.
//
// Input: a flag byte (bit 0: debug mode), then exchanges, each
//   a command byte (low 3 bits: which request the driver sends; the rest: the size of the pieces the bytes arrive
//   in, 0 for all at once), a 2-byte length (little-endian) and that many received bytes, then the pulse settings
//   the driver is asked to store (power, frequency (2), duty, width (2)).
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "FuzzInput.h"
#include "FuzzSerialLine.h"
#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserParams.h"
#include "raycus/RayQcwDriver.h"
#include "raycus/RayQcwProtocol.h"
#include "refhost/MessageSink.h"
#include "refhost/RefApp.h"

namespace rayqcw = devlaser::rayqcw;

namespace {

void Check(bool holds) {
  if (!holds) __builtin_trap();
}

// What every model takes.
void CheckLimited(const rayqcw::TPulseSettings& s) {
  Check(s.Power >= 1 && s.Power <= 100 && s.Width >= 1 && s.Width <= 6 && s.Freq <= 5000);
  Check(s.Ratio * s.Power <= 1000);
}

void CheckLimited(const rayqcw::TPulseSettings& s, rayqcw::TQcwModel model) {
  CheckLimited(s);
  if (model == rayqcw::TQcwModel::QCW450) Check(s.Ratio >= 10 && s.Ratio <= 30 && s.Freq >= 500);
  if (model == rayqcw::TQcwModel::QCW150) Check(s.Ratio >= 1 && s.Ratio <= 50);
  if (model == rayqcw::TQcwModel::Other) Check(s.Ratio == 20 && s.Freq == 2000);
}

void CheckStatusData(const rayqcw::TBytes& data) {
  auto status = rayqcw::ParseStatusData(data);
  if (!status) return Check(data.size() < rayqcw::kStatusBlockSize);
  Check(status->Block.size() == rayqcw::kStatusBlockSize);
  const size_t wanted = status->Block[rayqcw::kModuleCountOffset] * rayqcw::kAlarmBytesPerModule;
  Check(status->Alarms.size() == std::min(wanted, data.size() - rayqcw::kStatusBlockSize));
  Check(rayqcw::AlarmSummary(status->Alarms) < (1u << rayqcw::kAlarmBytesPerModule));
  for (size_t offset : {rayqcw::kLaserIdOffset, rayqcw::kLaserTypeOffset}) {
    const std::string text = rayqcw::LaserText(status->Block, offset);
    Check(text.size() <= rayqcw::kLaserTextSize && text.find('\0') == std::string::npos);
  }
}

// The latest answer must be the frame that ends the received bytes, with its command and data in place.
void CheckLastAnswer(const rayqcw::TBytes& received) {
  auto answer = rayqcw::LastAnswer(received);
  if (!answer) return;
  const size_t frameSize = answer->Data.size() + rayqcw::kFrameOverhead;
  Check(frameSize <= received.size());
  const size_t start = received.size() - frameSize;
  Check(received[start] == 0xAA && received[start + 1] == 0x55 && received[start + 6] == answer->Cmd);
  Check(std::equal(answer->Data.begin(), answer->Data.end(), received.begin() + start + rayqcw::kDataOffset));
  Check(received[received.size() - 2] == 0x55 && received.back() == 0xAA);
  if (answer->ModeByte) Check(answer->Cmd == rayqcw::kCheckBySuperMode && start > 0);
  rayqcw::AnswerSucceeded(*answer);
  CheckStatusData(answer->Data);
}

void CheckDriver(const devlaser::TRayQCWDriver& driver) {
  const auto block = driver.GetStatusBlock();
  Check(block.empty() || block.size() == rayqcw::kStatusBlockSize);
  Check(driver.GetAlarmBytes().size() <= 255 * rayqcw::kAlarmBytesPerModule);
  Check(driver.GetDeviceStatus() < (1u << rayqcw::kAlarmBytesPerModule));
  Check(driver.GetCurMode() <= 2);
  for (const std::string& text : {driver.GetLaserID(), driver.GetLaserType()})
    Check(text.size() <= rayqcw::kLaserTextSize && text.find('\0') == std::string::npos);
}

void SendRequest(devlaser::TRayQCWDriver& driver, uint8_t which) {
  switch (which) {
    case 0:
      return driver.CheckStatus();
    case 1:
      return driver.CheckBySuperMode();
    case 2:
      return driver.ReadErrorRecord();
    case 3:
      return driver.LaserOn();
    case 4:
      return driver.LaserOff();
    case 5:
      return driver.ResetLaserMode();
    case 6:
      return driver.SetLaserData();  // waits for no answer: what was sent stays for the next request
    default:
      return driver.EnableModulationCtrl();
  }
}

class TFuzzLineFactory final : public refhost::ITransportFactory {
 public:
  std::shared_ptr<fuzz::TFuzzSerialLine> Line = std::make_shared<fuzz::TFuzzSerialLine>();
  std::unique_ptr<nchost::TCommCtrl> CreateCommCtrl() override { return std::make_unique<fuzz::TFuzzSerialPort>(Line); }
  std::unique_ptr<nchost::TVqTcpClient> CreateTcpClient() override { return nullptr; }
  std::unique_ptr<nchost::TUDPClient> CreateUdpClient() override { return nullptr; }
  std::unique_ptr<nchost::TIcmpClient> CreateIcmpClient() override { return nullptr; }
};

// The host's messages go nowhere: the checks read the driver, not the log.
class TNullSink final : public refhost::TMessageSink {
 public:
  void Write(const refhost::TMessageEntry&) override {}
};

struct THost {
  std::shared_ptr<TFuzzLineFactory> Transports = std::make_shared<TFuzzLineFactory>();
  refhost::TRefApp App{std::make_shared<TNullSink>()};
  THost() {
    App.SetTransports(Transports);
    devlaser::SetHost(&App);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static THost host;
  fuzz::TFuzzSerialLine& line = *host.Transports->Line;
  line.Reset();
  fuzz::TFuzzInput in(data, size);
  devlaser::SetLaserDebugMode(in.Byte() & 1);

  devlaser::TLaserParams params;
  params.DefParams.Comm.CommPort = 1;
  params.DefParams.Comm.CommSettings = "57600,n,8,1";
  std::atomic<size_t> traced = 0;  // the polling thread traces too
  devlaser::TRayQCWDriver driver(params);
  driver.SetBufEvent([&traced](const std::string& text) { traced += text.size(); });
  while (!in.Empty()) {
    const uint8_t cmd = in.Byte();
    const std::string_view bytes = in.Text(in.Value<uint16_t>());
    const rayqcw::TBytes received(bytes.begin(), bytes.end());
    CheckLastAnswer(received);
    rayqcw::ParseFrame(received);

    const size_t piece = cmd >> 3;
    for (size_t at = 0; at < bytes.size(); at += piece ? piece : bytes.size())
      line.QueueRead(bytes.substr(at, piece ? piece : bytes.size()));
    SendRequest(driver, cmd & 7);
    CheckDriver(driver);

    const rayqcw::TPulseSettings asked{in.Byte(), in.Value<uint16_t>(), in.Byte(), in.Value<uint16_t>()};
    driver.SetLaserParam(asked.Power, asked.Freq, asked.Ratio, asked.Width);
    // The model comes from the laser's answers, which the polling thread may renew meanwhile.
    CheckLimited(driver.GetLaserParam());
    for (auto model : {rayqcw::TQcwModel::QCW150, rayqcw::TQcwModel::QCW450, rayqcw::TQcwModel::Other})
      CheckLimited(rayqcw::LimitPulseSettings(model, asked), model);
  }
  driver.Stop();
  devlaser::SetLaserDebugMode(false);
  return 0;
}
