// The shared serial command thread, driven by a made-up maker's command set (STX-framed commands, "OK" as its
// connection answer) over an in-memory line: whatever it does right here it does for every maker, and the Raycus
// laser's tests only add what its own command set means.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"
#include "serial/SerialCmdThread.h"
#include "serial/SerialText.h"
#include "support/FakeSerialPort.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using testsupport::Bytes;
using testsupport::TFakeSerialPeer;
using testsupport::TFakeSerialPort;

// A second maker: STX letter value ETX. Its repeated setting is the power ('P'); "OK" means connected, a chunk
// starting with '!' is a fault it reports.
class TStxCmdSet final : public TSerialCmdSet {
 public:
  TCommCmd RepeatedCmd(uint8_t value) const override {
    TCommCmd cmd;
    const std::array<uint8_t, 4> bytes{0x02, 'P', value, 0x03};
    cmd.Assign(bytes);
    return cmd;
  }
  void OnReceived(const TReceiveBuffer& buffer, size_t count, TSerialRun& run) override {
    Chunks.emplace_back(reinterpret_cast<const char*>(buffer.data()), count);
    if (count >= 2 && buffer[0] == 'O' && buffer[1] == 'K') run.ShowConnectedOnce();
    if (count >= 1 && buffer[0] == '!') run.ReportFault("TStxLaser Reply Fault:", "bad reply");
  }
  std::vector<std::string> Chunks;  // only touched by the thread until it is stopped
};

std::string Stx(char letter, uint8_t value) { return std::string{'\x02', letter, static_cast<char>(value), '\x03'}; }
std::vector<uint8_t> Vec(const std::string& s) { return {s.begin(), s.end()}; }

class SerialCmdThreadTest : public testing::TLaserHostFixture {
 protected:
  void TearDown() override {
    FThread.reset();
    TLaserHostFixture::TearDown();
  }

  TSerialCmdThread& Start(TSerialPacing pacing = {}) {
    TSerialThreadOptions options;
    options.Name = "StxSerial";
    options.FaultPrefix = "TStxLaser Exception:";
    options.CommPort = 3;
    options.CommSettings = "19200,e,8,1";
    options.Pacing = pacing;
    auto set = std::make_unique<TStxCmdSet>();
    FSet = set.get();
    FThread = std::make_unique<TSerialCmdThread>(options, std::move(set), std::make_unique<TFakeSerialPort>(FPeer));
    return *FThread;
  }
  size_t Shown(const std::string& text) const {
    return FSink->Count([&](const refhost::TMessageEntry& e) {
      return e.Kind == refhost::TEntryKind::Message && e.Text.rfind(text, 0) == 0;
    });
  }

  std::shared_ptr<TFakeSerialPeer> FPeer = std::make_shared<TFakeSerialPeer>();
  TStxCmdSet* FSet = nullptr;
  std::unique_ptr<TSerialCmdThread> FThread;
};

TEST_F(SerialCmdThreadTest, RepeatsTheLatestValueInIdleCyclesAndLetsQueuedCommandsGoFirst) {
  auto& thread = Start();
  // Acting inside the thread's second write makes the interleaving exact: a command queued and a newer value set
  // while repeats are pending.
  FPeer->SetWriteHook([&](const std::string&, size_t index) {
    if (index == 1) {
      thread.LockAddCmd(Vec(Stx('E', 1)));
      thread.SetRepeatedValue(77);
    }
  });
  thread.SetRepeatedValue(40);
  ASSERT_TRUE(FPeer->WaitForWrites(8));
  std::this_thread::sleep_for(150ms);  // time for a wrong ninth write
  EXPECT_THAT(FPeer->Writes(), ElementsAre(Stx('P', 40), Stx('P', 40), Stx('E', 1), Stx('P', 77), Stx('P', 77),
                                           Stx('P', 77), Stx('P', 77), Stx('P', 77)));
  EXPECT_EQ(FPeer->Settings(), "19200,e,8,1");
  EXPECT_EQ(FPeer->PortNumber(), 3);
}

TEST_F(SerialCmdThreadTest, TakesCommandsOfOneTo28BytesAndDropsOthersSilently) {
  auto& thread = Start();
  const std::vector<uint8_t> longest(28, 0x41), tooLong(29, 0x42), empty;
  EXPECT_FALSE(thread.LockAddCmd(tooLong));
  EXPECT_FALSE(thread.LockAddCmd(empty));
  EXPECT_TRUE(thread.LockAddCmd(longest));
  ASSERT_TRUE(FPeer->WaitForWrites(1));
  std::this_thread::sleep_for(100ms);
  EXPECT_THAT(FPeer->Writes(), ElementsAre(std::string(28, 'A')));
  EXPECT_EQ(FSink->Count(), 0u);
}

TEST_F(SerialCmdThreadTest, ConsumesEverythingWaitingBeforeItWrites) {
  FPeer->Send("OK");
  FPeer->Send("OK");
  FPeer->Send("xyz");
  auto& thread = Start();
  thread.LockAddCmd(Vec(Stx('E', 1)));
  ASSERT_TRUE(FPeer->WaitForWrites(1));
  EXPECT_THAT(FPeer->Ops(), ElementsAre("open", "read:4F 4B", "read:4F 4B", "read:78 79 7A", "write:02 45 01 03"));
  thread.Stop();
  EXPECT_THAT(FSet->Chunks, ElementsAre("OK", "OK", "xyz"));
  // Once per run of the thread, however often the laser says so.
  EXPECT_EQ(Shown(SLaserConnectedOk.Text()), 1u);
}

TEST_F(SerialCmdThreadTest, AWriteThatTakesNothingLosesItsCommand) {
  auto& thread = Start();
  FPeer->LoseWrites(1);
  thread.LockAddCmd(Vec(Stx('A', 1)));
  thread.LockAddCmd(Vec(Stx('B', 2)));
  ASSERT_TRUE(FPeer->WaitForWrites(1));
  std::this_thread::sleep_for(100ms);
  EXPECT_THAT(FPeer->Writes(), ElementsAre(Stx('B', 2)));
}

TEST_F(SerialCmdThreadTest, RetriesAPortThatWillNotOpenSilentlyAndSendsOnceItDoes) {
  FPeer->SetOpenable(false);
  auto& thread = Start();
  thread.LockAddCmd(Vec(Stx('A', 1)));
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(FPeer->WriteCount(), 0u);
  FPeer->SetOpenable(true);
  ASSERT_TRUE(FPeer->WaitForWrites(1));
  EXPECT_EQ(FPeer->Writes()[0], Stx('A', 1));
  EXPECT_EQ(FSink->Count(), 0u);
}

TEST_F(SerialCmdThreadTest, ShowsOnlyTheFirstFaultOfItsLifeAndKeepsRunning) {
  auto& thread = Start();
  FPeer->ThrowNext("line broke", 3);
  FPeer->Send("!");
  ASSERT_TRUE(
      FSink->WaitFor([](const refhost::TMessageEntry& e) { return e.Text == "TStxLaser Exception:line broke"; }, 5s));
  thread.LockAddCmd(Vec(Stx('A', 1)));
  ASSERT_TRUE(FPeer->WaitForWrites(1));
  thread.Stop();
  // The reply fault came after the first one was shown: swallowed, like the other two.
  EXPECT_EQ(FSet->Chunks, std::vector<std::string>{"!"});
  const auto shown = FSink->Entries(refhost::TEntryKind::Message);
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].Type, nchost::msgtype::kLaserLog);
}

TEST_F(SerialCmdThreadTest, ACallerNeverWaitsForTheLine) {
  auto& thread = Start();
  // The thread sits inside a write until the caller below has queued: a queue lock held across the write (and
  // the pause after it) would never let the caller through.
  std::promise<void> queued;
  auto done = queued.get_future().share();
  FPeer->SetWriteHook([&](const std::string&, size_t index) {
    if (index == 0) done.wait_for(10s);
  });
  thread.LockAddCmd(Vec(Stx('A', 1)));
  ASSERT_TRUE(FPeer->WaitForWrites(1));
  auto caller = std::async(std::launch::async, [&] {
    thread.LockAddCmd(Vec(Stx('B', 2)));
    thread.SetRepeatedValue(5);
  });
  EXPECT_EQ(caller.wait_for(3s), std::future_status::ready);
  queued.set_value();
  ASSERT_TRUE(FPeer->WaitForWrites(2));
  EXPECT_EQ(FPeer->Writes()[1], Stx('B', 2));
}

TEST_F(SerialCmdThreadTest, StopWritesWhatWasQueuedClosesThePortAndThenStaysSilent) {
  // A long idle wait: the commands are still queued when the stop comes.
  TSerialPacing slow;
  slow.AfterWriteMs = 1000;
  auto& thread = Start(slow);
  thread.LockAddCmd(Vec(Stx('A', 1)));
  ASSERT_TRUE(FPeer->WaitForWrites(1));
  thread.LockAddCmd(Vec(Stx('S', 0)));
  thread.SetRepeatedValue(9);
  thread.Stop();
  EXPECT_THAT(FPeer->Writes(), ElementsAre(Stx('A', 1), Stx('S', 0)));
  EXPECT_FALSE(FPeer->IsOpen());
  EXPECT_TRUE(thread.Stopped());
  EXPECT_FALSE(thread.LockAddCmd(Vec(Stx('B', 2))));
  thread.SetRepeatedValue(10);
  thread.Stop();
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(FPeer->WriteCount(), 2u);
  EXPECT_EQ(FPeer->Ops().back(), "close");
}

TEST_F(SerialCmdThreadTest, StopDropsAnOldBacklogButNotTheNewestCommands) {
  FPeer->SetOpenable(false);  // nothing goes out: the queue backs up
  auto& thread = Start();
  for (uint8_t i = 0; i < 10; ++i) thread.LockAddCmd(Vec(Stx('A', i)));
  FPeer->SetOpenable(true);
  FPeer->Activate(true);  // open now, before the thread's next attempt could start sending the backlog
  thread.Stop();
  const auto writes = FPeer->Writes();
  ASSERT_GE(writes.size(), TSerialCmdThread::kStopFlushLimit);
  EXPECT_LT(writes.size(), 10u);  // the thread may have sent the oldest one or two before the stop
  const std::vector<std::string> newest(writes.end() - TSerialCmdThread::kStopFlushLimit, writes.end());
  EXPECT_THAT(newest, ElementsAre(Stx('A', 6), Stx('A', 7), Stx('A', 8), Stx('A', 9)));
}

// The hex dump is read in the Raycus laser's debug-mode case.
TEST(SerialTextTest, ReceivedTextMustBeValidUtf8) {
  const std::string chinese = "\xE6\xBF\x80\xE5\x85\x89 TS";
  EXPECT_EQ(DecodeText(Vec(chinese)), chinese);
  for (const std::string& bad : {std::string("\x80"), std::string("T\xC0\xAF"), std::string("\xED\xA0\x80"),
                                 std::string("\xE6\xBF"), std::string("\xFE")})
    EXPECT_THROW(DecodeText(Vec(bad)), std::exception) << testsupport::Hex(bad);
}

}  // namespace
}  // namespace devlaser
