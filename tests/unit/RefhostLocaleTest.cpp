// The reference host's INI locale resource.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "refhost/IniLocaleResource.h"
#include "support/ScratchDir.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

class IniLocaleTest : public testing::Test {
 protected:
  std::string Read(const std::string& section, const std::string& key, std::string value = "default") const {
    FLocale.ReadStr(section, key, value);
    return value;
  }

  testsupport::TScratchDir FDir;
  refhost::TIniLocaleResource FLocale;
};

TEST_F(IniLocaleTest, AFileWithSomeKeysChangesOnlyThose) {
  std::string longText;
  for (int i = 0; i < 100; ++i) longText += "激光器";  // 900 bytes, far beyond the parser's default line buffer
  std::string path = FDir.Write("en.ini",
                                "\xEF\xBB\xBF; English texts\r\n[Device_Strs]\r\nSLaser = Laser\r\n"
                                "  SWarning=Laser warning; check the chiller # now\r\nSLong=" +
                                    longText + "\r\n[Other]\r\nSLaser=not this one\r\n");
  std::string error;
  ASSERT_TRUE(FLocale.Load(path, error)) << error;
  EXPECT_EQ(Read("device_strs", "slaser"), "Laser");  // names match in any case
  EXPECT_EQ(Read("Device_Strs", "SWarning"), "Laser warning; check the chiller # now");
  EXPECT_EQ(Read("Device_Strs", "SLong"), longText);
  EXPECT_EQ(Read("Other", "SLaser"), "not this one");
  EXPECT_EQ(Read("Missing_Section", "SLaser"), "default");
}

TEST_F(IniLocaleTest, BadFilesAreRefusedWithTheFileAndLineAndTheTextsLoadedBeforeStay) {
  std::string error;
  std::string missing = FDir / "absent.ini";
  EXPECT_FALSE(FLocale.Load(missing, error));
  EXPECT_THAT(error, AllOf(HasSubstr(missing), HasSubstr("No such file")));
  EXPECT_FALSE(FLocale.IsLoaded());  // nothing is loaded until a file is
  EXPECT_EQ(Read("Device_Strs", "SLaser"), "default");
  ASSERT_TRUE(FLocale.LoadText("[Device_Strs]\nSLaser=Laser\n", "good.ini", error));

  struct TCase {
    std::string Name, Content, Expected;
  };
  const TCase cases[] = {
      {"noequals.ini", "[Device_Strs]\nSLaser=Laser B\nthis line has no value\n", "line 3"},
      {"latin1.ini", "[Device_Strs]\nSLaser=Laser B\nSWarning=caf\xE9\n", "line 3"},
      {"toolong.ini", "[Device_Strs]\nSLaser=" + std::string(20000, 'x') + "\n", "line 2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    std::string path = FDir.Write(c.Name, c.Content);
    error.clear();
    EXPECT_FALSE(FLocale.Load(path, error));
    EXPECT_THAT(error, AllOf(HasSubstr(path), HasSubstr(c.Expected)));
    EXPECT_EQ(Read("Device_Strs", "SLaser"), "Laser");
  }
}

}  // namespace
