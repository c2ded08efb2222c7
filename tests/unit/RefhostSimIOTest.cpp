// The reference host's stateful simulated IO extension.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "refhost/RecordingSink.h"
#include "refhost/SimCtrlExtIO.h"

namespace {

using namespace std::chrono_literals;
using refhost::TIOOp;
using refhost::TSimCtrlExtIO;

TEST(SimCtrlExtIOTest, DefaultPortsExistAsConfiguredAndPortZeroOnlyForAnalogue) {
  TSimCtrlExtIO io;
  EXPECT_FALSE(io.GetOutPortExist(0));
  EXPECT_TRUE(io.GetOutPortExist(64));
  EXPECT_FALSE(io.GetOutPortExist(65));
  EXPECT_FALSE(io.GetInPortExist(0));
  EXPECT_TRUE(io.GetPwmPortExist(4));
  EXPECT_FALSE(io.GetPwmPortExist(5));
  EXPECT_TRUE(io.GetDAPortExist(0));  // configuration DA port 1200
  EXPECT_FALSE(io.GetDAPortExist(8));

  refhost::TSimIOPorts ports;
  ports.Outputs = refhost::TSimIOPorts::Range(0, 8);
  TSimCtrlExtIO custom(ports);
  EXPECT_FALSE(custom.GetOutPortExist(0));  // 0 means "not used", whatever was asked for
  EXPECT_TRUE(custom.GetOutPortExist(8));
  EXPECT_FALSE(custom.GetOutPortExist(9));
  EXPECT_FALSE(custom.GetPwmPortExist(1));  // sets not given are empty
  EXPECT_FALSE(custom.GetInPortExist(1));
}

TEST(SimCtrlExtIOTest, WrittenValuesReadBackAndOnlyExistingPortsChange) {
  TSimCtrlExtIO io;
  for (uint8_t port : {5, 0, 200}) io.SetOutputbit(port, true);
  EXPECT_TRUE(io.GetOutputBit(5));
  EXPECT_FALSE(io.GetOutputBit(0));
  EXPECT_FALSE(io.GetOutputBit(200));

  io.SetPwmEn(1, true);
  io.SetPwmFreq(9, 100.0);
  io.SetDAValue(0, 7.5);
  EXPECT_TRUE(io.GetPwmEn(1));
  EXPECT_EQ(io.GetPwmFreq(9), 0.0);
  EXPECT_EQ(io.GetDAValue(0), 7.5);

  io.SetInput(3, true);
  io.SetInput(0, true);
  io.SetADValue(2, 1.25);
  EXPECT_TRUE(io.GetInputBit(3));
  EXPECT_FALSE(io.GetInputBit(0));
  EXPECT_EQ(io.GetADValue(2), 1.25);

  io.CloseAllOutports();
  EXPECT_FALSE(io.GetOutputBit(5));
  EXPECT_TRUE(io.GetPwmEn(1));  // only digital outputs close
  EXPECT_TRUE(io.GetInputBit(3));
}

// The lines are what an operator compares with the controller's own IO log, so they are exact.
TEST(SimCtrlExtIOTest, EveryWriteIsRecordedInOrderAndPrintedWithAPointAsDecimalSeparator) {
  TSimCtrlExtIO io;
  auto printed = std::make_shared<refhost::TRecordingSink>();
  io.SetPrintSink(printed, "IO");
  io.SetOutputbit(5, true);
  io.SetPwmEn(1, false);
  io.SetPwmFreq(1, 5000.0);
  io.SetPwmRatio(1, 0.5);
  io.SetOutputbit(0, true);  // recorded though the port does not exist
  io.CloseAllOutports();
  io.SetDAValue(3, 2.0 / 3.0);

  const std::vector<std::string> expected = {
      "SetOutputbit: 5, True", "SetPwmEn: 1, False", "SetPwmFreq: 1, 5000.000", "SetPwmRatio: 1, 0.500",
      "SetOutputbit: 0, True", "CloseAllOutports",   "SetDAValue: 3, 0.667"};
  std::vector<std::string> lines;
  for (const auto& write : io.Writes()) lines.push_back(write.Line());
  EXPECT_EQ(lines, expected);
  EXPECT_EQ(io.Writes()[2].Value, 5000.0);
  EXPECT_EQ(io.GetPwmFreq(1), 5000.0);
  EXPECT_EQ(io.GetPwmRatio(1), 0.5);
  EXPECT_LE(io.Writes().front().Time, io.Writes().back().Time);
  EXPECT_EQ(printed->Texts(refhost::TEntryKind::Log), expected);
  EXPECT_EQ(printed->Entries().front().Category, "IO");

  io.ClearWrites();
  io.SetPrintSink(nullptr);
  io.SetOutputbit(1, true);
  EXPECT_EQ(io.Writes().size(), 1u);  // clearing the log keeps the state, and stopping printing keeps recording
  EXPECT_EQ(io.GetDAValue(3), 2.0 / 3.0);
  EXPECT_EQ(printed->Count(), expected.size());
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

TEST(SimCtrlExtIOTest, ConcurrentWritersLoseNothing) {
  TSimCtrlExtIO io;
  constexpr int kThreads = 4;
  constexpr int kWrites = 500;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&io, t] {
      auto port = static_cast<uint8_t>(t + 1);
      for (int i = 0; i < kWrites; ++i) {
        io.SetOutputbit(port, i % 2 == 0);
        io.SetDAValue(port, i);
        (void)io.GetOutputBit(port);
      }
    });
  for (auto& t : threads) t.join();
  auto writes = io.Writes();
  EXPECT_EQ(writes.size(), static_cast<size_t>(kThreads * kWrites * 2));
  for (int t = 0; t < kThreads; ++t) {
    auto port = static_cast<uint8_t>(t + 1);
    EXPECT_FALSE(io.GetOutputBit(port));  // the last write of each thread switched its output off
    EXPECT_EQ(io.GetDAValue(port), kWrites - 1);
  }
}

}  // namespace
