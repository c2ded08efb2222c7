// The own-brand simulator on the shipped description: framing of a byte stream, CRC checking, and the answers a
// laser with that description gives.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/zorun/ZorunSimEngine.h"

namespace lasersim {
namespace {

std::string Bytes(const std::string& hex) {
  std::string out;
  for (size_t i = 0; i + 1 < hex.size(); i += 3) out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  return out;
}

class ZorunSimEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string error;
    ASSERT_TRUE(FEngine.Load(std::string(DEVLASER_SOURCE_DIR) + "/examples/ZorunLaser.json", 0, error)) << error;
  }
  TZorunSimEngine FEngine;
};

TEST_F(ZorunSimEngineTest, AStreamIsFramedWhateverItsPiecesAndBadFramesAreReported) {
  TZorunSimEngine::TInput input;
  const std::string stream = Bytes("00 5A A5 01 15 00 01 91 5A A5 01 12 00 28 E1 1F 5A A5 01 11 01 C2 92 ");
  std::string replies;
  for (char c : stream) replies += FEngine.Feed(input, std::string(1, c));  // one byte at a time
  EXPECT_EQ(FEngine.Log().Commands(),
            (std::vector<std::string>{"UNKNOWN 00", "5A A5 01 15 00 01 91", "5A A5 01 12 00 28 E1 1F",
                                      "BAD CRC 5A A5 01 11 01 C2 92"}));
  EXPECT_EQ(FEngine.BadFrames(), 1u);
  EXPECT_EQ(FEngine.DiodeParameter(), 40);
  EXPECT_FALSE(FEngine.EmissionOn());  // the frame with the bad CRC was not obeyed
  EXPECT_EQ(replies, Bytes("5A A5 95 01 00 4F 7D 5A A5 93 01 00 AF 7C "));
}

TEST_F(ZorunSimEngineTest, StateRepliesCarryTheAlarmByteAndAnAcknowledgementGetsNoAnswer) {
  FEngine.SetAlarmByte(0x20);
  EXPECT_EQ(FEngine.FeedDatagram(Bytes("5A A5 01 15 00 01 91 ")), Bytes("5A A5 95 01 20 4E A5 "));
  EXPECT_FALSE(FEngine.AlarmAcknowledged());
  EXPECT_EQ(FEngine.FeedDatagram(Bytes("5A A5 01 14 00 00 01 ")), "");
  EXPECT_TRUE(FEngine.AlarmAcknowledged());
  EXPECT_EQ(FEngine.ExpectedFrame(TZorunSimEngine::kDiodeSet, 300),
            std::vector<uint8_t>({0x5A, 0xA5, 0x01, 0x12, 0x01, 0x2C, 0xE1, 0x4C}));
}

}  // namespace
}  // namespace lasersim
