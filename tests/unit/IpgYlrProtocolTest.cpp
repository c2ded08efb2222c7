#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

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

TEST(IpgYlrReplies, ParametersAndLineKinds) {
  EXPECT_EQ(ExtractParam("STA: 12"), "12");
  EXPECT_EQ(ExtractParam("\nRFV:  V1.2:3 \t"), "V1.2:3");
  EXPECT_EQ(ExtractParam("STA 12"), "");
  EXPECT_EQ(ExtractParam("ROP:"), "");
  // Mixed lines are decided by the order of the tests: an error first, then a status line.
  auto expectKind = [](ELineKind kind, std::initializer_list<const char*> lines) {
    for (const char* line : lines) EXPECT_EQ(ClassifyLine(line), kind) << line;
  };
  expectKind(ELineKind::Error, {"ERR: STA refused"});
  expectKind(ELineKind::Status, {"STA: 4", "SDC STA"});
  expectKind(ELineKind::DiodeCurrent, {"RCS: 40.0", "SDC: 40"});
  expectKind(ELineKind::PulseRate, {"SPRR: 5000", "RPRR: 5000", "SPRR SPW"});
  expectKind(ELineKind::PulseWidth, {"SPW: 1.50", "RPW: 1.50"});
  expectKind(ELineKind::Other, {"EMON"});
}

TEST(IpgYlrReplies, NumbersMustBeWholeAndFinite) {
  EXPECT_EQ(ParseStatusLine("STA: 12"), 12u);
  EXPECT_EQ(ParseStatusLine("STA: 4294967297"), 1u);  // the low 32 bits of 2^32 + 1
  EXPECT_EQ(ParseStatusLine("STA: -1"), kStatusUnknown);
  for (const char* garbage : {"STA: 12a", "STA: ", "STA 12"}) EXPECT_FALSE(ParseStatusLine(garbage)) << garbage;
  EXPECT_EQ(ParseDouble("40.5"), 40.5);
  EXPECT_EQ(ParseDouble("+3"), 3.0);
  EXPECT_EQ(ParseDouble("-2.5e1"), -25.0);
  for (const char* garbage : {"40,5", "nan", "inf", ""}) EXPECT_FALSE(ParseDouble(garbage)) << garbage;
  EXPECT_EQ(ParseInt64("9223372036854775807"), INT64_MAX);
  EXPECT_FALSE(ParseInt64("9223372036854775808"));
  EXPECT_FALSE(ParseInt64("1.0"));
  // Text values have length limits; a serial number must be a number.
  EXPECT_EQ(ShortTextParam(std::string(30, 'a')), std::string(30, 'a'));
  EXPECT_EQ(ShortTextParam(std::string(31, 'a')), "");
  EXPECT_EQ(SerialNumberParam("12345"), "12345");
  EXPECT_EQ(SerialNumberParam("PLC-12345"), "");
  EXPECT_EQ(SerialNumberParam(std::string(31, '1')), "");
}

TEST(IpgYlrStatus, StatusBitKeepsItsTwoAsymmetriesAndUnknownStatusHasNoBits) {
  EXPECT_FALSE(StatusBit(0x80000000u, 31));   // bit 31 makes the signed word negative
  EXPECT_FALSE(StatusBit(0x80000000u, -31));  // negative n asks for a clear bit, and 31 is set
  EXPECT_TRUE(StatusBit(0, 0));               // n = 0 asks whether bit 0 is clear
  EXPECT_FALSE(StatusBit(1, 0));
  EXPECT_TRUE(StatusBit(1u << 11, 11));
  EXPECT_FALSE(StatusBit(1u << 11, -11));
  EXPECT_TRUE(StatusBit(0, -11));
  EXPECT_EQ(MaskedStatus(0xFFFFFFFEu, kLaserStateMask), kLaserStateMask);
  // 0xFFFFFFFF means that the laser has not told its status: no bit is set and none is clear.
  EXPECT_EQ(MaskedStatus(kStatusUnknown, 0xFFFFFFFFu), 0u);
  EXPECT_FALSE(AnyStatusBit(kStatusUnknown, 0xFFFFFFFFu));
  EXPECT_FALSE(StatusBit(kStatusUnknown, 3));
  EXPECT_FALSE(StatusBit(kStatusUnknown, 0));
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
  for (int32_t hz : {0, 10000000}) EXPECT_FALSE(PulseRateCmd(hz)) << hz;
  EXPECT_EQ(PulseRateCmd(1), "SPRR 1");
  EXPECT_EQ(PulseRateCmd(9999999), "SPRR 9999999");
  for (double s : {0.1, 5.01}) EXPECT_FALSE(FilterWndSzCmd(s)) << s;
  EXPECT_EQ(FilterWndSzCmd(5.0), "SFWS 5.0");
  EXPECT_EQ(FilterWndSzCmd(0.2), "SFWS 0.2");
  for (double width : {-0.01, 50.5}) EXPECT_FALSE(PulseWidthCmd(width)) << width;
  EXPECT_EQ(PulseWidthCmd(0.0), "SPW 0.00");
  EXPECT_EQ(PulseWidthCmd(12.345), "SPW 12.35");
  for (double valid : {0.0, 100.0}) EXPECT_TRUE(DiodeCurrentValid(valid)) << valid;
  for (double invalid : {100.01, -0.5, std::nan("")}) EXPECT_FALSE(DiodeCurrentValid(invalid)) << invalid;
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
