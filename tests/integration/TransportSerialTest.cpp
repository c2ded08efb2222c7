// The POSIX serial port against a pseudo-terminal: raw bytes both ways, the line settings it applies, and a
// device that vanishes and comes back.
#include <gtest/gtest.h>
#include <termios.h>

#include <memory>
#include <string>

#include "TransportTestSupport.h"
#include "refhost/transport/PosixSerialPort.h"
#include "refhost/transport/PseudoTerminal.h"
#include "refhost/transport/SerialPortMap.h"

namespace refhost {
namespace {

using transporttest::Eventually;
using transporttest::TLogRecorder;
using transporttest::TScratchDir;

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
    Eventually([&] {
      received += FPort->Read(count - received.size());
      return received.size() >= count;
    });
    return received;
  }

  TScratchDir FScratch;
  TPseudoTerminal FTerminal{FScratch / "laser-line"};
  TLogRecorder FLog;
  std::shared_ptr<TSerialPortMap> FMap;
  std::unique_ptr<TPosixSerialPort> FPort;
};

TEST_F(TransportSerialTest, PassesEveryByteValueBothWaysUnchanged) {
  FPort->SetSettings("57600,n,8,1");
  ASSERT_TRUE(FPort->SetActive(true)) << FPort->LastError();
  EXPECT_TRUE(FPort->GetActive());
  EXPECT_EQ(FPort->DevicePath(), FTerminal.PortPath());

  // Carriage returns, line feeds, XON/XOFF, NUL and high bytes would all be changed or eaten by a cooked line.
  std::string everyByte;
  for (int value = 0; value < 256; ++value) everyByte += static_cast<char>(value);

  EXPECT_EQ(FPort->Write(everyByte), 256);
  EXPECT_EQ(FTerminal.ReadExactly(256, 2000), everyByte);

  ASSERT_TRUE(FTerminal.Write(everyByte));
  EXPECT_EQ(ReadFromPort(256), everyByte);
}

TEST_F(TransportSerialTest, ReadReturnsAtOnceAndHonoursTheByteLimit) {
  ASSERT_TRUE(FPort->SetActive(true));
  EXPECT_EQ(FPort->Read(64), "");  // nothing waiting: returns empty without blocking

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
  EXPECT_TRUE(attributes.c_cflag & CSTOPB);
  EXPECT_FALSE(attributes.c_cflag & PARODD);
  EXPECT_EQ(::cfgetospeed(&attributes), static_cast<speed_t>(B9600));
  EXPECT_EQ(::cfgetispeed(&attributes), static_cast<speed_t>(B9600));
  EXPECT_FALSE(attributes.c_lflag & (ICANON | ECHO | ISIG));
  EXPECT_FALSE(attributes.c_iflag & (IXON | ICRNL));
  EXPECT_FALSE(attributes.c_oflag & OPOST);

  // New settings on an open port apply at once.
  FPort->SetSettings("115200,o,8,1");
  ASSERT_EQ(::tcgetattr(FTerminal.MasterFd(), &attributes), 0);
  EXPECT_TRUE(attributes.c_cflag & PARODD);
  EXPECT_FALSE(attributes.c_cflag & CSTOPB);
  EXPECT_EQ(::cfgetospeed(&attributes), static_cast<speed_t>(B115200));
  EXPECT_EQ(FPort->Settings().ToString(), "115200,o,8,1");
}

TEST_F(TransportSerialTest, MalformedSettingsKeepAClosedPortClosedAndAnOpenPortRunning) {
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
  EXPECT_EQ(FPort->Write("STA\r"), 4);
  EXPECT_EQ(FTerminal.ReadExactly(4, 2000), "STA\r");
}

TEST_F(TransportSerialTest, ANumberWithoutADeviceDoesNotOpen) {
  FPort->SetPort(kPortNumber + 1);
  EXPECT_FALSE(FPort->SetActive(true));
  EXPECT_NE(FPort->LastError().find("maps to no device"), std::string::npos) << FPort->LastError();
  EXPECT_EQ(FPort->Write("x"), -1);
  EXPECT_EQ(FPort->Read(8), "");
}

TEST_F(TransportSerialTest, SurvivesTheDeviceVanishingAndComingBack) {
  ASSERT_TRUE(FPort->SetActive(true));
  ASSERT_EQ(FPort->Write("A"), 1);
  ASSERT_EQ(FTerminal.ReadExactly(1, 2000), "A");

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
  EXPECT_EQ(FPort->Write("C"), 1);
  EXPECT_EQ(FTerminal.ReadExactly(1, 2000), "C");
  ASSERT_TRUE(FTerminal.Write("D"));
  EXPECT_EQ(ReadFromPort(1), "D");
  EXPECT_TRUE(FPort->LastError().empty());
}

TEST_F(TransportSerialTest, AHangUpOnAnOpenPortIsRepairedBySetActive) {
  ASSERT_TRUE(FPort->SetActive(true));
  // The device is replaced while the port still holds the old one; the driver only calls SetActive(true).
  ASSERT_TRUE(FTerminal.Reopen());
  ASSERT_TRUE(FPort->SetActive(true));
  EXPECT_EQ(FPort->Write("E"), 1);
  EXPECT_EQ(FTerminal.ReadExactly(1, 2000), "E");
}

TEST_F(TransportSerialTest, ClosingThePortReleasesTheDevice) {
  ASSERT_TRUE(FPort->SetActive(true));
  EXPECT_FALSE(FPort->SetActive(false));
  EXPECT_FALSE(FPort->GetActive());
  EXPECT_EQ(FPort->Write("x"), -1);
  // Opened again, it talks to the same device.
  ASSERT_TRUE(FPort->SetActive(true));
  EXPECT_EQ(FPort->Write("F"), 1);
  EXPECT_EQ(FTerminal.ReadExactly(1, 2000), "F");
}

}  // namespace
}  // namespace refhost
