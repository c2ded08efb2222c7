#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrStatus.h"

namespace lasersim {
namespace {

using namespace std::chrono_literals;
using TReplyMode = TIpgYlrEngine::TReplyMode;

std::string Ask(TIpgYlrEngine& engine, const std::string& command) { return engine.Feed(command + "\r"); }

uint32_t StatusFromReply(TIpgYlrEngine& engine) {
  const std::string reply = Ask(engine, "STA");
  EXPECT_EQ(reply.rfind("STA: ", 0), 0u) << reply;
  return static_cast<uint32_t>(std::stoul(reply.substr(5)));
}

TEST(IpgSimEngine, FramesCommandsByCarriageReturnAcrossAndWithinFeeds) {
  TIpgYlrEngine engine;
  EXPECT_EQ(engine.Feed("ST"), "");
  EXPECT_EQ(engine.Feed("A"), "");
  EXPECT_EQ(engine.Feed("\rEMON\rSDC 4"), "STA: 0\rEMON\r");
  EXPECT_EQ(engine.Feed("0\r\r  \n rcs \r\n"), "SDC: 40\rRCS: 40\r");
  EXPECT_EQ(engine.Log().Commands(), (std::vector<std::string>{"STA", "EMON", "SDC 40", "rcs"}));

  // A new client must not inherit the half command of the previous one.
  engine.Feed("SDC 9");
  engine.ResetInput();
  EXPECT_EQ(Ask(engine, "RCS"), "RCS: 40\r");
}

TEST(IpgSimEngine, SetPointsAndReadersAnswerAndOutOfRangeValuesAreRefused) {
  TIpgYlrEngine engine;
  EXPECT_EQ(engine.Feed("SDC 40.5\rSDC 100.01\rSDC\rSDC 4O\rRCS\r"),
            "SDC: 40.5\rERR: Out of range\rERR: Missing parameter\rERR: Invalid parameter\rRCS: 40.5\r");
  EXPECT_EQ(engine.Feed("SPRR 10.5\rSPW 0.5\rSPW 50.01\rRPW\r"),
            "ERR: Invalid parameter\rSPW: 0.50\rERR: Out of range\rRPW: 0.50\r");
  engine.SetNominalPower(2000);
  EXPECT_EQ(engine.Feed("ROP\rEMON\rROP\rEMON 1\rXYZ\r"),
            "ROP: Off\rEMON\rROP: 810\rERR: Invalid parameter\rERR: Unknown command\r");
}

TEST(IpgSimEngine, AlarmsShowInTheStatusBlockEmissionAndAreClearedByReset) {
  TIpgYlrEngine engine;
  engine.SetAlarmWord(ipgylr::kAveragePowerTooHigh | ipgylr::kEmission | ipgylr::kPowerSupplyOff);
  EXPECT_EQ(engine.AlarmWord(), ipgylr::kAveragePowerTooHigh) << "laser-state bits belong to the commands";
  EXPECT_EQ(Ask(engine, "EMON"), "EMON\r") << "a warning does not stop emission";
  EXPECT_EQ(StatusFromReply(engine), ipgylr::kAveragePowerTooHigh | ipgylr::kEmission);

  engine.RaiseAlarms(ipgylr::kOverheat);
  EXPECT_EQ(engine.StatusWord(), ipgylr::kAveragePowerTooHigh | ipgylr::kOverheat) << "a fault ends emission";
  EXPECT_EQ(Ask(engine, "EMON"), "ERR: Emission blocked by alarm\r");

  EXPECT_EQ(Ask(engine, "RERR"), "RERR\r");
  EXPECT_EQ(StatusFromReply(engine), 0u);
  EXPECT_EQ(Ask(engine, "EMON"), "EMON\r");

  engine.SetPowerSupplyOff(true);
  EXPECT_EQ(engine.StatusWord(), ipgylr::kPowerSupplyOff);
  EXPECT_EQ(Ask(engine, "EMON"), "ERR: Power supply off\r");
  engine.SetPowerSupplyOff(false);
  EXPECT_EQ(Ask(engine, "EMON"), "EMON\r");
}

TEST(IpgSimEngine, AnOverlongLineIsDroppedUpToItsCarriageReturnAndFlagsBufferOverload) {
  TIpgYlrEngine engine;
  const std::string flood(TIpgYlrEngine::kMaxLineLength + 1, 'A');
  EXPECT_EQ(engine.Feed(flood), "ERR: Command too long\r");
  EXPECT_EQ(engine.Feed(flood + "EMON\rSTA\r"), "STA: 1\r") << "the rest of the long line, EMON included, is dropped";
  EXPECT_EQ(Ask(engine, "RERR"), "RERR\r");
  EXPECT_EQ(engine.StatusWord(), 0u);
}

TEST(IpgSimEngine, SilentAndGarbageModesLogCommandsButNeitherAnswerNorExecuteThem) {
  TIpgYlrEngine engine;
  engine.SetReplyMode(TReplyMode::Silent);
  EXPECT_EQ(engine.Feed("EMON\rSTA\r"), "");

  engine.SetReplyMode(TReplyMode::GarbageLines);
  const std::string junk = engine.Feed("ABN\rSTA\rRCS\r");
  ASSERT_EQ(std::count(junk.begin(), junk.end(), '\r'), 3);
  ASSERT_EQ(junk.back(), '\r');
  std::istringstream in(junk);
  for (std::string line; std::getline(in, line, '\r');) {
    EXPECT_FALSE(line.empty());
    for (char c : line) EXPECT_FALSE(c >= 'A' && c <= 'Z') << "junk must never look like a reply: " << line;
  }

  engine.SetReplyMode(TReplyMode::GarbageBytes);
  const std::string bytes = engine.Feed("STA\rEMON\r");
  EXPECT_GE(bytes.size(), 16u);
  EXPECT_EQ(bytes.find('\r'), std::string::npos);

  EXPECT_EQ(engine.Log().Commands(), (std::vector<std::string>{"EMON", "STA", "ABN", "STA", "RCS", "STA", "EMON"}));
  EXPECT_EQ(engine.StatusWord(), 0u);
  engine.SetReplyMode(TReplyMode::Normal);
  EXPECT_EQ(Ask(engine, "STA"), "STA: 0\r");
}

TEST(IpgSimEngine, CommandLogWaitsForCommandsFromAnotherThreadAndKeepsTheLatest) {
  TIpgYlrEngine engine;
  std::thread feeder([&] { engine.Feed("STA\rEMON\rSTA\r"); });
  EXPECT_TRUE(engine.Log().WaitFor("STA", 10s, 2));
  feeder.join();
  EXPECT_FALSE(engine.Log().WaitFor("STA", 10ms, 3));
}

}  // namespace
}  // namespace lasersim
