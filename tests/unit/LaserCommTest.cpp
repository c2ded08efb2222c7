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
using refhost::TMessageEntry;

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

  std::vector<TMessageEntry> LoggerEntries() const { return FSink->Entries(TEntryKind::Logger); }

  std::shared_ptr<refhost::TRecordingSink> FSink = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp FApp{FSink};
};

TEST_F(LaserCommTest, SimulatedBoardLogsEveryWriteThroughTheLibraryLogger) {
  TCSLogger logger;
  SetCSLogger(&logger);
  TSimIOExtBoard board;

  board.SetOutputbit(3, true);
  board.SetOutputbit(12, false);
  board.SetPwmEn(1, true);
  board.SetPwmFreq(1, 5000.0);
  board.SetPwmRatio(3, 0.5);
  board.SetDAValue(2, 7.25);
  board.SetDAValue(2, 1.0 / 3.0);
  board.CloseAllOutports();

  std::vector<std::string> texts;
  for (const auto& e : LoggerEntries()) {
    EXPECT_EQ(e.Category, TCSLogger::kCategory);
    EXPECT_EQ(e.Type, nchost::msgtype::kInformation);
    texts.push_back(e.Text);
  }
  EXPECT_EQ(texts, (std::vector<std::string>{
                       "SetOutputbit: 3, True",
                       "SetOutputbit: 12, False",
                       "SetPwmEn: 1, True",
                       "SetPwmFreq: 1, 5000.000",
                       "SetPwmRatio: 3, 0.500",
                       "SetDAValue: 2, 7.250",
                       "SetDAValue: 2, 0.333",
                       "CloseAllOutports",
                   }));
  EXPECT_EQ(FSink->Count(refhost::TRecordingSink::OfKind(TEntryKind::Message)), 0u);
}

TEST_F(LaserCommTest, SimulatedBoardReadsValidOutputsAsSetAndEverythingElseAsZero) {
  TSimIOExtBoard board;  // no library logger: writes go nowhere and must not fail
  board.SetOutputbit(5, true);
  EXPECT_FALSE(board.GetOutputBit(0));
  EXPECT_TRUE(board.GetOutputBit(5));
  EXPECT_TRUE(board.GetOutputBit(255));
  EXPECT_FALSE(board.GetInputBit(5));
  EXPECT_FALSE(board.GetPwmEn(1));
  EXPECT_EQ(board.GetPwmFreq(1), 0.0);
  EXPECT_EQ(board.GetPwmRatio(1), 0.0);
  EXPECT_EQ(board.GetDAValue(1), 0.0);
  EXPECT_EQ(board.GetADValue(1), 0.0);
  for (uint8_t port : {uint8_t{0}, uint8_t{7}}) {
    const bool valid = port != 0;
    EXPECT_EQ(board.GetOutPortExist(port), valid);
    EXPECT_EQ(board.GetInPortExist(port), valid);
    EXPECT_EQ(board.GetPwmPortExist(port), valid);
    EXPECT_EQ(board.GetDAPortExist(port), valid);
    EXPECT_EQ(board.GetADPortExist(port), valid);
  }
  EXPECT_TRUE(LoggerEntries().empty());
}

TEST_F(LaserCommTest, LoggerLevelFollowsTheMessageType) {
  TCSLogger logger;
  ASSERT_TRUE(logger.Enabled());  // the host's own logger is enabled
  logger.ShowMsg("info", nchost::msgtype::kInformation);
  logger.ShowMsg("warn", nchost::msgtype::kWarning);
  logger.ShowMsg("err", nchost::msgtype::kError);
  logger.ShowMsg("plain", nchost::msgtype::kLaserLog);
  logger.Check(true, "not sent");
  logger.Check(false, "check failed");

  std::vector<std::pair<std::string, int>> got;
  for (const auto& e : LoggerEntries()) got.emplace_back(e.Text, e.Type);
  // SendMsg, SendWarning, SendError and the plain Send of the host logger.
  EXPECT_EQ(got, (std::vector<std::pair<std::string, int>>{{"info", nchost::msgtype::kInformation},
                                                           {"warn", nchost::msgtype::kWarning},
                                                           {"err", nchost::msgtype::kError},
                                                           {"plain", nchost::msgtype::kTrace},
                                                           {"check failed", nchost::msgtype::kError}}));
}

TEST_F(LaserCommTest, LoggerStaysSilentWhenTheHostLoggerIsOffOrMissing) {
  FApp.HostLogger().SetEnabled(false);
  {
    TCSLogger logger;
    EXPECT_FALSE(logger.Enabled());
    logger.ShowMsg("dropped", nchost::msgtype::kError);
  }
  EXPECT_TRUE(LoggerEntries().empty());

  SetHost(nullptr);
  TCSLogger orphan;  // no host at all: a logger that does nothing
  EXPECT_FALSE(orphan.Enabled());
  orphan.ShowMsg("nowhere", nchost::msgtype::kInformation);
  orphan.Check(false, "nowhere");
}

TEST_F(LaserCommTest, DebugModeIsOffOnTheMonitorThreadOnly) {
  EXPECT_FALSE(GLaserDebugMode());
  SetLaserDebugMode(true);

  // The monitor thread stays alive while the others look: an ended thread's identifier may be given to the next.
  std::latch registered(1), othersDone(1);
  bool onMonitor = true, onOther = false;
  std::thread::id monitorId;
  std::jthread monitor([&] {
    monitorId = std::this_thread::get_id();
    SetLaserMonThreadID(monitorId);
    onMonitor = GLaserDebugMode();
    registered.count_down();
    othersDone.wait();
  });
  registered.wait();
  {
    std::jthread other([&] { onOther = GLaserDebugMode(); });
  }
  EXPECT_FALSE(onMonitor);
  EXPECT_TRUE(onOther);
  EXPECT_TRUE(GLaserDebugMode());

  // Registering the calling thread silences it instead.
  SetLaserMonThreadID(std::this_thread::get_id());
  EXPECT_FALSE(GLaserDebugMode());
  SetLaserMonThreadID(monitorId);
  EXPECT_TRUE(GLaserDebugMode());

  SetLaserDebugMode(false);
  EXPECT_FALSE(GLaserDebugMode());
  othersDone.count_down();
}

class LaserConnCheckTest : public LaserCommTest {
 protected:
  size_t Warnings() const {
    return FSink->Count([](const TMessageEntry& e) {
      return e.Kind == TEntryKind::Message && e.Type == nchost::msgtype::kWarning &&
             e.Text == SLaserConnectedFail.Text();
    });
  }
  size_t Messages() const { return FSink->Count(refhost::TRecordingSink::OfKind(TEntryKind::Message)); }
};

TEST_F(LaserConnCheckTest, WarnsOncePerIntervalAndAgainAtOnceAfterAGoodCheckOrARestart) {
  TLaserConnCheck check;
  check.Initialize(10);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(check.CheckConnection(false));
  EXPECT_EQ(Warnings(), 1u);
  EXPECT_EQ(Messages(), 1u);

  EXPECT_TRUE(check.CheckConnection(true));  // re-arms: the next loss is reported at once
  EXPECT_EQ(Messages(), 1u);
  EXPECT_FALSE(check.CheckConnection(false));
  EXPECT_FALSE(check.CheckConnection(false));
  EXPECT_EQ(Warnings(), 2u);

  // Good checks while nothing is pending show nothing.
  EXPECT_TRUE(check.CheckConnection(true));
  EXPECT_TRUE(check.CheckConnection(true));
  EXPECT_EQ(Messages(), 2u);

  check.CheckConnection(false);
  check.Initialize(10);  // a fresh start (new connection settings) reports the first loss at once
  check.CheckConnection(false);
  EXPECT_EQ(Warnings(), 4u);

  check.Initialize(0);  // no interval: every failed check warns
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(check.CheckConnection(false));
  EXPECT_EQ(Warnings(), 7u);
}

}  // namespace
}  // namespace devlaser
