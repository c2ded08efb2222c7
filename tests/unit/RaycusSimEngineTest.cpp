// The Raycus simulator's engine on byte strings: framing by fixed lengths, resynchronising after junk, and the
// answers of each reply mode.
#include "sim/raycus/RaycusEscEngine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/FakeSerialPort.h"

namespace lasersim {
namespace {

using ::testing::ElementsAre;
using testsupport::Bytes;
using testsupport::Hex;
using TMode = TRaycusEscEngine::TReplyMode;

std::vector<std::string> HexCommands(const TRaycusEscEngine& engine) {
  std::vector<std::string> out;
  for (const auto& c : engine.Commands()) out.push_back(Hex(c));
  return out;
}

TEST(RaycusSimEngineTest, FramesByLengthSoThatParameterBytesMayBeCrOrEsc) {
  TRaycusEscEngine engine;
  // A current of 13 % is a CR, a pulse power of 27 % an ESC; the pulse settings arrive in two pieces.
  const std::string bytes = Bytes("1B 43 50 0D 0D 1B 46 00 0D 44 0D 50 1B 0D 1B 4F 0D");
  EXPECT_EQ(engine.Feed(bytes.substr(0, 9)), "TS\r");
  EXPECT_EQ(engine.Feed(bytes.substr(9)), "TS\rTS\r");
  EXPECT_THAT(HexCommands(engine), ElementsAre("1B 43 50 0D 0D", "1B 46 00 0D 44 0D 50 1B 0D", "1B 4F 0D"));
  const auto state = engine.State();
  EXPECT_EQ(state.DiodeCurrent, 13);
  EXPECT_EQ(state.PulseFreq, 13);
  EXPECT_EQ(state.PulseRatio, 13);
  EXPECT_EQ(state.PulsePower, 27);
  EXPECT_TRUE(state.EmissionOn);
  EXPECT_EQ(engine.Received(), 3u);
}

TEST(RaycusSimEngineTest, SkipsJunkUpToTheNextEsc) {
  TRaycusEscEngine engine;
  // Leading noise, an unknown letter, a diode command without its CR, then a good emission-off.
  engine.Feed(Bytes("41 42 1B 5A 0D 1B 43 50 20 41 1B 53 0D"));
  EXPECT_THAT(HexCommands(engine), ElementsAre("1B 53 0D"));
  std::vector<std::string> junk;
  for (const auto& e : engine.Log())
    if (e.Junk) junk.push_back(Hex(e.Bytes));
  EXPECT_THAT(junk, ElementsAre("41 42", "1B 5A 0D", "1B 43 50 20 41"));
  EXPECT_EQ(engine.State().DiodeCurrent, 0);
}

TEST(RaycusSimEngineTest, ReplyModes) {
  const std::string two = Bytes("1B 4F 0D 1B 53 0D");
  struct {
    TMode Mode;
    std::string First, Second;
    bool Executes;
  } const cases[] = {
      {TMode::AlwaysTS, "TS\rTS\r", "TS\rTS\r", true},
      {TMode::FirstTS, "TS\r", "", true},
      {TMode::NeverTS, "", "", true},
      {TMode::Error, "TE7\rTE7\r", "TE7\rTE7\r", true},
      {TMode::Silent, "", "", false},
  };
  for (const auto& c : cases) {
    TRaycusEscEngine engine;
    engine.SetReplyMode(c.Mode);
    engine.SetErrorCode(7);
    engine.Feed(Bytes("1B 43 50 21 0D"));  // executed in every mode but silent
    engine.ResetInput();                   // a new line: FirstTS answers again
    EXPECT_EQ(engine.Feed(two), c.First) << ReplyModeName(c.Mode);
    EXPECT_EQ(engine.Feed(two), c.Second) << ReplyModeName(c.Mode);
    EXPECT_EQ(engine.State().DiodeCurrent, c.Executes ? 0x21 : 0) << ReplyModeName(c.Mode);
    EXPECT_EQ(engine.Commands().size(), 5u) << ReplyModeName(c.Mode);
  }
  TRaycusEscEngine garbage;
  garbage.SetReplyMode(TMode::Garbage);
  const std::string answer = garbage.Feed(Bytes("1B 4F 0D"));
  ASSERT_FALSE(answer.empty());
  EXPECT_NE(answer[0], '\x1B');
  EXPECT_TRUE(static_cast<unsigned char>(answer[0]) >= 0x80);
}

}  // namespace
}  // namespace lasersim
