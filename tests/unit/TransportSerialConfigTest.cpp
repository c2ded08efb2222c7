// Serial line settings texts and the numbering of serial ports.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "refhost/transport/SerialPortMap.h"
#include "refhost/transport/SerialSettings.h"
#include "support/ScratchDir.h"

namespace refhost {
namespace {

TEST(TransportSerialSettingsTest, ParsesEveryFieldOfAGoodText) {
  EXPECT_EQ(ParseSerialSettings("57600,n,8,1"), (TSerialSettings{57600, 'n', 8, 1}));
  // Blanks around the fields and an upper-case parity letter are accepted; the text form is canonical.
  const std::vector<std::pair<std::string, std::string>> cases = {
      {" 9600 , E , 7 , 2 ", "9600,e,7,2"}, {"115200,m,8,1", "115200,m,8,1"}, {"4000000,o,6,1", "4000000,o,6,1"}};
  for (const auto& [text, canonical] : cases) {
    const auto parsed = ParseSerialSettings(text);
    EXPECT_EQ(parsed ? parsed->ToString() : "refused", canonical) << text;
  }
}

TEST(TransportSerialSettingsTest, NamesTheWrongFieldOfAMalformedText) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", "expected baud,parity,data bits,stop bits"},
      {"57600,n,8,1,1", "expected baud,parity,data bits,stop bits"},
      {"fast,n,8,1", "baud rate \"fast\" is not a number"},
      {"-9600,n,8,1", "baud rate -9600 is not a standard rate"},
      {"12345,n,8,1", "baud rate 12345 is not a standard rate"},
      {"57600,x,8,1", "parity \"x\" must be n, e, o, m or s"},
      {"57600,none,8,1", "parity \"none\" must be"},
      {"57600,n,9,1", "data bits \"9\" must be 5, 6, 7 or 8"},
      {"57600,n,8,1.5", "stop bits \"1.5\" must be 1 or 2"},
  };
  for (const auto& [text, expected] : cases) {
    std::string error;
    EXPECT_FALSE(ParseSerialSettings(text, &error)) << text;
    EXPECT_NE(error.find("serial settings \"" + text + "\": "), std::string::npos) << error;
    EXPECT_NE(error.find(expected), std::string::npos) << "for \"" << text << "\": " << error;
  }
}

class TransportSerialPortMapTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(FScratch.Path().empty());
    std::filesystem::create_directories(FScratch / "dev");
  }
  void AddDevice(const std::string& name) { FScratch.Write("dev/" + name, "\n"); }
  void SetUartType(const std::string& name, int type) {
    std::filesystem::create_directories(FScratch / ("sys/" + name));
    FScratch.Write("sys/" + name + "/type", std::to_string(type) + "\n");
  }
  std::string Dev(const std::string& name) const { return FScratch / ("dev/" + name); }
  TSerialPortMap Map() const { return TSerialPortMap(FScratch / "dev", FScratch / "sys"); }

  testsupport::TScratchDir FScratch;
};

TEST_F(TransportSerialPortMapTest, NumbersUartsThenUsbThenAcmDevicesInNumericOrder) {
  for (const char* name :
       {"ttyACM1", "ttyS10", "ttyUSB0", "ttyS2", "ttyS0", "ttyACM0", "ttyS1", "tty0", "ttySX", "ttyUSB", "console"}) {
    AddDevice(name);
  }
  SetUartType("ttyS0", 4);
  SetUartType("ttyS1", 0);  // a placeholder without a UART is not counted
  const TSerialPortMap map = Map();
  const std::vector<std::string> expected{Dev("ttyS0"),   Dev("ttyS2"),   Dev("ttyS10"),
                                          Dev("ttyUSB0"), Dev("ttyACM0"), Dev("ttyACM1")};
  EXPECT_EQ(map.ListSerialDevices(), expected);
  for (int32_t number = -1; number <= 7; ++number)
    EXPECT_EQ(map.PathFor(number), number >= 1 && number <= 6 ? expected[number - 1] : "") << number;
}

TEST_F(TransportSerialPortMapTest, AnExplicitMappingWinsAndDevicesPluggedInLaterAreFound) {
  TSerialPortMap map = Map();
  EXPECT_EQ(map.PathFor(1), "");
  AddDevice("ttyUSB3");
  EXPECT_EQ(map.PathFor(1), Dev("ttyUSB3"));

  ASSERT_TRUE(map.SetFromText("1=/dev/pts/5"));
  EXPECT_EQ(map.PathFor(1), "/dev/pts/5");
  ASSERT_TRUE(map.Set(2, "/tmp/laser-link"));
  EXPECT_EQ(map.PathFor(2), "/tmp/laser-link");
  EXPECT_FALSE(map.Set(0, "/dev/ttyS0"));
  EXPECT_FALSE(map.Set(3, ""));
  for (const char* text : {"", "1", "=/dev/ttyS0", "0=/dev/ttyS0", "-1=/dev/ttyS0", "x=/dev/ttyS0", "1="}) {
    std::string error;
    EXPECT_FALSE(map.SetFromText(text, &error)) << text;
    EXPECT_NE(error.find(std::string("serial port assignment \"") + text + "\""), std::string::npos) << error;
  }
  EXPECT_EQ(map.PathFor(1), "/dev/pts/5");
}

}  // namespace
}  // namespace refhost
