// The reference host's stateful simulated IO extension.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "refhost/RecordingSink.h"
#include "refhost/SimCtrlExtIO.h"

namespace {

using namespace std::chrono_literals;
using refhost::TIOOp;
using refhost::TSimCtrlExtIO;

// The lines are what an operator compares with the controller's own IO log, so they are exact.
TEST(SimCtrlExtIOTest, EveryWriteIsRecordedInOrderAndPrintedWithAPointAsDecimalSeparator) {
  TSimCtrlExtIO io;
  auto printed = std::make_shared<refhost::TRecordingSink>();
  io.SetPrintSink(printed, "IO");
  io.SetOutputbit(5, true);
  io.SetPwmRatio(1, 0.5);
  io.SetOutputbit(0, true);  // recorded though the port does not exist
  io.SetDAValue(3, 2.0 / 3.0);

  const std::vector<std::string> expected = {"SetOutputbit: 5, True", "SetPwmRatio: 1, 0.500", "SetOutputbit: 0, True",
                                             "SetDAValue: 3, 0.667"};
  std::vector<std::string> lines;
  for (const auto& write : io.Writes()) lines.push_back(write.Line());
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(printed->Texts(refhost::TEntryKind::Log), expected);
  EXPECT_EQ(printed->Entries().front().Category, "IO");
}

TEST(SimCtrlExtIOTest, WaitersWakeWhenAnotherThreadChangesTheState) {
  TSimCtrlExtIO io;
  std::thread laser([&] {
    std::this_thread::sleep_for(20ms);
    io.SetPwmRatio(2, 0.75);
    io.SetOutputbit(7, true);
  });
  EXPECT_TRUE(io.WaitUntil([](const refhost::TSimIOState& s) { return s.Outputs.test(7); }, 10s));
  EXPECT_TRUE(io.WaitForWrite([](const refhost::TIOWrite& w) { return w.Op == TIOOp::SetPwmRatio; }, 10s));
  laser.join();

  EXPECT_FALSE(io.WaitUntil([](const refhost::TSimIOState& s) { return s.Outputs.test(8); }, 10ms));
  EXPECT_FALSE(io.WaitForWrite([](const refhost::TIOWrite& w) { return w.Op == TIOOp::SetDAValue; }, 10ms));
}

}  // namespace
