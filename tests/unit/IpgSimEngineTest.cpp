#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
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
  EXPECT_EQ(engine.Feed("0\r\r  \n rcs \r\n"), "SDC: 40.0\rRCS: 40.0\r");
  EXPECT_EQ(engine.Log().Commands(), (std::vector<std::string>{"STA", "EMON", "SDC 40", "rcs"}));

  // A new client must not inherit the half command of the previous one.
  engine.Feed("SDC 9");
  engine.ResetInput();
  EXPECT_EQ(Ask(engine, "RCS"), "RCS: 40.0\r");
}

// Exchanges as the laser's manual shows them, each on a laser fresh from power-up.
TEST(IpgSimEngine, AnswersAsTheLasersManualShows) {
  struct TCase {
    std::vector<std::string> Commands;
    std::vector<std::string> Replies;
  };
  const std::vector<TCase> cases = {
      // Modulation (bit 12) and emission (bit 2).
      {{"EMOD", "EMON", "STA"}, {"EMOD", "EMON", "STA: 4100"}},
      // Analogue control is bit 4, the hardware aiming control bit 22, gate mode bit 16, emission control bit 18.
      {{"EEC", "EEABC", "EGM", "ELE", "STA"}, {"EEC", "EEABC", "EGM", "ELE", "STA: 4522000"}},
      {{"EEC", "EEABC", "EGM", "ELE", "DEC", "DEABC", "DGM", "DLE", "STA"},
       {"EEC", "EEABC", "EGM", "ELE", "DEC", "DEABC", "DGM", "DLE", "STA: 0"}},
      {{"ABN", "EPM", "SDS", "STA"}, {"ABN", "EPM", "SDS", "STA: 1280"}},
      // Mode changes need emission off.
      {{"EMON", "EMOD", "DMOD", "EEC", "DEC", "STA"},
       {"EMON", "ERR: Emission is on", "ERR: Emission is on", "ERR: Emission is on", "ERR: Emission is on", "STA: 4"}},
      {{"EMON", "EGM", "EPM", "EMOFF", "EMOD", "STA"}, {"EMON", "EGM", "EPM", "EMOFF", "EMOD", "STA: 70656"}},
      // Unknown mnemonics, with or without a parameter.
      {{"XYZ", "rdx 5", "SDCX 40"}, {"BCMD", "BCMD", "BCMD"}},
      // Set points in the manual's format; the filter window is cut down to a multiple of 0.2.
      {{"SDC 40", "RCS", "SDC 40.56", "RCS"}, {"SDC: 40.0", "RCS: 40.0", "SDC: 40.6", "RCS: 40.6"}},
      {{"SFWS 2.55", "RFWS", "SFWS 0.3", "SFWS 5", "SFWS 2.4"},
       {"SFWS: 2.4", "RFWS: 2.4", "SFWS: 0.2", "SFWS: 5.0", "SFWS: 2.4"}},
      {{"SDC 100.01", "SDC -1", "SFWS 0.1", "SFWS 5.1", "SPRR 0", "SPW 50.01", "RCS"},
       {"ERR: Out of Range", "ERR: Out of Range", "ERR: Out of Range", "ERR: Out of Range", "ERR: Out of Range",
        "ERR: Out of Range", "RCS: 0.0"}},
      {{"SDC", "SDC 4O", "SPRR 10.5", "EMON 1", "STA 1"},
       {"ERR: Missing parameter", "ERR: Invalid parameter", "ERR: Invalid parameter", "ERR: Invalid parameter",
        "ERR: Invalid parameter"}},
      // The diode current in amperes flows only during emission (10 A at 100 % here).
      {{"SDC 40", "RDC", "EMON", "RDC", "SPW 0.5", "RPW", "SPRR 2000", "RPRR"},
       {"SDC: 40.0", "RDC: 0.0", "EMON", "RDC: 4.0", "SPW: 0.50", "RPW: 0.50", "SPRR: 2000", "RPRR: 2000"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.Commands));
    TIpgYlrEngine engine;
    std::string sent, expected;
    for (const auto& command : c.Commands) sent += command + "\r";
    for (const auto& reply : c.Replies) expected += reply + "\r";
    EXPECT_EQ(engine.Feed(sent), expected);
  }
}

TEST(IpgSimEngine, LenientModeAcceptsModeChangesDuringEmission) {
  TIpgYlrEngine engine;
  engine.SetLenient(true);
  EXPECT_EQ(engine.Feed("EMON\rEMOD\rEEC\rSTA\rDMOD\rDEC\rSTA\rXYZ\rSDC 101\r"),
            "EMON\rEMOD\rEEC\rSTA: 4116\rDMOD\rDEC\rSTA: 4\rBCMD\rERR: Out of Range\r");
}

TEST(IpgSimEngine, EmissionStartUpPhaseShowsForItsTime) {
  TIpgYlrEngine engine;
  auto now = std::chrono::steady_clock::now();
  engine.SetClock([&now] { return now; });
  engine.SetEmissionStartupTime(3000ms);
  engine.Feed("SDC 50\r");
  EXPECT_EQ(Ask(engine, "EMON"), "EMON\r");
  EXPECT_EQ(StatusFromReply(engine), ipgylr::kEmission | ipgylr::kEmissionStartup);
  EXPECT_EQ(engine.Feed("ROP\rRDC\rDMOD\r"), "ROP: Off\rRDC: 0.0\rERR: Emission is on\r");
  now += 2999ms;
  EXPECT_EQ(Ask(engine, "EMON"), "EMON\r") << "a second EMON does not restart the phase";
  EXPECT_EQ(engine.StatusWord(), ipgylr::kEmission | ipgylr::kEmissionStartup);
  now += 1ms;
  EXPECT_EQ(StatusFromReply(engine), ipgylr::kEmission);
  EXPECT_EQ(engine.Feed("ROP\rRDC\r"), "ROP: 500\rRDC: 5.0\r");
}

TEST(IpgSimEngine, KeySwitchInRemoteLeavesEmissionToTheHardware) {
  TIpgYlrEngine engine;
  engine.SetKeySwitchRemote(true);
  EXPECT_EQ(StatusFromReply(engine), ipgylr::kKeySwitchRemote);
  EXPECT_EQ(engine.Feed("EMON\rEMOFF\rABN\rEMOD\rSTA\r"),
            "ERR: Keyswitch in remote\rERR: Keyswitch in remote\rABN\rEMOD\rSTA: 2101504\r");
  engine.SetKeySwitchRemote(false);
  EXPECT_EQ(engine.Feed("EMON\rSTA\r"), "EMON\rSTA: 4356\r");
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
  EXPECT_EQ(engine.Feed("EMOFF\rEMON\r"), "EMOFF\rERR: Power supply off\r");
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

  engine.SetReplyMode(TReplyMode::GarbageLines);  // one line per command, never looking like a reply
  const std::string junk = engine.Feed("ABN\rSTA\rRCS\r");
  EXPECT_EQ(std::count(junk.begin(), junk.end(), '\r'), 3);
  EXPECT_TRUE(std::none_of(junk.begin(), junk.end(), [](char c) { return c >= 'A' && c <= 'Z'; })) << junk;

  engine.SetReplyMode(TReplyMode::GarbageBytes);
  const std::string bytes = engine.Feed("STA\rEMON\r");
  EXPECT_GE(bytes.size(), 16u);
  EXPECT_EQ(bytes.find('\r'), std::string::npos);

  EXPECT_EQ(engine.Log().Commands(), (std::vector<std::string>{"EMON", "STA", "ABN", "STA", "RCS", "STA", "EMON"}));
  EXPECT_EQ(engine.StatusWord(), 0u);
  engine.SetReplyMode(TReplyMode::Normal);
  EXPECT_EQ(Ask(engine, "STA"), "STA: 0\r");
}

}  // namespace
}  // namespace lasersim
