#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <string>

#include "frame/LaserStrs.h"
#include "ipg/IpgYlrProtocol.h"

namespace devlaser::ipg {
namespace {

TEST(IpgYlrReplyCache, SplitsLinesAcrossAndWithinReads) {
  TReplyCache cache;
  auto first = cache.Feed("SDC: 40\rSTA: 12");
  ASSERT_EQ(first.Lines.size(), 1u);
  EXPECT_EQ(first.Lines[0], "SDC: 40");
  EXPECT_EQ(cache.Pending(), "STA: 12");  // the cut line waits for the rest

  auto second = cache.Feed("34\r\nRPW: 2.5\r");
  ASSERT_EQ(second.Lines.size(), 2u);
  EXPECT_EQ(second.Lines[0], "STA: 1234");
  EXPECT_EQ(second.Lines[1], "\nRPW: 2.5");  // line feeds are part of the next line, the parser trims them
  EXPECT_EQ(cache.Pending(), "");
  EXPECT_FALSE(second.Overflow);
}

TEST(IpgYlrReplyCache, GarbageWithoutLineEndIsDroppedPastTheLimit) {
  TReplyCache cache;
  EXPECT_FALSE(cache.Feed(std::string(TReplyCache::kMaxCache, 'x')).Overflow);
  EXPECT_EQ(cache.Pending().size(), TReplyCache::kMaxCache);
  auto result = cache.Feed("y");
  EXPECT_TRUE(result.Overflow);
  EXPECT_TRUE(result.Lines.empty());
  EXPECT_EQ(cache.Pending(), "");
  // The link recovers with the next complete line.
  auto next = cache.Feed("STA: 1\r");
  ASSERT_EQ(next.Lines.size(), 1u);
  EXPECT_EQ(next.Lines[0], "STA: 1");
}

TEST(IpgYlrReplyCache, CompleteLinesOfAnOverlongReadAreStillDelivered) {
  TReplyCache cache;
  std::string text = "STA: 7\r" + std::string(TReplyCache::kMaxCache, 'z');
  auto result = cache.Feed(text);
  EXPECT_TRUE(result.Overflow);
  ASSERT_EQ(result.Lines.size(), 1u);
  EXPECT_EQ(result.Lines[0], "STA: 7");
  EXPECT_EQ(cache.Pending(), "");
}

TEST(IpgYlrReplies, ExtractParamTakesTheTrimmedTextAfterTheFirstColon) {
  EXPECT_EQ(ExtractParam("STA: 12"), "12");
  EXPECT_EQ(ExtractParam("\nRFV:  V1.2:3 \t"), "V1.2:3");
  EXPECT_EQ(ExtractParam("STA 12"), "");
  EXPECT_EQ(ExtractParam("ROP:"), "");
}

TEST(IpgYlrReplies, ClassifierOrderDecidesMixedLines) {
  EXPECT_EQ(ClassifyLine("ERR: STA refused"), ELineKind::Error);
  EXPECT_EQ(ClassifyLine("STA: 4"), ELineKind::Status);
  EXPECT_EQ(ClassifyLine("RCS: 40.0"), ELineKind::DiodeCurrent);
  EXPECT_EQ(ClassifyLine("SDC: 40"), ELineKind::DiodeCurrent);
  EXPECT_EQ(ClassifyLine("SPRR: 5000"), ELineKind::PulseRate);
  EXPECT_EQ(ClassifyLine("RPRR: 5000"), ELineKind::PulseRate);
  EXPECT_EQ(ClassifyLine("SPW: 1.50"), ELineKind::PulseWidth);
  EXPECT_EQ(ClassifyLine("RPW: 1.50"), ELineKind::PulseWidth);
  EXPECT_EQ(ClassifyLine("EMON"), ELineKind::Other);
  EXPECT_EQ(ClassifyLine("SPRR SPW"), ELineKind::PulseRate);
  EXPECT_EQ(ClassifyLine("SDC STA"), ELineKind::Status);
}

TEST(IpgYlrReplies, StatusLineTakesTheLow32BitsAndIgnoresGarbage) {
  EXPECT_EQ(ParseStatusLine("STA: 12"), 12u);
  EXPECT_EQ(ParseStatusLine("STA: 4294967297"), 1u);  // 2^32 + 1
  EXPECT_EQ(ParseStatusLine("STA: -1"), kStatusUnknown);
  EXPECT_FALSE(ParseStatusLine("STA: 12a"));
  EXPECT_FALSE(ParseStatusLine("STA: "));
  EXPECT_FALSE(ParseStatusLine("STA 12"));
}

TEST(IpgYlrReplies, NumbersMustBeWholeAndFinite) {
  EXPECT_EQ(ParseDouble("40.5"), 40.5);
  EXPECT_EQ(ParseDouble("+3"), 3.0);
  EXPECT_EQ(ParseDouble("-2.5e1"), -25.0);
  EXPECT_FALSE(ParseDouble("40,5"));
  EXPECT_FALSE(ParseDouble("nan"));
  EXPECT_FALSE(ParseDouble("inf"));
  EXPECT_FALSE(ParseDouble(""));
  EXPECT_EQ(ParseInt64("9223372036854775807"), INT64_MAX);
  EXPECT_FALSE(ParseInt64("9223372036854775808"));
  EXPECT_FALSE(ParseInt64("1.0"));
}

TEST(IpgYlrReplies, TextValuesHaveLengthLimits) {
  EXPECT_EQ(ShortTextParam(std::string(30, 'a')), std::string(30, 'a'));
  EXPECT_EQ(ShortTextParam(std::string(31, 'a')), "");
  EXPECT_EQ(SerialNumberParam("12345"), "12345");
  EXPECT_EQ(SerialNumberParam("PLC-12345"), "");
  EXPECT_EQ(SerialNumberParam(std::string(31, '1')), "");
}

TEST(IpgYlrStatus, UnknownStatusAnswersNoAlarmOrWarning) {
  EXPECT_EQ(MaskedStatus(kStatusUnknown, kYlrAlarmMask), 0u);
  EXPECT_EQ(MaskedStatus(kStatusUnknown, kLaserStateMask), 0u);
  for (uint32_t mask : {kYlrAlarmMask, kYlrWarningMask, kYlrAlarmMaskWithWarnings, kYlr2AlarmMaskCw, kYlr2WarningMaskCw,
                        kYlr2AlarmMaskQcw})
    EXPECT_FALSE(AnyStatusBit(kStatusUnknown, mask)) << std::hex << mask;
  EXPECT_FALSE(StatusBit(kStatusUnknown, 3));
  EXPECT_FALSE(StatusBit(kStatusUnknown, 0));
}

TEST(IpgYlrStatus, StatusBitKeepsItsTwoAsymmetries) {
  EXPECT_FALSE(StatusBit(0x80000000u, 31));   // bit 31 makes the signed word negative
  EXPECT_FALSE(StatusBit(0x80000000u, -31));  // negative n asks for a clear bit, and 31 is set
  EXPECT_TRUE(StatusBit(0, 0));               // n = 0 asks whether bit 0 is clear
  EXPECT_FALSE(StatusBit(1, 0));
  EXPECT_TRUE(StatusBit(1u << 11, 11));
  EXPECT_FALSE(StatusBit(1u << 11, -11));
  EXPECT_TRUE(StatusBit(0, -11));
  EXPECT_EQ(MaskedStatus(0xFFFFFFFEu, kLaserStateMask), kLaserStateMask);
}

TEST(IpgYlrStatus, MasksAndTablesAgree) {
  // Every alarm-table bit is in the generation's alarm mask and every warning-table bit in its warning mask,
  // so a raised alarm always has a text.
  auto maskOf = [](const TStatusBitTable& table) {
    uint32_t mask = 0;
    for (int32_t bit : table.Bits()) mask |= 1u << bit;
    return mask;
  };
  EXPECT_EQ(maskOf(YlrAlarmTable()), kYlrAlarmMask);
  EXPECT_EQ(maskOf(YlrWarningTable()), kYlrWarningMask);
  EXPECT_EQ(maskOf(YlrAlarmTable()) | maskOf(YlrWarningTable()), kYlrAlarmMaskWithWarnings);
  EXPECT_EQ(maskOf(Ylr2AlarmTable()), kYlr2AlarmMaskCw);
  EXPECT_EQ(maskOf(Ylr2WarningTable()), kYlr2WarningMaskCw);
  EXPECT_EQ(maskOf(Ylr2AlarmTable()) | maskOf(Ylr2WarningTable()), kYlr2AlarmMaskQcw);
}

TEST(IpgYlrStatus, TableTextsFollowTheLanguage) {
  const auto& table = YlrAlarmTable();
  EXPECT_EQ(table.Text(1), SIPGOverheat.Text());
  EXPECT_EQ(table.Text(2), "");
  EXPECT_FALSE(Ylr2AlarmTable().Contains(0));
  EXPECT_TRUE(Ylr2WarningTable().Contains(0));

  struct TLocale : nchost::TVqLocaleResource {
    bool IsLoaded() const override { return true; }
    void ReadStr(const std::string& section, const std::string& key, std::string& value) const override {
      if (section == "Device_Strs" && key == "SIPGOverheat") value = "Overheat";
    }
  } english;
  ReloadMessages(english);
  EXPECT_EQ(table.Text(1), "Overheat");
  ResetMessages();
  EXPECT_EQ(table.Text(1), MessageDefault(EMsg::SIPGOverheat));
}

TEST(IpgYlrCommands, SettersRefuseValuesOutsideTheirRange) {
  EXPECT_FALSE(PulseRateCmd(0));
  EXPECT_FALSE(PulseRateCmd(10000000));
  EXPECT_EQ(PulseRateCmd(1), "SPRR 1");
  EXPECT_EQ(PulseRateCmd(9999999), "SPRR 9999999");
  EXPECT_FALSE(FilterWndSzCmd(0.1));
  EXPECT_FALSE(FilterWndSzCmd(5.01));
  EXPECT_EQ(FilterWndSzCmd(5.0), "SFWS 5.0");
  EXPECT_EQ(FilterWndSzCmd(0.2), "SFWS 0.2");
  EXPECT_FALSE(PulseWidthCmd(-0.01));
  EXPECT_FALSE(PulseWidthCmd(50.5));
  EXPECT_EQ(PulseWidthCmd(0.0), "SPW 0.00");
  EXPECT_EQ(PulseWidthCmd(12.345), "SPW 12.35");
  EXPECT_TRUE(DiodeCurrentValid(100.0));
  EXPECT_TRUE(DiodeCurrentValid(0.0));
  EXPECT_FALSE(DiodeCurrentValid(100.01));
  EXPECT_FALSE(DiodeCurrentValid(-0.5));
  EXPECT_FALSE(DiodeCurrentValid(std::nan("")));
  EXPECT_EQ(DiodeCurrentCmd(39.6), "SDC 40");
  EXPECT_EQ(DiodeCurrentCmd(100.0), "SDC 100");
}

TEST(IpgYlrCommands, NumbersUseAPointInAnyLocale) {
  const char* old = std::setlocale(LC_NUMERIC, nullptr);
  std::string saved = old ? old : "C";
  std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
  EXPECT_EQ(PulseWidthCmd(2.5), "SPW 2.50");
  EXPECT_EQ(ParseDouble("2.5"), 2.5);
  std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(IpgYlrCommands, CommandsEndInOneCarriageReturn) {
  EXPECT_EQ(Terminated("STA"), "STA\r");
  EXPECT_EQ(Terminated("EMON\rSTA"), "EMON\rSTA\r");
  EXPECT_EQ(Terminated("STA\r"), "STA\r");
  EXPECT_EQ(ShowCR("EMON\rSTA\r"), "EMON#13STA#13");
}

}  // namespace
}  // namespace devlaser::ipg
