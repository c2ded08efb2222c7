// The Raycus QCW frame codec on byte vectors: request frames as the laser expects them on the line, answer checks,
// the pick of the latest answer among what was waiting, status data and the pulse-setting limits of each model.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "raycus/RayQcwProtocol.h"
#include "sim/rayqcw/RayQcwEngine.h"

namespace devlaser::rayqcw {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

TBytes Concat(std::initializer_list<TBytes> parts) {
  TBytes out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

TEST(RayQcwProtocolTest, RequestsAreFramedAndWrittenAsSixteenBytes) {
  const TBytes laserOn = BuildRequest(kLaserOn);
  EXPECT_THAT(laserOn, ElementsAre(0xAA, 0x55, 0x00, 0x06, 0x00, 0xFF, 0xE9, 0x00, 0x01, 0xE8, 0x55, 0xAA));
  EXPECT_THAT(WireRequest(laserOn), ElementsAre(0xAA, 0x55, 0x00, 0x06, 0x00, 0xFF, 0xE9, 0x00, 0x01, 0xE8, 0x55, 0xAA,
                                                0x00, 0x00, 0x00, 0x00));

  // Outer modulation, 59 %, 2000 Hz, 20 %, width 1: the check word is 0x030C.
  const TBytes settings =
      BuildRequest(kSetLaserData, PulseSettingsData(TCtrlMode::OuterModulationMode, {59, 2000, 20, 1}));
  EXPECT_THAT(settings, ElementsAre(0xAA, 0x55, 0x00, 0x0D, 0x00, 0xFF, 0xE2, 0x00, 0x04, 0x3B, 0x07, 0xD0, 0x14, 0x00,
                                    0x01, 0x03, 0x0C, 0x55, 0xAA));
  // Cut after the high byte of the check word.
  EXPECT_THAT(WireRequest(settings), ElementsAreArray(TBytes(settings.begin(), settings.begin() + 16)));

  EXPECT_EQ(HexDump(laserOn), "AA 55 00 06 00 FF E9 00 01 E8 55 AA ");
}

TEST(RayQcwProtocolTest, AnswerFramesAreCheckedByHeaderFooterLengthAndCheckWord) {
  const TBytes good = BuildRequest(kLaserOn, {0x01});
  auto parsed = ParseFrame(good);
  ASSERT_TRUE(parsed);
  EXPECT_EQ(parsed->Cmd, kLaserOn);
  EXPECT_THAT(parsed->Data, ElementsAre(0x01));

  struct TCase {
    const char* What;
    size_t At;
  };
  for (const TCase& c : {TCase{"header", 1}, TCase{"length", 3}, TCase{"command", 6}, TCase{"data", 8},
                         TCase{"check word", 10}, TCase{"footer", 12}}) {
    TBytes bad = good;
    bad[c.At] ^= 0x10;
    EXPECT_FALSE(ParseFrame(bad)) << c.What;
  }
  EXPECT_FALSE(ParseFrame(TBytes(good.begin(), good.end() - 1))) << "short";
  EXPECT_FALSE(ParseFrame({}));
}

TEST(RayQcwProtocolTest, OnlyTheLatestAnswerWaitingCounts) {
  const TBytes older = BuildRequest(kLaserOn, {0x00});
  const TBytes later = BuildRequest(kLaserOff, {0x01});
  auto answer = LastAnswer(Concat({older, later}));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->Cmd, kLaserOff);

  // A broken latest answer is dropped; the older one is stale and is not used instead.
  TBytes broken = later;
  broken[broken.size() - 3] ^= 0x01;
  EXPECT_FALSE(LastAnswer(Concat({older, broken})));
  EXPECT_FALSE(LastAnswer(Concat({older, TBytes(later.begin(), later.end() - 2)})));
  EXPECT_FALSE(LastAnswer(Concat({later, {0x00}})));
  EXPECT_FALSE(LastAnswer({0x02}));

  // Data bytes that look like a header do not start a frame of their own.
  const TBytes tricky = BuildRequest(kReadErrorRecord, {0x01, 0xAA, 0x55, 0x00, 0x06, 0x00});
  answer = LastAnswer(tricky);
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->Cmd, kReadErrorRecord);
  EXPECT_EQ(answer->Data.size(), 6u);
}

TEST(RayQcwProtocolTest, TheModeByteStandsInFrontOfAStatusWithModeAnswer) {
  const TBytes status = BuildRequest(kCheckBySuperMode, TBytes(kStatusBlockSize, 0x00));
  auto answer = LastAnswer(Concat({{0x02}, status}));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->ModeByte, 2);
  EXPECT_EQ(answer->Data.size(), kStatusBlockSize);
  // A mode byte the laser should not send still leaves the frame behind it readable.
  answer = LastAnswer(Concat({{0x03}, status}));
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->ModeByte, 3);
  EXPECT_EQ(answer->Data.size(), kStatusBlockSize);

  // Without a byte in front, or when the byte in front ends an earlier frame, there is no mode byte.
  EXPECT_FALSE(LastAnswer(status)->ModeByte);
  EXPECT_FALSE(LastAnswer(Concat({BuildRequest(kLaserOn, {1}), status}))->ModeByte);
  // Other answers have none.
  EXPECT_FALSE(LastAnswer(Concat({{0x02}, BuildRequest(kLaserOn, {1})}))->ModeByte);
}

TEST(RayQcwProtocolTest, StatusDataHoldsTheBlockAndThirteenAlarmBytesPerModule) {
  TBytes block(kStatusBlockSize, 0);
  const std::string id = "RFL-QCW450";
  std::copy(id.begin(), id.end(), block.begin());
  block[10] = 'Q';
  block[11] = 'C';
  block[12] = 'W';
  block[kModuleCountOffset] = 2;
  TBytes alarms(26, 0);
  alarms[14] = 1;  // second module, index 1
  auto reply = ParseStatusData(Concat({block, alarms}));
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->Alarms.size(), 26u);
  EXPECT_EQ(LaserText(reply->Block, kLaserIdOffset), "RFL-QCW450");
  EXPECT_EQ(LaserText(reply->Block, kLaserTypeOffset), "QCW");
  EXPECT_EQ(AlarmSummary(reply->Alarms), 0x0002);

  // Fewer alarm bytes than the modules need are taken as they come; more are not taken.
  EXPECT_EQ(ParseStatusData(Concat({block, TBytes(5, 0)}))->Alarms.size(), 5u);
  EXPECT_EQ(ParseStatusData(Concat({block, TBytes(40, 0)}))->Alarms.size(), 26u);
  EXPECT_FALSE(ParseStatusData(TBytes(31, 0)));
}

TEST(RayQcwProtocolTest, ResultBytesDecideSuccess) {
  struct TCase {
    uint8_t Cmd;
    TBytes Data;
    bool Ok;
  };
  const std::vector<TCase> cases = {
      {kLaserOn, {1}, true},         {kLaserOn, {0}, false},
      {kLaserOff, {2, 1}, false},    {kResetLaserMode, {}, false},
      {kReadErrorRecord, {1}, true}, {kSetLaserData, {3}, false},
      {kSetLaserData, {1}, true},    {kSetLaserData, {0, 0}, true},
      {kCheckStatus, {0}, true},     {228, {0}, true},
  };
  for (const auto& c : cases) EXPECT_EQ(AnswerSucceeded({c.Cmd, c.Data, {}}), c.Ok) << int(c.Cmd);
}

TEST(RayQcwProtocolTest, PulseSettingsFollowTheLimitsOfTheModel) {
  struct TCase {
    TQcwModel Model;
    TPulseSettings Asked, Stored;
  };
  const std::vector<TCase> cases = {
      {TQcwModel::QCW450, {80, 6000, 40, 9}, {33, 5000, 30, 6}},
      {TQcwModel::QCW450, {0, 100, 5, 0}, {1, 500, 10, 1}},
      {TQcwModel::QCW150, {100, 6000, 0, 3}, {100, 5000, 1, 3}},
      {TQcwModel::QCW150, {100, 0, 50, 3}, {20, 0, 50, 3}},
      {TQcwModel::Other, {60, 5000, 10, 1}, {50, 2000, 20, 1}},
      {TQcwModel::Other, {40, 100, 90, 2}, {40, 2000, 20, 2}},
  };
  for (const auto& c : cases) EXPECT_EQ(LimitPulseSettings(c.Model, c.Asked), c.Stored) << int(c.Asked.Power);
  EXPECT_EQ(ModelOfLaserId("RFL-QCW450"), TQcwModel::QCW450);
  EXPECT_EQ(ModelOfLaserId("QCW150-X"), TQcwModel::QCW150);
  EXPECT_EQ(ModelOfLaserId(""), TQcwModel::Other);
}

TEST(RayQcwProtocolTest, FuzzedFramesRoundTripAndAnyChangedByteIsRejected) {
  std::mt19937 random(4711);
  for (int round = 0; round < 2000; ++round) {
    TBytes data(random() % 60);
    for (auto& b : data) b = static_cast<uint8_t>(random());
    const uint8_t cmd = static_cast<uint8_t>(random());
    const TBytes frame = BuildRequest(cmd, data);
    auto parsed = ParseFrame(frame);
    ASSERT_TRUE(parsed);
    ASSERT_EQ(parsed->Cmd, cmd);
    ASSERT_EQ(parsed->Data, data);

    TBytes changed = frame;
    const size_t at = random() % changed.size();
    changed[at] = static_cast<uint8_t>(changed[at] + 1 + random() % 255);
    // The check word covers every byte between the length and itself, so any single change is caught.
    ASSERT_FALSE(ParseFrame(changed)) << "offset " << at;

    // Junk in front yields the answer behind it or nothing, never another one; junk alone never crashes the search.
    TBytes junk(random() % 40);
    for (auto& b : junk) b = static_cast<uint8_t>(random());
    auto latest = LastAnswer(Concat({junk, frame}));
    if (latest) {
      ASSERT_EQ(latest->Cmd, cmd);
    }
    (void)LastAnswer(junk);
  }
}

}  // namespace
}  // namespace devlaser::rayqcw

namespace lasersim {
namespace {

// The simulated Raycus QCW laser fed with the bytes a controller puts on the line: 16-byte blocks with filler and
// cut settings frames, broken frames, and the fault modes tests rely on.
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
