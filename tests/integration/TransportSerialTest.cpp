// The POSIX serial port against a pseudo-terminal: raw bytes both ways, the line settings it applies, and a
// device that vanishes and comes back.
#include <gtest/gtest.h>
#include <termios.h>

#include <memory>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixSerialPort.h"
#include "refhost/transport/PseudoTerminal.h"
#include "refhost/transport/SerialPortMap.h"
#include "support/ScratchDir.h"

namespace refhost {
namespace {

constexpr int32_t kPortNumber = 3;

class TransportSerialTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(FTerminal.Open()) << FTerminal.LastError();
    // The map lists devices of an empty folder, so only the explicit mapping can match.
    FMap = std::make_shared<TSerialPortMap>(FScratch.Path(), FScratch.Path());
    ASSERT_TRUE(FMap->Set(kPortNumber, FTerminal.PortPath()));
    FPort = std::make_unique<TPosixSerialPort>(FMap, FLog.Callback());
    FPort->SetPort(kPortNumber);
  }

  // Writes `bytes` to the port and checks that the device received them.
  void ExpectDeviceReceives(const std::string& bytes) {
    EXPECT_EQ(FPort->Write(bytes), static_cast<int>(bytes.size()));
    EXPECT_EQ(FTerminal.ReadExactly(bytes.size(), 2000), bytes);
  }

  testsupport::TScratchDir FScratch;
  TPseudoTerminal FTerminal{FScratch / "laser-line"};
  transporttest::TLogRecorder FLog;
  std::shared_ptr<TSerialPortMap> FMap;
  std::unique_ptr<TPosixSerialPort> FPort;
};

TEST_F(TransportSerialTest, PassesEveryByteValueBothWaysUnchangedAndReadsWithoutBlocking) {
  ASSERT_TRUE(FPort->SetActive(true)) << FPort->LastError();
  EXPECT_EQ(FPort->Read(64), "");  // nothing waiting: returns empty without blocking
  // Carriage returns, line feeds, XON/XOFF, NUL and high bytes would all be changed or eaten by a cooked line.
  std::string everyByte;
  for (int value = 0; value < 256; ++value) everyByte += static_cast<char>(value);
  ExpectDeviceReceives(everyByte);
  ASSERT_TRUE(FTerminal.Write(everyByte));
  std::string received;
  transporttest::Eventually([&] { return (received += FPort->Read(256 - received.size())).size() >= 256; });
  EXPECT_EQ(received, everyByte);
}

TEST_F(TransportSerialTest, AppliesTheLineSettingsToTheDeviceAndRefusesBadOnesOrAnUnmappedNumber) {
  FPort->SetPort(kPortNumber + 1);
  EXPECT_FALSE(FPort->SetActive(true));
  EXPECT_NE(FPort->LastError().find("maps to no device"), std::string::npos) << FPort->LastError();
  FPort->SetPort(kPortNumber);
  FPort->SetSettings("57600,x,8,1");
  EXPECT_FALSE(FPort->SetActive(true));
  EXPECT_EQ(FLog.CountContaining("parity \"x\""), 1u);

  // A pseudo-terminal keeps the speed, the stop bits and the parity sense it is given, but always reports
  // 8 data bits without parity, so those two are not checked here.
  FPort->SetSettings("9600,e,7,2");
  ASSERT_TRUE(FPort->SetActive(true));
  termios attributes{};
  ASSERT_EQ(::tcgetattr(FTerminal.MasterFd(), &attributes), 0);  // the master reads the slave's settings
  EXPECT_EQ(attributes.c_cflag & (CSTOPB | PARODD), static_cast<tcflag_t>(CSTOPB));
  EXPECT_EQ(::cfgetospeed(&attributes), static_cast<speed_t>(B9600));
}

TEST_F(TransportSerialTest, SurvivesTheDeviceVanishingAndComingBack) {
  ASSERT_TRUE(FPort->SetActive(true));
  ExpectDeviceReceives("A");

  FTerminal.Close();  // the cable is pulled
  EXPECT_FALSE(FPort->GetActive());
  EXPECT_EQ(FPort->Write("B"), -1);
  // The driver keeps trying every poll period; the missing device is logged once, not at every try.
  for (int attempt = 0; attempt < 5; ++attempt) EXPECT_FALSE(FPort->SetActive(true));
  EXPECT_EQ(FLog.CountContaining("cannot open"), 1u);

  ASSERT_TRUE(FTerminal.Reopen()) << FTerminal.LastError();  // plugged in again, under a new slave device
  ASSERT_TRUE(FPort->SetActive(true)) << FPort->LastError();
  ExpectDeviceReceives("C");

  // Replaced while the port still holds the old device: the driver only calls SetActive(true), which repairs it.
  ASSERT_TRUE(FTerminal.Reopen());
  ASSERT_TRUE(FPort->SetActive(true));
  ExpectDeviceReceives("E");
}

}  // namespace
}  // namespace refhost
