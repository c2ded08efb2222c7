#include "frame/Format.h"

#include <gtest/gtest.h>

#include <clocale>

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

}  // namespace
}  // namespace devlaser
