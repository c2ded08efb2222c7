// The own-brand laser against its simulator over UDP, TCP and a pseudo-terminal, both driven by the shipped
// description file: the frames the laser receives byte for byte, an alarm raised at the laser reaching the host
// and being acknowledged, a destroyed laser's last switch-off, and a lost TCP laser reconnected.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "core/LaserLifetime.h"
#include "frame/LaserStrs.h"
#include "refhost/transport/PosixTransports.h"
#include "refhost/transport/SerialPortMap.h"
#include "sim/zorun/ZorunSimEngine.h"
#include "sim/zorun/ZorunSimServer.h"
#include "support/LaserHostFixture.h"
#include "support/ScratchDir.h"
#include "zorun/ZorunLaser.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;

// Frames of examples/ZorunLaser.json worked out from its templates: function code per command, CRC-16/MODBUS of
// the first five (diode set: six) bytes, low byte first.
constexpr const char* kInit = "5A A5 01 10 00 02 C1";
constexpr const char* kEmissionOn = "5A A5 01 11 01 C2 91";
constexpr const char* kEmissionOff = "5A A5 01 11 00 03 51";
constexpr const char* kDiode30 = "5A A5 01 12 00 1E 61 09";
constexpr const char* kDiode40 = "5A A5 01 12 00 28 E1 1F";
constexpr const char* kStateQuery = "5A A5 01 15 00 01 91";
constexpr const char* kAlarmAck = "5A A5 01 14 00 00 01";
constexpr const char* kAimingOn = "5A A5 01 16 01 C0 A1";
constexpr const char* kAimingOff = "5A A5 01 16 00 01 61";
constexpr int32_t kSerialPort = 7;

enum class TLink { Udp, Tcp, Pty };
constexpr const char* kLinkNames[] = {"Udp", "Tcp", "Pty"};

struct TRecordingReport : nchost::INcAlarmReport20 {
  std::map<int32_t, bool> Raised;
  void ReportAlarm(int32_t id, bool raised) override { Raised[id] = raised; }
};

class ZorunLaserLinkTest : public testing::TLaserHostFixture, public ::testing::WithParamInterface<TLink> {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FApp.SetTransports(std::make_shared<refhost::TPosixTransports>(refhost::TTransportLog{}, FSerialPorts,
                                                                   refhost::TReachabilityProbe::TcpConnect));
    const std::string example = std::string(DEVLASER_SOURCE_DIR) + "/examples/ZorunLaser.json";
    std::filesystem::copy_file(example, FHostDir / "ZorunLaser.json");
    FApp.SetExeDir(FHostDir.Path());
    std::string error;
    ASSERT_TRUE(FEngine.Load(FHostDir / "ZorunLaser.json", 0, error)) << error;

    FParams.Model = "Zorun";
    FParams.LaserMainType = eltZorun;
    FParams.DefParams.PWM.DiodeCurrent = 30;
    lasersim::TZorunSimLinks links;
    auto& def = FParams.DefParams;
    switch (GetParam()) {
      case TLink::Udp:
        links.UdpAddress = "127.0.0.61";
        def.DataTransType = dttNetUDP;
        break;
      case TLink::Tcp:
        links.TcpAddress = "127.0.0.62";
        def.DataTransType = dttNetTcp;
        break;
      case TLink::Pty:
        links.Pty = true;
        def.DataTransType = dttSerial;
        break;
    }
    ASSERT_TRUE(FServer.Start(links)) << FServer.LastError();
    def.Net.TcpHost = links.UdpAddress ? *links.UdpAddress : links.TcpAddress.value_or("");
    def.Net.TcpPort = links.UdpAddress ? FServer.UdpPort() : FServer.TcpPort();
    def.Comm.CommPort = kSerialPort;
    if (links.Pty) FSerialPorts->Set(kSerialPort, FServer.SlavePath());
  }
  void TearDown() override {
    FLaser.reset();
    FServer.Stop();
    TLaserHostFixture::TearDown();
  }

  bool Received(const char* frame, size_t times = 1) { return FEngine.Log().WaitFor(frame, 5s, times); }

  std::shared_ptr<refhost::TSerialPortMap> FSerialPorts = std::make_shared<refhost::TSerialPortMap>();
  testsupport::TScratchDir FHostDir;
  lasersim::TZorunSimEngine FEngine;
  lasersim::TZorunSimServer FServer{FEngine};
  std::shared_ptr<TZorunLaser> FLaser;
};

TEST_P(ZorunLaserLinkTest, FramesArriveByteExactAndAnAlarmComesBackAcknowledged) {
  FLaser = MakeLaser<TZorunLaser>(FParams, FIO);
  ASSERT_NE(FLaser, nullptr);
  // Created: init, then the configured diode current twice (the template's level is 1), and polling.
  EXPECT_TRUE(Received(kInit));
  EXPECT_TRUE(Received(kDiode30, 2));
  EXPECT_TRUE(Received(kStateQuery, 3));
  EXPECT_TRUE(Received(kAlarmAck));
  EXPECT_TRUE(FSink->WaitForText(SLaserConnectedOk.Text(), 5s));

  FLaser->EmissionOn();
  EXPECT_TRUE(Received(kEmissionOn));
  FLaser->SetAimingOn(true);
  EXPECT_TRUE(Received(kAimingOn));
  FLaser->SetAimingOn(false);
  EXPECT_TRUE(Received(kAimingOff));
  FLaser->SetDiodeCurrent(40);
  EXPECT_TRUE(Received(kDiode40, 2));
  EXPECT_EQ(FEngine.DiodeParameter(), 40);
  EXPECT_EQ(FEngine.BadFrames(), 0u);

  // Emergency stop (bit 5) at the laser: the host sees alarm 7 with its text, and the laser hears it acknowledged.
  FEngine.SetAlarmByte(0x20);
  TRecordingReport report;
  EXPECT_TRUE(Eventually([&] {
    FLaser->UpdateAlarms(report);
    return report.Raised[7];
  }));
  EXPECT_FALSE(report.Raised[2]);
  EXPECT_EQ(FLaser->GetAlarmDesc(7), "ZR-3000 fiber laser: emergency stop pressed");
  EXPECT_TRUE(Eventually([&] { return FEngine.AlarmAcknowledged(); }));
  FEngine.SetAlarmByte(0);
  EXPECT_TRUE(Eventually([&] {
    FLaser->UpdateAlarms(report);
    return !report.Raised[7];
  }));

  // Destroyed: emission is switched off on the way out (the conformance suite checks the silence after it).
  FLaser.reset();
  EXPECT_TRUE(Received(kEmissionOff));
}

class ZorunLaserReconnectTest : public ZorunLaserLinkTest {};

TEST_P(ZorunLaserReconnectTest, ALostLaserIsReconnectedWithoutReplayingEmission) {
  FLaser = MakeLaser<TZorunLaser>(FParams, FIO);
  ASSERT_NE(FLaser, nullptr);
  FLaser->EmissionOn();
  ASSERT_TRUE(Received(kEmissionOn));
  ASSERT_TRUE(FSink->WaitForText(SLaserConnectedOk.Text(), 5s));

  const uint16_t port = FServer.TcpPort();
  FServer.Stop();
  EXPECT_TRUE(FSink->WaitForText("Net Connection Closed.", 5s));
  FEngine.Log().Clear();
  lasersim::TZorunSimLinks links;
  links.TcpAddress = "127.0.0.62";
  links.TcpPort = port;
  ASSERT_TRUE(FServer.Start(links)) << FServer.LastError();
  EXPECT_TRUE(Received(kStateQuery, 3));
  EXPECT_TRUE(
      Eventually([&] { return FSink->Count(refhost::TRecordingSink::TextContains(SLaserConnectedOk.Text())) == 2; }));
  EXPECT_FALSE(FEngine.Log().Contains(kEmissionOn));
  EXPECT_TRUE(FLaser->GetIsEmissionOn());  // still as commanded: the laser keeps what it was told
}

INSTANTIATE_TEST_SUITE_P(Tcp, ZorunLaserReconnectTest, ::testing::Values(TLink::Tcp));

INSTANTIATE_TEST_SUITE_P(Links, ZorunLaserLinkTest, ::testing::Values(TLink::Udp, TLink::Tcp, TLink::Pty),
                         [](const auto& link) { return std::string(kLinkNames[static_cast<int>(link.param)]); });

}  // namespace
}  // namespace devlaser
