#include "frame/LaserComm.h"

#include <gtest/gtest.h>

#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "frame/HostServices.h"
#include "frame/LaserStrs.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"

namespace devlaser {
namespace {

using refhost::TEntryKind;

class LaserCommTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetMessages();
    SetHost(&FApp);
  }
  void TearDown() override {
    SetCSLogger(nullptr);
    SetLaserDebugMode(false);
    SetLaserMonThreadID({});
    SetHost(nullptr);
  }

  std::vector<refhost::TMessageEntry> LoggerEntries() const { return FSink->Entries(TEntryKind::Logger); }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
};

TEST_F(LaserCommTest, SimulatedBoardLogsEveryWriteThroughTheLibraryLogger) {
  TCSLogger logger;
  SetCSLogger(&logger);
  TSimIOExtBoard board;
  board.SetOutputbit(3, true);
  board.SetPwmFreq(1, 5000.0);
  board.SetDAValue(2, 1.0 / 3.0);

  std::vector<std::string> texts;
  for (const auto& e : LoggerEntries()) {
    EXPECT_EQ(std::pair(e.Category, e.Type),
              std::pair(std::string(TCSLogger::kCategory), nchost::msgtype::kInformation));
    texts.push_back(e.Text);
  }
  EXPECT_EQ(texts,
            (std::vector<std::string>{"SetOutputbit: 3, True", "SetPwmFreq: 1, 5000.000", "SetDAValue: 2, 0.333"}));
}

// ShowMsg picks SendMsg, SendWarning, SendError or the plain Send of the host logger by the message type.
TEST_F(LaserCommTest, LoggerLevelFollowsTheMessageType) {
  using namespace nchost::msgtype;
  TCSLogger logger;
  logger.ShowMsg("info", kInformation);
  logger.ShowMsg("warn", kWarning);
  logger.ShowMsg("err", kError);
  logger.ShowMsg("plain", kLaserLog);
  logger.Check(true, "not sent");
  logger.Check(false, "check failed");
  std::vector<std::pair<std::string, int>> got,
      expected = {
          {"info", kInformation}, {"warn", kWarning}, {"err", kError}, {"plain", kTrace}, {"check failed", kError}};
  for (const auto& e : LoggerEntries()) got.emplace_back(e.Text, e.Type);
  EXPECT_EQ(got, expected);
}

TEST_F(LaserCommTest, LoggerStaysSilentWhenTheHostLoggerIsOffOrMissing) {
  FApp.HostLogger().SetEnabled(false);
  TCSLogger logger;
  logger.ShowMsg("dropped", nchost::msgtype::kError);
  EXPECT_TRUE(LoggerEntries().empty());
  SetHost(nullptr);
  TCSLogger orphan;  // no host at all: a logger that does nothing
  orphan.ShowMsg("nowhere", nchost::msgtype::kInformation);
  orphan.Check(false, "nowhere");
}

TEST_F(LaserCommTest, DebugModeIsOffOnTheMonitorThreadOnly) {
  EXPECT_FALSE(GLaserDebugMode());
  SetLaserDebugMode(true);

  // The monitor thread stays alive while the others look: an ended thread's identifier may be given to the next.
  std::latch registered(1), othersDone(1);
  bool onMonitor = true;
  std::jthread monitor([&] {
    SetLaserMonThreadID(std::this_thread::get_id());
    onMonitor = GLaserDebugMode();
    registered.count_down();
    othersDone.wait();
  });
  registered.wait();
  EXPECT_FALSE(onMonitor);
  EXPECT_TRUE(GLaserDebugMode());  // on this thread, which is not the monitor
  othersDone.count_down();
}

// Counts the operator messages shown, each of which must be the connection warning.
class LaserConnCheckTest : public LaserCommTest {
 protected:
  size_t Warnings() const {
    const auto shown = FSink->Entries(TEntryKind::Message);
    for (const auto& e : shown)
      EXPECT_EQ(std::pair(e.Type, e.Text), std::pair(int{nchost::msgtype::kWarning}, SLaserConnectedFail.Text()));
    return shown.size();
  }
};

TEST_F(LaserConnCheckTest, WarnsOncePerIntervalAndAgainAtOnceAfterAGoodCheckOrARestart) {
  TLaserConnCheck check;
  check.Initialize(10);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(check.CheckConnection(false));
  EXPECT_EQ(Warnings(), 1u);
  EXPECT_TRUE(check.CheckConnection(true));  // re-arms: the next loss is reported at once
  EXPECT_TRUE(check.CheckConnection(true));  // and good checks show nothing
  EXPECT_FALSE(check.CheckConnection(false));
  EXPECT_FALSE(check.CheckConnection(false));
  EXPECT_EQ(Warnings(), 2u);

  check.Initialize(10);  // a fresh start (new connection settings) reports the first loss at once
  check.CheckConnection(false);
  EXPECT_EQ(Warnings(), 3u);
  check.Initialize(0);  // no interval: every failed check warns
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(check.CheckConnection(false));
  EXPECT_EQ(Warnings(), 6u);
}

}  // namespace
}  // namespace devlaser
