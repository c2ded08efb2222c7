// The reference host's INI locale resource.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "refhost/IniLocaleResource.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;

class IniLocaleTest : public testing::Test {
 protected:
  void SetUp() override {
    FDir = std::filesystem::temp_directory_path() / ("refhost-locale-" + std::to_string(::getpid()) + "-" +
                                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(FDir);
  }
  void TearDown() override { std::filesystem::remove_all(FDir); }

  std::string Write(const std::string& name, const std::string& content) const {
    std::string path = (FDir / name).string();
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  std::string Read(const std::string& section, const std::string& key, std::string value = "default") const {
    FLocale.ReadStr(section, key, value);
    return value;
  }

  std::filesystem::path FDir;
  refhost::TIniLocaleResource FLocale;
};

TEST_F(IniLocaleTest, AFileWithSomeKeysChangesOnlyThose) {
  std::string path = Write("en.ini",
                           "\xEF\xBB\xBF; English texts\r\n"
                           "[Device_Strs]\r\n"
                           "SLaser = Laser\r\n"
                           "  SWarning=Laser warning; check the chiller # now\r\n"
                           "[Other]\r\n"
                           "SLaser=not this one\r\n");
  std::string error;
  ASSERT_TRUE(FLocale.Load(path, error)) << error;
  EXPECT_EQ(Read("device_strs", "slaser"), "Laser");  // names match in any case
  EXPECT_EQ(Read("Device_Strs", "SWarning"), "Laser warning; check the chiller # now");
  EXPECT_EQ(Read("Other", "SLaser"), "not this one");
  EXPECT_EQ(Read("Device_Strs", "SLaserConnectedOk"), "default");
  EXPECT_EQ(Read("Missing_Section", "SLaser"), "default");
}

TEST_F(IniLocaleTest, LongChineseLinesAreReadWhole) {
  std::string text;
  for (int i = 0; i < 100; ++i) text += "激光器";  // 900 bytes, far beyond the parser's default line buffer
  std::string error;
  ASSERT_TRUE(FLocale.LoadText("[Device_Strs]\nSLong=" + text + "\nSNext=下一个\n", "zh.ini", error)) << error;
  EXPECT_EQ(Read("Device_Strs", "SLong"), text);
  EXPECT_EQ(Read("Device_Strs", "SNext"), "下一个");
}

TEST_F(IniLocaleTest, BadFilesAreRefusedWithTheFileAndLineAndTheTextsLoadedBeforeStay) {
  std::string error;
  std::string missing = (FDir / "absent.ini").string();
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
    std::string path = Write(c.Name, c.Content);
    error.clear();
    EXPECT_FALSE(FLocale.Load(path, error));
    EXPECT_THAT(error, AllOf(HasSubstr(path), HasSubstr(c.Expected)));
    EXPECT_EQ(Read("Device_Strs", "SLaser"), "Laser");
  }
}

}  // namespace
