#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrStatus.h"

namespace lasersim {
namespace {

using namespace std::chrono_literals;
using TReplyMode = TIpgYlrEngine::TReplyMode;

std::vector<std::string> SplitLines(const std::string& replies) {
  EXPECT_TRUE(replies.empty() || replies.back() == '\r') << "reply not ended by CR: " << replies;
  std::vector<std::string> lines;
  std::istringstream in(replies);
  for (std::string line; std::getline(in, line, '\r');) lines.push_back(line);
  return lines;
}

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

TEST(IpgSimEngine, SwitchesSetAndClearTheirStatusBitsAndAcknowledgeWithTheMnemonic) {
  const std::vector<std::pair<std::pair<const char*, const char*>, uint32_t>> switches = {
      {{"EMON", "EMOFF"}, ipgylr::kEmission},
      {{"ABN", "ABF"}, ipgylr::kAimingBeam},
      {{"EPM", "DPM"}, ipgylr::kPulseMode},
      {{"EGM", "DGM"}, ipgylr::kGateMode},
      {{"EMOD", "DMOD"}, ipgylr::kModulation},
      {{"EEC", "DEC"}, ipgylr::kExternalControl},
      {{"EEABC", "DEABC"}, ipgylr::kExternalAimControl},
      {{"ELE", "DLE"}, ipgylr::kEmissionControl},
  };
  TIpgYlrEngine engine;
  for (const auto& [names, bit] : switches) {
    const auto [on, off] = names;
    EXPECT_EQ(Ask(engine, on), std::string(on) + "\r");
    EXPECT_EQ(StatusFromReply(engine), bit) << on;
    EXPECT_EQ(Ask(engine, off), std::string(off) + "\r");
    EXPECT_EQ(StatusFromReply(engine), 0u) << off;
  }

  // Digital power select stays until the analogue input takes over.
  EXPECT_EQ(Ask(engine, "SDS"), "SDS\r");
  Ask(engine, "DEC");
  EXPECT_EQ(engine.StatusWord(), ipgylr::kDigitalPowerSelect);
  Ask(engine, "EEC");
  EXPECT_EQ(engine.StatusWord(), ipgylr::kExternalControl);

  // A switch takes no parameter; a refused one changes nothing.
  EXPECT_EQ(Ask(engine, "EMON 1"), "ERR: Invalid parameter\r");
  EXPECT_EQ(engine.StatusWord() & ipgylr::kEmission, 0u);
}

TEST(IpgSimEngine, SetPointsAreEchoedAndOutOfRangeValuesRefused) {
  TIpgYlrEngine engine;
  EXPECT_EQ(engine.Feed("SDC 100\rSDC 40.5\rSDC 100.01\rSDC -1\rSDC\rSDC 4O\rRCS\r"),
            "SDC: 100\rSDC: 40.5\rERR: Out of range\rERR: Out of range\rERR: Missing parameter\r"
            "ERR: Invalid parameter\rRCS: 40.5\r");
  EXPECT_DOUBLE_EQ(engine.DiodeCurrent(), 40.5);
  EXPECT_EQ(engine.Feed("SPRR 9999999\rSPRR 10000000\rSPRR 10.5\rRPRR\r"),
            "SPRR: 9999999\rERR: Out of range\rERR: Invalid parameter\rRPRR: 9999999\r");
  EXPECT_EQ(engine.Feed("SPW 0.5\rSPW 50.01\rRPW\r"), "SPW: 0.50\rERR: Out of range\rRPW: 0.50\r");
  EXPECT_EQ(engine.Feed("SFWS 5.0\rSFWS 0.1\rRFWS\r"), "SFWS: 5.0\rERR: Out of range\rRFWS: 5.0\r");
}

TEST(IpgSimEngine, ReadersReportIdentityReadingsAndOutputPower) {
  TIpgYlrEngine engine;
  EXPECT_EQ(engine.Feed("RSN\rRFV\rRET\rRCT\rRNC\rRMEC\rROP\r"),
            "RSN: 12345\rRFV: 1.2.3\rRET: 123.4\rRCT: 25.3\rRNC: 10.0\rRMEC: 0\rROP: Off\r");
  engine.SetSerialNumber("987654");
  engine.SetModuleErrorCode(7);
  engine.SetTemperature(-3.26);
  EXPECT_EQ(engine.Feed("RSN\rRMEC\rRCT\r"), "RSN: 987654\rRMEC: 7\rRCT: -3.3\r");

  engine.Feed("SDC 5\rEMON\r");
  EXPECT_EQ(Ask(engine, "ROP"), "ROP: Low\r");
  engine.SetNominalPower(2000);
  Ask(engine, "SDC 40");
  EXPECT_EQ(Ask(engine, "ROP"), "ROP: 800\r");

  EXPECT_EQ(Ask(engine, "RSN 1"), "ERR: Invalid parameter\r");
  EXPECT_EQ(Ask(engine, "XYZ"), "ERR: Unknown command\r");
}

TEST(IpgSimEngine, OnlyStatusAndCurrentRepliesCarryTheTextsADriverSearchesFor) {
  // A driver takes any line with "STA" for a status line and any with "RCS"/"SDC" for a current echo.
  TIpgYlrEngine engine;
  std::vector<std::string> commands = {"EMON", "EMOFF", "ABN",     "ABF",      "EPM",      "DPM",    "EGM",  "DGM",
                                       "EMOD", "DMOD",  "EEC",     "DEC",      "EEABC",    "DEABC",  "ELE",  "DLE",
                                       "SDS",  "RERR",  "RPRR",    "SPRR 100", "RPW",      "SPW 1",  "RFWS", "SFWS 1",
                                       "RSN",  "RFV",   "ROP",     "RET",      "RCT",      "RNC",    "RMEC", "STAT",
                                       "SDCX", "RCS 1", "SDC 500", "STA 1",    "EMON STA", "ABN SDC"};
  commands.push_back(std::string(300, 'S') + "TA");  // too long: the error must not repeat it
  for (const auto& command : commands)
    for (const auto& line : SplitLines(Ask(engine, command)))
      for (const char* text : {"STA", "RCS", "SDC"})
        EXPECT_EQ(line.find(text), std::string::npos) << command << " -> " << line;
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
  const auto lines = SplitLines(engine.Feed("ABN\rSTA\rRCS\r"));
  ASSERT_EQ(lines.size(), 3u);
  for (const auto& line : lines) {
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

TEST(IpgSimEngine, TraceHookSeesEachCommandWithItsReply) {
  TIpgYlrEngine engine;
  std::vector<std::pair<std::string, std::string>> seen;
  engine.SetTraceHook([&](const std::string& command, const std::string& reply) {
    seen.emplace_back(command, reply);
    engine.StatusWord();  // the hook may call back into the engine
  });
  engine.Feed("ABN\rFOO\r");
  EXPECT_EQ(seen,
            (std::vector<std::pair<std::string, std::string>>{{"ABN", "ABN\r"}, {"FOO", "ERR: Unknown command\r"}}));
}

TEST(IpgSimEngine, CommandLogWaitsForCommandsFromAnotherThreadAndKeepsTheLatest) {
  TIpgYlrEngine engine;
  EXPECT_FALSE(engine.Log().WaitFor("EMON", 10ms));
  std::thread feeder([&] { engine.Feed("STA\rEMON\rSTA\r"); });
  EXPECT_TRUE(engine.Log().WaitFor("EMON", 10s));
  EXPECT_TRUE(engine.Log().WaitFor("STA", 10s, 2));
  feeder.join();
  EXPECT_FALSE(engine.Log().WaitFor("STA", 10ms, 3));

  TCommandLog log;  // a full log drops the oldest commands but counts all
  for (size_t i = 0; i <= TCommandLog::kCapacity; ++i) log.Add(std::to_string(i));
  EXPECT_EQ(log.Size(), TCommandLog::kCapacity);
  EXPECT_EQ(log.Received(), TCommandLog::kCapacity + 1);
  EXPECT_FALSE(log.Contains("0"));
  EXPECT_EQ(log.Commands().back(), std::to_string(TCommandLog::kCapacity));
}

}  // namespace
}  // namespace lasersim
