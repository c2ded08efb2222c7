#include "frame/Format.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <limits>

namespace devlaser {
namespace {

TEST(Format, NumbersUseAPointWhateverTheProcessLocale) {
  // A host running in a comma-decimal locale must still send "SFWS 5.0" to a laser, not "SFWS 5,0".
  const char* old = std::setlocale(LC_NUMERIC, nullptr);
  std::string saved = old ? old : "C";
  std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
  EXPECT_EQ(Format("SFWS %.1f", 5.0), "SFWS 5.0");
  std::setlocale(LC_NUMERIC, saved.c_str());
}

TEST(Format, PrintfConversionsAndMissingOrMismatchedArgumentsNeverCrash) {
  EXPECT_EQ(Format("%.2f / %s", 39.999, "port 3"), "40.00 / port 3");
  EXPECT_EQ(Format("%05d %02X 100%%", -42, 0xAB), "-0042 AB 100%");
  EXPECT_EQ(Format("%d", -2147483648LL), "-2147483648");
  EXPECT_EQ(Format("a %d b %s"), "a %d b %s");
  EXPECT_EQ(Format("%d %.1f %s", 2.7, 3, 12), "2 3.0 12");
  EXPECT_EQ(Format("trailing %"), "trailing %");
}

// Locale texts are edited by operators, so the formatter meets format texts nobody checked. Widths and precisions
// are cut to 1024, and %d/%c of doubles no integer can hold are clamped rather than cast. Random hostile texts are
// the fuzz target fuzz/format.cpp, whose corpus the suite replays.
TEST(Format, HostileWidthsPrecisionsAndValuesAreBounded) {
  constexpr double kBig = 1e300;
  EXPECT_EQ(Format("%99999999999d", 1).size(), 1024u);
  EXPECT_EQ(Format("%-99999999999999999999s|", "x").size(), 1025u);
  EXPECT_EQ(Format("%.99999999999f", 1.0), "1." + std::string(1024, '0'));
  EXPECT_EQ(Format("%.99999999999d", 7), std::string(1023, '0') + "7");
  EXPECT_EQ(Format("%d %d", kBig, -kBig), "9223372036854775807 -9223372036854775808");
  EXPECT_EQ(Format("%d", std::nan("")), "0");
  EXPECT_EQ(Format("%c%c%c", 65.0, kBig, -1), "A??");
  EXPECT_EQ(Format("%u", -kBig), "9223372036854775808");
  const std::string widest = Format("%.1024f", -1.7976931348623157e308);
  EXPECT_EQ(widest.substr(0, 5), "-1797");
  EXPECT_EQ(widest.size(), 1 + 309 + 1 + 1024u);
}

}  // namespace
}  // namespace devlaser
