#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "ipg/IpgYlrProtocol.h"

namespace devlaser::ipg {
namespace {

TEST(IpgYlrReplyCache, SplitsLinesAcrossAndWithinReads) {
  TReplyCache cache;
  EXPECT_EQ(cache.Feed("SDC: 40\rSTA: 12").Lines, std::vector<std::string>{"SDC: 40"});
  EXPECT_EQ(cache.Pending(), "STA: 12");  // the cut line waits for the rest
  auto second = cache.Feed("34\r\nRPW: 2.5\r");
  // Line feeds are part of the next line; the parser trims them.
  EXPECT_EQ(second.Lines, (std::vector<std::string>{"STA: 1234", "\nRPW: 2.5"}));
  EXPECT_EQ(cache.Pending(), "");
  EXPECT_FALSE(second.Overflow);
}

TEST(IpgYlrReplyCache, GarbageWithoutLineEndIsDroppedPastTheLimitButCompleteLinesAreKept) {
  TReplyCache cache;
  EXPECT_FALSE(cache.Feed(std::string(TReplyCache::kMaxCache, 'x')).Overflow);
  auto result = cache.Feed("y");
  EXPECT_TRUE(result.Overflow);
  EXPECT_TRUE(result.Lines.empty());
  EXPECT_EQ(cache.Pending(), "");
  // The lines completed in an overlong read still count, and the link recovers with them.
  result = cache.Feed("STA: 7\r" + std::string(TReplyCache::kMaxCache, 'z'));
  EXPECT_TRUE(result.Overflow);
  EXPECT_EQ(result.Lines, std::vector<std::string>{"STA: 7"});
  EXPECT_EQ(cache.Pending(), "");
}

TEST(IpgYlrReplies, ParametersLineKindsAndNumbers) {
  EXPECT_EQ(ExtractParam("\nRFV:  V1.2:3 \t"), "V1.2:3");
  EXPECT_EQ(ExtractParam("STA 12"), "");
  // Mixed lines are decided by the order of the tests: an error first, then a status line.
  EXPECT_EQ(ClassifyLine("ERR: STA refused"), ELineKind::Error);
  EXPECT_EQ(ClassifyLine("SDC STA"), ELineKind::Status);
  EXPECT_EQ(ClassifyLine("SPRR SPW"), ELineKind::PulseRate);

  EXPECT_EQ(ParseStatusLine("STA: 4294967297"), 1u);  // the low 32 bits of 2^32 + 1
  EXPECT_EQ(ParseStatusLine("STA: -1"), kStatusUnknown);
  for (const char* garbage : {"STA: 12a", "STA: "}) EXPECT_FALSE(ParseStatusLine(garbage)) << garbage;
  for (const char* garbage : {"40,5", "nan", ""}) EXPECT_FALSE(ParseDouble(garbage)) << garbage;
  // Text values have length limits; a serial number must be a number.
  EXPECT_EQ(ShortTextParam(std::string(31, 'a')), "");
  EXPECT_EQ(SerialNumberParam("PLC-12345"), "");
}

TEST(IpgYlrReplies, AReplyEchoesItsCommandsMnemonicOnly) {
  EXPECT_EQ(CommandMnemonic(" sdc 40"), "SDC");
  EXPECT_TRUE(EchoesMnemonic("\nrsn : 12345", "RSN"));  // a line feed left from the previous line, any case
  EXPECT_TRUE(EchoesMnemonic("EMON", "EMON"));
  EXPECT_FALSE(EchoesMnemonic("RSN: 1", "RS"));
  EXPECT_FALSE(EchoesMnemonic("STA: 4", "RSN"));
  EXPECT_FALSE(EchoesMnemonic("ERR: SDC out of range", "SDC"));  // a refusal is no echo, whatever it mentions
  EXPECT_FALSE(EchoesMnemonic("SDC: 40.0", ""));
  EXPECT_TRUE(IsRefusal("BCMD"));
  EXPECT_FALSE(IsRefusal("SDC: 40.0"));
}

// The laser answers in order, one line per command; replies that never came must not make later ones look like
// answers to the wrong command.
TEST(IpgYlrReplyTracker, AttributesEachLineToTheCommandItAnswers) {
  TReplyTracker tracker;
  EXPECT_EQ(tracker.Answer("STA: 4"), 0u) << "nothing owed";
  const uint64_t dec = tracker.Sent("DEC\r");
  const uint64_t sta = tracker.Sent("EMON\rSTA\r");  // two commands in one write
  const uint64_t sdc = tracker.Sent("SDC 40\r");
  EXPECT_EQ(tracker.Owed(), 4u);
  EXPECT_EQ(tracker.Answer("ERR: Emission is on"), dec) << "a refusal answers the oldest command owed";
  EXPECT_EQ(tracker.Answer("   "), 0u) << "blank lines answer nothing";
  // EMON's reply was lost: the status echo answers STA and EMON is owed no longer.
  EXPECT_EQ(tracker.Answer("STA: 4100"), sta);
  EXPECT_EQ(tracker.Answer("BCMD"), sdc);
  EXPECT_EQ(tracker.Owed(), 0u);

  // Two owed with the same mnemonic: the echo answers the older.
  const uint64_t first = tracker.Sent("RSN");
  const uint64_t second = tracker.Sent("RSN");
  EXPECT_EQ(tracker.Answer("RSN: 12345"), first);
  EXPECT_EQ(tracker.Answer("RSN: 12345"), second);

  // A laser that stopped answering: only the latest commands stay owed.
  for (size_t i = 0; i < TReplyTracker::kMaxOwed + 10; ++i) tracker.Sent("STA");
  EXPECT_EQ(tracker.Owed(), TReplyTracker::kMaxOwed);
  const uint64_t last = tracker.Sent("RFV");
  EXPECT_EQ(tracker.Answer("RFV: 1.2.3"), last);
  EXPECT_EQ(tracker.Owed(), 0u);
  tracker.Sent("STA");
  tracker.Reset();
  EXPECT_EQ(tracker.Answer("STA: 4"), 0u);
}

TEST(IpgYlrStatus, StatusBitKeepsItsTwoAsymmetriesAndUnknownStatusHasNoBits) {
  EXPECT_FALSE(StatusBit(0x80000000u, 31));   // bit 31 makes the signed word negative
  EXPECT_FALSE(StatusBit(0x80000000u, -31));  // negative n asks for a clear bit, and 31 is set
  EXPECT_TRUE(StatusBit(0, 0));               // n = 0 asks whether bit 0 is clear
  EXPECT_TRUE(StatusBit(1u << 11, 11));
  // 0xFFFFFFFF means that the laser has not told its status: no bit is set and none is clear.
  EXPECT_EQ(MaskedStatus(kStatusUnknown, 0xFFFFFFFFu), 0u);
  EXPECT_FALSE(StatusBit(kStatusUnknown, 3));
  EXPECT_FALSE(StatusBit(kStatusUnknown, 0));
}

TEST(IpgYlrCommands, SettersRefuseValuesOutsideTheirRange) {
  EXPECT_FALSE(PulseRateCmd(0));
  EXPECT_FALSE(PulseRateCmd(10000000));
  EXPECT_EQ(PulseRateCmd(9999999), "SPRR 9999999");
  EXPECT_FALSE(FilterWndSzCmd(5.01));
  EXPECT_EQ(PulseWidthCmd(12.345), "SPW 12.35");
  EXPECT_TRUE(DiodeCurrentValid(100.0));  // the top of the range is allowed
  for (double invalid : {100.01, -0.5, std::nan("")}) EXPECT_FALSE(DiodeCurrentValid(invalid)) << invalid;
}

}  // namespace
}  // namespace devlaser::ipg
