// The own-brand frames against bytes worked out by hand from the protocol's rules: parameter encoding, CRC
// placement, zero padding, the unchecked-template rule, text conversion and the alarm-byte search.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/zorun/ZorunSimEngine.h"
#include "zorun/ZorunProtocol.h"

namespace devlaser::zorun {
namespace {

TBytes B(std::initializer_list<int> bytes) {
  TBytes out;
  for (int b : bytes) out.push_back(static_cast<uint8_t>(b));
  return out;
}

TCommandData DiodeTemplate(bool checked) {
  TCommandData t;
  t.FCmdType = ctDiodeSet;
  t.FCmdData = B({0x5A, 0xA5, 0x01, 0x12});
  t.FInsertIdx = 4;
  t.FParamLen = 2;
  t.FParamMin = 0;
  t.FParamMax = 1000;
  t.FCmdNeedCheck = checked;
  t.FCheckBeginIdx = 0;
  t.FCheckEndIdx = 5;
  return t;
}

TEST(ZorunProtocolTest, CrcIsModbusLowByteFirst) {
  const std::string check = "123456789";
  EXPECT_EQ(Crc16Modbus(reinterpret_cast<const uint8_t*>(check.data()), check.size()), 0x4B37);
}

TEST(ZorunProtocolTest, OnlyTheLastParameterByteCarriesTheValue) {
  EXPECT_EQ(EncodeParam(300, 2), B({0x00, 0x2C}));
  EXPECT_EQ(EncodeParam(40, 1), B({0x28}));
  EXPECT_EQ(EncodeParam(0x12345678, 4), B({0, 0, 0, 0x78}));
  EXPECT_TRUE(EncodeParam(5, 0).empty());
}

TEST(ZorunProtocolTest, FramesFollowTheTemplateRules) {
  struct TCase {
    const char* Name;
    TCommandData Tmpl;
    double Value;
    std::optional<TBytes> Expected;
  };
  TCommandData init;  // shorter than its working length: zero padded before the CRC
  init.FCmdType = ctInit;
  init.FCmdData = B({0x5A, 0xA5, 0x01, 0x10});
  init.FTotalLen = 5;
  init.FCmdNeedCheck = true;
  init.FCheckEndIdx = 4;
  TCommandData crcInside = init;  // the CRC goes right after the covered range, before the rest of the frame
  crcInside.FCheckBeginIdx = 1;
  crcInside.FCheckEndIdx = 2;
  const std::vector<TCase> cases = {
      {"diode set of 300", DiodeTemplate(true), 300, B({0x5A, 0xA5, 0x01, 0x12, 0x00, 0x2C, 0xE0, 0xDC})},
      {"diode set of 39.6 rounds to 40", DiodeTemplate(true), 39.6,
       B({0x5A, 0xA5, 0x01, 0x12, 0x00, 0x28, 0xE1, 0x1F})},
      {"diode set of 40.5 rounds half to even", DiodeTemplate(true), 40.5,
       B({0x5A, 0xA5, 0x01, 0x12, 0x00, 0x28, 0xE1, 0x1F})},
      {"unchecked diode set keeps its template bytes", DiodeTemplate(false), 300, B({0x5A, 0xA5, 0x01, 0x12})},
      {"above ParamMax", DiodeTemplate(true), 1000.6, std::nullopt},
      {"below ParamMin", DiodeTemplate(true), -1, std::nullopt},
      {"padded init", init, 0, B({0x5A, 0xA5, 0x01, 0x10, 0x00, 0x02, 0xC1})},
      {"CRC inside the frame", crcInside, 0, B({0x5A, 0xA5, 0x01, 0xBB, 0x20, 0x10, 0x00})},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    EXPECT_EQ(BuildFrame(c.Tmpl, c.Value), c.Expected);
  }
}

TEST(ZorunProtocolTest, TemplatesThatCannotWorkAreNamed) {
  auto diode = DiodeTemplate(true);
  EXPECT_EQ(TemplateProblem(diode), "");
  diode.FInsertIdx = 5;
  EXPECT_EQ(TemplateProblem(diode), "ParamIdx 5 lies outside the 4-byte command");
  diode = DiodeTemplate(true);
  diode.FCheckEndIdx = 6;
  EXPECT_EQ(TemplateProblem(diode), "check range 0..6 lies outside the 6-byte frame");
  EXPECT_EQ(BuildFrame(diode, 1), std::nullopt);
  diode.FCmdNeedCheck = false;  // sent as it stands: no index matters
  EXPECT_EQ(TemplateProblem(diode), "");
}

TEST(ZorunProtocolTest, TextConversion) {
  std::string error;
  EXPECT_EQ(TextToBytes("5A,A5 $01, 0x1f", TEncoding::Hex, error), B({0x5A, 0xA5, 0x01, 0x1F}));
  EXPECT_EQ(TextToBytes("ST?", TEncoding::Char, error), B({'S', 'T', '?'}));
  EXPECT_EQ(TextToBytes("5A", TEncoding::Unknown, error), TBytes{});
  EXPECT_EQ(TextToBytes("5A 1FF", TEncoding::Hex, error), std::nullopt);
  EXPECT_EQ(error, "\"1FF\" is not a hexadecimal byte");
  EXPECT_EQ(TextToBytes("", TEncoding::Char, error), std::nullopt);
  EXPECT_EQ(error, "ZorunLaser CommandRawData is nil");
  EXPECT_EQ(ParseEncoding("hEx"), TEncoding::Hex);
}

TEST(ZorunProtocolTest, TheAlarmByteIsFoundBehindThePattern) {
  TReplyData state;
  state.FReplyData = B({0x5A, 0xA5, 0x95, 0x01, 0x00});
  state.FReplyFlagIdx = 4;  // the pattern is the three bytes before the byte ahead of the flag
  const TBytes reply = B({0x5A, 0xA5, 0x95, 0x01, 0x09, 0x8F, 0x7B});
  EXPECT_EQ(FindAlarmCode(state, reply), 0x09);
  // Another reply first: the search finds the state reply behind it.
  TBytes joined = B({0x5A, 0xA5, 0x91, 0x01, 0x00, 0xAB, 0xCD});
  joined.insert(joined.end(), reply.begin(), reply.end());
  EXPECT_EQ(FindAlarmCode(state, joined), 0x09);
  // No match counts as position 0.
  EXPECT_EQ(FindAlarmCode(state, B({1, 2, 3, 4, 0x33})), 0x33);
  EXPECT_EQ(FindAlarmCode(state, B({0x5A, 0xA5, 0x95, 0x01})), std::nullopt);
}

}  // namespace
}  // namespace devlaser::zorun

namespace lasersim {
namespace {

// The own-brand simulator on the shipped description: framing of a byte stream, CRC checking, and the answers a
// laser with that description gives.
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
