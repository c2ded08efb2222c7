#include "frame/LaserStrs.h"

#include <gtest/gtest.h>

#include <gmock/gmock.h>
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "frame/HostServices.h"
#include "refhost/IniLocaleResource.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "support/ScratchDir.h"

namespace devlaser {
namespace {

const std::filesystem::path kEnglishFile = std::filesystem::path(DEVLASER_SOURCE_DIR) / "locale" / "en.ini";

TMessage Msg(int i) { return TMessage{static_cast<EMsg>(i)}; }

// The raw [Device_Strs] lines of the English file, as written (duplicates kept), so that the file itself can be
// checked independently of how a reader treats repeated keys.
std::vector<std::pair<std::string, std::string>> ReadEnglishLines() {
  std::ifstream in(kEnglishFile);
  std::vector<std::pair<std::string, std::string>> lines;
  bool inMessages = false;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with('['))
      inMessages = line.starts_with("[Device_Strs]");
    else if (const size_t eq = line.find('='); inMessages && eq != std::string::npos && !line.starts_with(';'))
      lines.emplace_back(line.substr(0, eq), line.substr(eq + 1));
  }
  return lines;
}

// The printf conversions of a text in order ("%.2f", "%d"), "%%" skipped.
std::vector<std::string> Placeholders(const std::string& text) {
  static const std::regex conversion("%[-+ 0#.0-9]*[a-zA-Z%]");
  std::vector<std::string> found;
  for (std::sregex_iterator it(text.begin(), text.end(), conversion), end; it != end; ++it)
    if (it->str() != "%%") found.push_back(it->str());
  return found;
}

class LaserStrsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetMessages();
    SetHost(&FApp);
    FProc = FApp.RegisterLocaleProc(MessagesLocaleProc);
  }
  void TearDown() override {
    FApp.UnregisterLocaleProc(FProc);
    SetHost(nullptr);
    ResetMessages();
  }

  // The shipped English file, or the given INI text.
  static std::shared_ptr<refhost::TIniLocaleResource> Loaded(const std::string& iniText = "") {
    auto locale = std::make_shared<refhost::TIniLocaleResource>();
    std::string error;
    EXPECT_TRUE(iniText.empty() ? locale->Load(kEnglishFile.string(), error)
                                : locale->LoadText(iniText, "test.ini", error))
        << error;
    return locale;
  }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
  int FProc = 0;
};

TEST_F(LaserStrsTest, WithoutALocaleEveryMessageIsItsBuiltInText) {
  FApp.SetLocale(nullptr);                                          // runs the locale procedure with no resource
  FApp.SetLocale(std::make_shared<refhost::TIniLocaleResource>());  // a resource that was never loaded
  for (int i = 0; i < kMessageCount; ++i) EXPECT_EQ(Msg(i).Text(), MessageDefault(Msg(i).Id)) << Msg(i).Name();
  EXPECT_EQ(std::string(SLaserConnectedFail), "激光器串口/网络连接失败.");
}

// Each message once, none that is not in the table, and the same printf conversions in the same order as the
// built-in text: a translation that swaps or drops one would format garbage. Loaded, it replaces every text.
TEST_F(LaserStrsTest, EnglishFileHoldsEveryMessageOnceWithItsPlaceholdersAndReplacesEveryText) {
  std::map<std::string, int> index;
  for (int i = 0; i < kMessageCount; ++i) index[Msg(i).Name()] = i;
  std::map<std::string, int> seen;
  size_t withPlaceholders = 0;
  for (const auto& [key, text] : ReadEnglishLines()) {
    ++seen[key];
    ASSERT_TRUE(index.contains(key)) << "not a message of the table: " << key;
    const auto builtIn = Placeholders(MessageDefault(Msg(index[key]).Id));
    EXPECT_EQ(Placeholders(text), builtIn) << key << "=" << text;
    if (!builtIn.empty()) ++withPlaceholders;
  }
  for (const auto& [name, i] : index) EXPECT_EQ(seen[name], 1) << name;
  EXPECT_EQ(withPlaceholders, 10u);  // the messages that carry numbers, so the check above is not vacuous

  FApp.SetLocale(Loaded());
  for (int i = 0; i < kMessageCount; ++i) {
    const std::string text = Msg(i).Text();
    EXPECT_FALSE(text.empty()) << Msg(i).Name();
    EXPECT_TRUE(std::ranges::all_of(text, [](unsigned char c) { return c < 0x80; })) << "untranslated: " << text;
  }
  // The alarm text is appended right after the laser model: its leading blank separates the two.
  EXPECT_EQ("YLR-1000" + SLaserAlarm.Text(), "YLR-1000 laser alarm");
  FApp.SetLocale(nullptr);  // switching back to no locale leaves the texts as they are
  EXPECT_EQ(SLaser.Text(), "Laser");
}

TEST_F(LaserStrsTest, PartialLocaleChangesOnlyItsKeys) {
  FApp.SetLocale(Loaded("[Device_Strs]\nSWarning=Achtung Laser\n[Other]\nSLaser=not ours\n"));
  for (int i = 0; i < kMessageCount; ++i) {
    const std::string expected = Msg(i).Id == EMsg::SWarning ? "Achtung Laser" : MessageDefault(Msg(i).Id);
    EXPECT_EQ(Msg(i).Text(), expected) << Msg(i).Name();
  }

  // A later partial file changes its keys and keeps what the earlier one set.
  FApp.SetLocale(Loaded());
  FApp.SetLocale(Loaded("[Device_Strs]\nSLaser=Source\n"));
  EXPECT_EQ(SLaser.Text(), "Source");
  EXPECT_EQ(SWarning.Text(), "Laser warning");
}

TEST_F(LaserStrsTest, ReadingWhileTheLocaleIsReloadedIsSafe) {
  auto english = Loaded();
  std::vector<std::set<std::string>> allowed(kMessageCount);
  for (int i = 0; i < kMessageCount; ++i) allowed[i].insert(MessageDefault(Msg(i).Id));
  FApp.SetLocale(english);
  for (int i = 0; i < kMessageCount; ++i) allowed[i].insert(Msg(i).Text());
  ResetMessages();

  std::atomic<int> unexpected{0};
  std::atomic<long> reads{0};
  {
    std::vector<std::jthread> readers;
    for (int t = 0; t < 3; ++t)
      readers.emplace_back([&](std::stop_token stop) {
        while (!stop.stop_requested())
          for (int i = 0; i < kMessageCount; ++i) {
            if (!allowed[i].contains(Msg(i).Text())) ++unexpected;
            ++reads;
          }
      });
    while (reads.load() == 0) std::this_thread::yield();  // reload only while someone reads
    for (int round = 0; round < 200; ++round) round % 2 == 0 ? FApp.SetLocale(english) : ResetMessages();
  }  // the readers are stopped and joined here
  EXPECT_EQ(unexpected.load(), 0);
}

}  // namespace
}  // namespace devlaser

namespace {

// ---- the reference host's INI locale resource --------------------------------------------------------------------
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
