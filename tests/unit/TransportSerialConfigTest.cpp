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

TEST(TransportSerialSettingsTest, ParsesAGoodTextAndNamesTheWrongFieldOfABadOne) {
  EXPECT_EQ(ParseSerialSettings("57600,n,8,1"), (TSerialSettings{57600, 'n', 8, 1}));
  // Blanks around the fields and an upper-case parity letter are accepted; the text form is canonical.
  const auto spaced = ParseSerialSettings(" 9600 , E , 7 , 2 ");
  EXPECT_EQ(spaced ? spaced->ToString() : "refused", "9600,e,7,2");

  const std::vector<std::pair<std::string, std::string>> cases = {
      {"57600,n,8,1,1", "expected baud,parity,data bits,stop bits"},
      {"12345,n,8,1", "baud rate 12345 is not a standard rate"},
      {"57600,n,8,1.5", "stop bits \"1.5\" must be 1 or 2"},
  };
  for (const auto& [text, expected] : cases) {
    std::string error;
    EXPECT_FALSE(ParseSerialSettings(text, &error)) << text;
    EXPECT_NE(error.find("serial settings \"" + text + "\": " + expected), std::string::npos) << error;
  }
}

class TransportSerialPortMapTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(std::filesystem::create_directories(FScratch / "dev")); }
  std::string Dev(const std::string& name) const { return FScratch / ("dev/" + name); }

  testsupport::TScratchDir FScratch;
  TSerialPortMap FMap{FScratch / "dev", FScratch / "sys"};
};

TEST_F(TransportSerialPortMapTest, NumbersUartsThenUsbThenAcmDevicesInNumericOrder) {
  for (const char* name :
       {"ttyACM1", "ttyS10", "ttyUSB0", "ttyS2", "ttyS0", "ttyACM0", "ttyS1", "tty0", "ttySX", "ttyUSB", "console"}) {
    FScratch.Write(std::string("dev/") + name, "\n");
  }
  // A ttyS placeholder whose UART type is 0 has no UART behind it and is not counted.
  std::filesystem::create_directories(FScratch / "sys/ttyS1");
  FScratch.Write("sys/ttyS1/type", "0\n");
  const std::vector<std::string> expected{Dev("ttyS0"),   Dev("ttyS2"),   Dev("ttyS10"),
                                          Dev("ttyUSB0"), Dev("ttyACM0"), Dev("ttyACM1")};
  EXPECT_EQ(FMap.ListSerialDevices(), expected);
  for (int32_t number = -1; number <= 7; ++number)
    EXPECT_EQ(FMap.PathFor(number), number >= 1 && number <= 6 ? expected[number - 1] : "") << number;
}

TEST_F(TransportSerialPortMapTest, AnExplicitMappingWinsAndDevicesPluggedInLaterAreFound) {
  EXPECT_EQ(FMap.PathFor(1), "");
  FScratch.Write("dev/ttyUSB3", "\n");
  EXPECT_EQ(FMap.PathFor(1), Dev("ttyUSB3"));
  ASSERT_TRUE(FMap.SetFromText("1=/dev/pts/5"));
  EXPECT_EQ(FMap.PathFor(1), "/dev/pts/5");
  std::string error;
  EXPECT_FALSE(FMap.SetFromText("0=/dev/ttyS0", &error));
  EXPECT_NE(error.find("serial port assignment \"0=/dev/ttyS0\""), std::string::npos) << error;
  EXPECT_EQ(FMap.PathFor(1), "/dev/pts/5");
}

}  // namespace
}  // namespace refhost
