// The reference host's application object, its loggers and its message sinks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/HostDefs.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"
#include "refhost/TextSinks.h"

namespace {

using refhost::TEntryKind;
using testing::ElementsAre;
using testing::HasSubstr;
namespace msgtype = nchost::msgtype;

class RefAppTest : public testing::Test {
 protected:
  std::shared_ptr<refhost::TRecordingSink> FRecorder = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FRecorder};
};

TEST(MessageSinkTest, JsonLinesStayOneValidObjectWhateverTheText) {
  // A laser's reply may hold any bytes; the line must still be one valid JSON object.
  std::string line =
      refhost::FormatJsonLine({TEntryKind::Message, msgtype::kInformation, "", "reply \"\xFF\xFE\"\n", 0x00FF00});
  EXPECT_EQ(line.find('\n'), std::string::npos);
  auto obj = nlohmann::json::parse(line);
  EXPECT_EQ(obj["text"], "reply \"\xEF\xBF\xBD\xEF\xBF\xBD\"\n");
  EXPECT_EQ(obj["color"], 0x00FF00);
}

// Each entry is flushed at once (the file is readable while the sink is open) and a second sink appends.
TEST(MessageSinkTest, FileSinkAppendsOneFlushedLinePerEntry) {
  auto path = std::filesystem::temp_directory_path() / ("refhost-sink-" + std::to_string(::getpid()) + ".log");
  std::filesystem::remove(path);
  std::string error;
  auto text = refhost::TFileSink::Open(path.string(), refhost::TLineFormat::Text, error);
  ASSERT_NE(text, nullptr) << error;
  text->Write({TEntryKind::Log, msgtype::kWarning, "Laser", "first", 0});
  auto json = refhost::TFileSink::Open(path.string(), refhost::TLineFormat::JsonLines, error);
  ASSERT_NE(json, nullptr) << error;
  json->Write({TEntryKind::Logger, msgtype::kTrace, "LaserLogger", "second", 0});
  std::ifstream in(path);
  std::string first, second;
  std::getline(std::getline(in, first), second);
  EXPECT_EQ(first, "[warning] Laser: first");
  EXPECT_EQ(nlohmann::json::parse(second)["text"], "second");
  std::filesystem::remove(path);

  EXPECT_EQ(refhost::TFileSink::Open("/nonexistent-dir/x.log", refhost::TLineFormat::Text, error), nullptr);
  EXPECT_THAT(error, HasSubstr("/nonexistent-dir/x.log"));
}

TEST_F(RefAppTest, MessagesLogLinesAndLoggersReachTheSinkWithKindTypeAndCategory) {
  FApp.ShowMsg("激光器串口/网络连接失败.", msgtype::kWarning, 0xFF0000);
  FApp.LogMsg("STA 0x1000", msgtype::kLaserLog, "Laser");
  auto logger = FApp.CreateLogger("LaserLogger");
  ASSERT_NE(logger, nullptr);
  logger->Send("trace");
  logger->SendMsg("info");
  logger->SendWarning("warning");
  logger->SendError("error");
  logger->SetEnabled(false);
  logger->SendError("dropped");

  std::vector<std::tuple<TEntryKind, int, std::string, std::string>> got;
  for (const auto& e : FRecorder->Entries()) got.emplace_back(e.Kind, e.Type, e.Category, e.Text);
  EXPECT_THAT(got, ElementsAre(std::tuple(TEntryKind::Message, msgtype::kWarning, "", "激光器串口/网络连接失败."),
                               std::tuple(TEntryKind::Log, msgtype::kLaserLog, "Laser", "STA 0x1000"),
                               std::tuple(TEntryKind::Logger, msgtype::kTrace, "LaserLogger", "trace"),
                               std::tuple(TEntryKind::Logger, msgtype::kInformation, "LaserLogger", "info"),
                               std::tuple(TEntryKind::Logger, msgtype::kWarning, "LaserLogger", "warning"),
                               std::tuple(TEntryKind::Logger, msgtype::kError, "LaserLogger", "error")));
  EXPECT_EQ(FRecorder->Entries()[0].Color, 0xFF0000u);
}

TEST_F(RefAppTest, LocaleProceduresRunInOrderAndAThrowingOrSelfRemovingOneDoesNotStopTheOthers) {
  std::string ran;
  const int first = FApp.RegisterLocaleProc([&] { ran += "1"; });
  FApp.RegisterLocaleProc([] { throw std::runtime_error("bad translation table"); });
  int handle = 0;
  handle = FApp.RegisterLocaleProc([&] {
    ran += "3";
    FApp.UnregisterLocaleProc(handle);  // a procedure may unregister itself and register another while they run
    FApp.RegisterLocaleProc([&] { ran += "4"; });
  });
  FApp.SetLocale(nullptr);
  EXPECT_EQ(ran, "13");
  EXPECT_TRUE(FRecorder->Contains("bad translation table"));
  FApp.UnregisterLocaleProc(first);
  FApp.RunLocaleProcs();
  EXPECT_EQ(ran, "134");
}

TEST_F(RefAppTest, ThreadNamesAreCutToWhatTheSystemHoldsWithoutSplittingACharacter) {
  auto nameAfter = [&](const std::string& name) {
    std::string result;
    std::thread t([&] {
      FApp.SetThreadName(name);
      char buffer[64] = {};
      pthread_getname_np(pthread_self(), buffer, sizeof buffer);
      result = buffer;
    });
    t.join();
    return result;
  };
  EXPECT_EQ(nameAfter("IPGMonitorThreadOfLaser"), "IPGMonitorThrea");
  EXPECT_EQ(nameAfter("ab激光器激光器"), "ab激光器激");  // 14 bytes: the 5th character would end at byte 17
}

}  // namespace
