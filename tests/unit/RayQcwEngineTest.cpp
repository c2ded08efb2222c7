// The simulated Raycus QCW laser fed with the bytes a controller puts on the line: 16-byte blocks with filler and
// cut settings frames, broken frames, and the fault modes tests rely on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "sim/rayqcw/RayQcwEngine.h"

namespace lasersim {
namespace {

using ::testing::ElementsAre;

std::string Bytes(std::initializer_list<int> bytes) {
  std::string out;
  for (int b : bytes) out.push_back(static_cast<char>(b));
  return out;
}

// Requests as the controller writes them, built by hand from the frame layout.
const std::string kLaserOnBlock =
    Bytes({0xAA, 0x55, 0x00, 0x06, 0x00, 0xFF, 0xE9, 0x00, 0x01, 0xE8, 0x55, 0xAA, 0, 0, 0, 0});
const std::string kStatusBlock =
    Bytes({0xAA, 0x55, 0x00, 0x06, 0x00, 0xFF, 0xE1, 0x00, 0x01, 0xE0, 0x55, 0xAA, 0, 0, 0, 0});
const std::string kSuperModeBlock =
    Bytes({0xAA, 0x55, 0x00, 0x06, 0x00, 0xFF, 0xE7, 0x00, 0x01, 0xE6, 0x55, 0xAA, 0, 0, 0, 0});
// SetLaserData 4, 59 %, 2000 Hz, 20 %, width 1, cut after the check word's high byte (sum 0x030C).
const std::string kSettingsBlock =
    Bytes({0xAA, 0x55, 0x00, 0x0D, 0x00, 0xFF, 0xE2, 0x00, 0x04, 0x3B, 0x07, 0xD0, 0x14, 0x00, 0x01, 0x03});

TEST(RayQcwEngineTest, TakesTheControllersSixteenByteBlocksAndAnswersEach) {
  TRayQcwEngine engine;
  // One write may hold several blocks, and a block may arrive in pieces.
  std::string answers = engine.Feed(kSettingsBlock + kLaserOnBlock.substr(0, 5));
  answers += engine.Feed(kLaserOnBlock.substr(5));
  EXPECT_THAT(engine.Log().Commands(), ElementsAre("SetLaserData 4 59 2000 20 1", "LaserOn"));
  EXPECT_EQ(engine.Power(), 59);
  EXPECT_EQ(engine.Freq(), 2000);
  EXPECT_EQ(engine.CtrlMode(), 4);
  EXPECT_EQ(engine.CutFrames(), 1u);
  EXPECT_TRUE(engine.LaserOn());
  // Result byte 1 for each, check words computed by hand.
  EXPECT_EQ(answers, Bytes({0xAA, 0x55, 0x00, 0x07, 0x00, 0xFF, 0xE2, 0x00, 0x01, 0x01, 0xE2, 0x55, 0xAA,  //
                            0xAA, 0x55, 0x00, 0x07, 0x00, 0xFF, 0xE9, 0x00, 0x01, 0x01, 0xE9, 0x55, 0xAA}));
}

TEST(RayQcwEngineTest, ReportsIdentityModulesAlarmsAndTheModeByte) {
  TRayQcwEngine engine;
  engine.SetLaserId("RFL-QCW450");
  engine.SetModuleCount(2);
  engine.SetAlarm(1, 12, 7);
  engine.SetModeByte(2);
  const std::string status = engine.Feed(kStatusBlock);
  ASSERT_EQ(status.size(), 12u + 32u + 26u);
  EXPECT_EQ(status.substr(8, 10), "RFL-QCW450");
  EXPECT_EQ(status[8 + 31], 2);
  EXPECT_EQ(status[8 + 32 + 25], 7);

  const std::string mode = engine.Feed(kSuperModeBlock);
  ASSERT_EQ(mode.size(), 1u + 12u + 32u);
  EXPECT_EQ(mode[0], 2);
  EXPECT_EQ(mode.substr(1, 2), Bytes({0xAA, 0x55}));
}

TEST(RayQcwEngineTest, BrokenFramesAreLoggedAndNotAnswered) {
  TRayQcwEngine engine;
  std::string bad = kLaserOnBlock;
  bad[9] = static_cast<char>(0xE7);  // check word
  EXPECT_EQ(engine.Feed(bad), "");
  std::string badCut = kSettingsBlock;
  badCut[15] = 0x04;
  EXPECT_EQ(engine.Feed(badCut), "");
  EXPECT_THAT(engine.Log().Commands(), ElementsAre("BadFrame 233", "BadFrame 226"));
  EXPECT_FALSE(engine.LaserOn());
  EXPECT_EQ(engine.Power(), 0);
  // Junk without a header is skipped; the next good block is answered.
  EXPECT_NE(engine.Feed(Bytes({0x12, 0x55, 0xAA}) + kLaserOnBlock), "");
}

TEST(RayQcwEngineTest, FaultModesCorruptDoubleOrWithholdAnswers) {
  TRayQcwEngine engine;
  const std::string normal = engine.Feed(kLaserOnBlock);

  engine.SetReplyMode(TRayQcwEngine::TReplyMode::CorruptCheck);
  const std::string corrupt = engine.Feed(kLaserOnBlock);
  ASSERT_EQ(corrupt.size(), normal.size());
  EXPECT_NE(corrupt, normal);
  EXPECT_EQ(corrupt.substr(0, 9), normal.substr(0, 9));

  // Twice: the answer from before the switch goes in front of every new one, in one write.
  engine.SetReplyMode(TRayQcwEngine::TReplyMode::Double);
  engine.SetResult(233, 0);
  const std::string twice = engine.Feed(kLaserOnBlock);
  EXPECT_EQ(twice.substr(0, normal.size()), corrupt);
  EXPECT_EQ(twice[twice.size() - 5], 0);
  EXPECT_EQ(engine.Feed(kLaserOnBlock).substr(0, normal.size()), corrupt);

  engine.SetReplyMode(TRayQcwEngine::TReplyMode::Silent);
  EXPECT_EQ(engine.Feed(kLaserOnBlock), "");
  EXPECT_EQ(engine.Log().Count("LaserOn"), 5u);
}

}  // namespace
}  // namespace lasersim
