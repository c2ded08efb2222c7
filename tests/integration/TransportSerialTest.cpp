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
    ASSERT_FALSE(FScratch.Path().empty());
    ASSERT_TRUE(FTerminal.Open()) << FTerminal.LastError();
    // The map lists devices of an empty folder, so only the explicit mapping can match.
    FMap = std::make_shared<TSerialPortMap>(FScratch.Path(), FScratch.Path());
    ASSERT_TRUE(FMap->Set(kPortNumber, FTerminal.PortPath()));
    FPort = std::make_unique<TPosixSerialPort>(FMap, FLog.Callback());
    FPort->SetPort(kPortNumber);
  }

  // Reads from the port until `count` bytes came (or two seconds passed).
  std::string ReadFromPort(size_t count) {
    std::string received;
    transporttest::Eventually([&] {
      received += FPort->Read(count - received.size());
      return received.size() >= count;
    });
    return received;
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
  FPort->SetSettings("57600,n,8,1");
  ASSERT_TRUE(FPort->SetActive(true)) << FPort->LastError();
  EXPECT_TRUE(FPort->GetActive());
  EXPECT_EQ(FPort->DevicePath(), FTerminal.PortPath());
  EXPECT_EQ(FPort->Read(64), "");  // nothing waiting: returns empty without blocking

  // Carriage returns, line feeds, XON/XOFF, NUL and high bytes would all be changed or eaten by a cooked line.
  std::string everyByte;
  for (int value = 0; value < 256; ++value) everyByte += static_cast<char>(value);
  ExpectDeviceReceives(everyByte);
  ASSERT_TRUE(FTerminal.Write(everyByte));
  EXPECT_EQ(ReadFromPort(256), everyByte);

  ASSERT_TRUE(FTerminal.Write("STA: 12\r"));
  EXPECT_EQ(ReadFromPort(4), "STA:");  // asks for at most 4 bytes at a time
  EXPECT_EQ(ReadFromPort(4), " 12\r");
  EXPECT_EQ(FPort->Read(64), "");
}

TEST_F(TransportSerialTest, AppliesTheLineSettingsToTheDevice) {
  // A pseudo-terminal keeps the speed, the stop bits and the parity sense it is given, but always reports
  // 8 data bits without parity, so those two are not checked here.
  FPort->SetSettings("9600,e,7,2");
  ASSERT_TRUE(FPort->SetActive(true));
  termios attributes{};
  ASSERT_EQ(::tcgetattr(FTerminal.MasterFd(), &attributes), 0);  // the master reads the slave's settings
  EXPECT_EQ(attributes.c_cflag & (CSTOPB | PARODD), static_cast<tcflag_t>(CSTOPB));
  EXPECT_EQ(::cfgetospeed(&attributes), static_cast<speed_t>(B9600));
  EXPECT_EQ(::cfgetispeed(&attributes), static_cast<speed_t>(B9600));
  EXPECT_FALSE(attributes.c_lflag & (ICANON | ECHO | ISIG));
  EXPECT_FALSE(attributes.c_iflag & (IXON | ICRNL));
  EXPECT_FALSE(attributes.c_oflag & OPOST);

  // New settings on an open port apply at once.
  FPort->SetSettings("115200,o,8,1");
  ASSERT_EQ(::tcgetattr(FTerminal.MasterFd(), &attributes), 0);
  EXPECT_EQ(attributes.c_cflag & (CSTOPB | PARODD), static_cast<tcflag_t>(PARODD));
  EXPECT_EQ(::cfgetospeed(&attributes), static_cast<speed_t>(B115200));
  EXPECT_EQ(FPort->Settings().ToString(), "115200,o,8,1");
}

TEST_F(TransportSerialTest, BadSettingsOrAnUnmappedNumberKeepAClosedPortClosedAndAnOpenPortRunning) {
  FPort->SetPort(kPortNumber + 1);
  EXPECT_FALSE(FPort->SetActive(true));
  EXPECT_NE(FPort->LastError().find("maps to no device"), std::string::npos) << FPort->LastError();
  EXPECT_EQ(FPort->Write("x"), -1);
  EXPECT_EQ(FPort->Read(8), "");

  FPort->SetPort(kPortNumber);
  FPort->SetSettings("57600,x,8,1");
  EXPECT_FALSE(FPort->SetActive(true));
  EXPECT_FALSE(FPort->GetActive());
  EXPECT_NE(FPort->LastError().find("parity \"x\""), std::string::npos) << FPort->LastError();
  EXPECT_EQ(FLog.CountContaining("parity \"x\""), 1u);

  FPort->SetSettings("57600,n,8,1");
  ASSERT_TRUE(FPort->SetActive(true));
  FPort->SetSettings("57600,n,8,9");
  EXPECT_TRUE(FPort->SetActive(true));
  EXPECT_EQ(FPort->Settings().ToString(), "57600,n,8,1");
  ExpectDeviceReceives("STA\r");
}

TEST_F(TransportSerialTest, SurvivesTheDeviceVanishingAndComingBack) {
  ASSERT_TRUE(FPort->SetActive(true));
  ExpectDeviceReceives("A");

  FTerminal.Close();  // the cable is pulled
  EXPECT_FALSE(FPort->GetActive());
  EXPECT_EQ(FPort->Write("B"), -1);
  EXPECT_EQ(FPort->Read(8), "");
  EXPECT_FALSE(FPort->LastError().empty());

  // The driver keeps trying every poll period; the missing device is logged once, not at every try.
  for (int attempt = 0; attempt < 5; ++attempt) EXPECT_FALSE(FPort->SetActive(true));
  EXPECT_EQ(FLog.CountContaining("cannot open"), 1u);

  ASSERT_TRUE(FTerminal.Reopen()) << FTerminal.LastError();  // plugged in again, under a new slave device
  ASSERT_TRUE(FPort->SetActive(true)) << FPort->LastError();
  ExpectDeviceReceives("C");
  ASSERT_TRUE(FTerminal.Write("D"));
  EXPECT_EQ(ReadFromPort(1), "D");
  EXPECT_TRUE(FPort->LastError().empty());
}

TEST_F(TransportSerialTest, SetActiveClosesThePortAndRepairsAHangUp) {
  ASSERT_TRUE(FPort->SetActive(true));
  EXPECT_FALSE(FPort->SetActive(false));
  EXPECT_FALSE(FPort->GetActive());
  EXPECT_EQ(FPort->Write("x"), -1);
  ASSERT_TRUE(FPort->SetActive(true));
  ExpectDeviceReceives("F");

  // The device is replaced while the port still holds the old one; the driver only calls SetActive(true).
  ASSERT_TRUE(FTerminal.Reopen());
  ASSERT_TRUE(FPort->SetActive(true));
  ExpectDeviceReceives("E");
}

}  // namespace
}  // namespace refhost
