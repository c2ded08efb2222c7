// laserctl as its users run it, as a subprocess against the real plug-in: the default laser's status keys, emission
// through its timed IO hand-shake, parameter records and the DA output, machine-readable output, and how bad
// words, bad files and a stop signal are handled.
#include <gtest/gtest.h>

#include <chrono>

#include "LaserctlTestSupport.h"

namespace {

using namespace laserctltest;
using nlohmann::json;
using testsupport::TScratchDir;

// The default laser with a shutter-ready output 5 held 300 ms before the emission gate output 6.
constexpr const char* kReadyThenGateParams = R"({"Model": "Default", "LaserMainType": "eltOther",
  "DefParams": {"CtrlPort": 6}, "CfgOther": {"ShutterReady": 5, "ShutterReadyDelay": 300}})";

TEST(LaserctlTest, StatusWithoutConfigurationShowsTheDefaultLasersKeys) {
  const auto run = RunLaserctl({"--json", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = JsonLines(run.Out);
  ASSERT_EQ(lines.size(), 1u) << run.Out;
  const json& status = lines[0];
  for (const char* key : {"Version", "LaserType", "DiodeCurrent", "PwmFreq", "PwmRatio", "IsAimingOn", "IsEmissionOn",
                          "IsLaserOn", "IsQCW"})
    EXPECT_TRUE(status.contains(key)) << key << " missing in " << status.dump();
  EXPECT_EQ(status["LaserType"], "Default");
  EXPECT_EQ(status["IsEmissionOn"], false);
}

TEST(LaserctlTest, EmissionReadsOnOnlyAfterTheReadyDelayAndTheOutputsSwitchInSequenceOrder) {
  TScratchDir scratch;
  const auto params = scratch.Write("ready-gate.json", kReadyThenGateParams);
  // The first status comes straight after emission-on, inside the 300 ms ready delay; the wait leaves the
  // sequence ample time even on a loaded machine.
  const auto run = RunLaserctl({"--json", "--params", params, "emission-on", "status", "wait", "1200", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto statuses = JsonLines(run.Out);
  ASSERT_EQ(statuses.size(), 2u) << run.Out;
  EXPECT_EQ(statuses[0]["IsEmissionOn"], false) << "emission must read off while the sequence runs";
  EXPECT_EQ(statuses[1]["IsEmissionOn"], true) << "emission must read on once the sequence finished";

  const auto readyOn = run.Err.find("SetOutputbit: 5, True");
  ASSERT_NE(readyOn, std::string::npos) << run.Err;
  const auto gateOn = run.Err.find("SetOutputbit: 6, True", readyOn);
  ASSERT_NE(gateOn, std::string::npos) << "the gate goes on after the ready output\n" << run.Err;
  // Destroying the laser at the end switches emission off again.
  EXPECT_NE(run.Err.find("SetOutputbit: 6, False", gateOn), std::string::npos) << run.Err;
}

TEST(LaserctlTest, JsonOutputIsOneObjectPerLineOnBothStreams) {
  const auto run = RunLaserctl({"--json", "status", "alarms", "exec", "0", "watch", "1"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  size_t statuses = 0, execs = 0;
  for (const auto& line : JsonLines(run.Out)) {
    EXPECT_TRUE(line.contains("IsEmissionOn") || line.contains("cmd") || line.contains("id")) << line.dump();
    statuses += line.contains("IsEmissionOn") ? 1 : 0;
    execs += line.contains("cmd") && line["cmd"] == 0 && line["result"].is_number_integer() ? 1 : 0;
    EXPECT_TRUE(!line.contains("id") || (line["raised"].is_boolean() && line["desc"].is_string())) << line.dump();
  }
  // status, then watch 1 sampling at 0 s and 1 s.
  EXPECT_EQ(statuses, 3u) << run.Out;
  EXPECT_EQ(execs, 1u) << run.Out;
  for (const auto& entry : JsonLines(run.Err)) EXPECT_TRUE(entry.contains("text")) << entry.dump();
}

TEST(LaserctlTest, BadCommandWordsAreReportedWithTheirPositionAndTheValidOnesStillRun) {
  const auto run = RunLaserctl({"--json", "status", "frobnicate", "diode", "200", "status", "wait"});
  EXPECT_EQ(run.ExitStatus, 1);
  EXPECT_NE(run.Err.find("command word 2 \\\"frobnicate\\\" is not a command"), std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("command word 4 \\\"200\\\""), std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("command word 6 \\\"wait\\\" needs"), std::string::npos) << run.Err;
  EXPECT_EQ(JsonLines(run.Out).size(), 2u) << "both status commands still ran\n" << run.Out;
}

TEST(LaserctlTest, ParameterRecordProblemsNameTheFieldAndTheGoodFieldsStillReachTheLaser) {
  TScratchDir scratch;
  const auto params = scratch.Write("params.json", R"({"Model": "Default", "LaserMainType": 16, "CfgOther": 5,
    "DefParams": {"CtrlPort": "six", "Bogus": 1, "PWM": {"Frequency": 2500, "Ratio": 0.25}, "DA": {"DAPort": 1},
                  "DataTransType": "dttCarrierPigeon"}})");
  const auto run = RunLaserctl({"--json", "--params", params, "diode", "60", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_NE(run.Err.find(params + ": unknown field DefParams.Bogus"), std::string::npos) << run.Err;
  for (const char* path : {"DefParams.CtrlPort", "DefParams.DataTransType", "CfgOther"})
    EXPECT_NE(run.Err.find(params + ": " + path + " is "), std::string::npos) << path << "\n" << run.Err;
  const auto statuses = JsonLines(run.Out);
  ASSERT_EQ(statuses.size(), 1u);
  EXPECT_EQ(statuses[0]["PwmFreq"], 2500);
  EXPECT_DOUBLE_EQ(statuses[0]["PwmRatio"].get<double>(), 0.25);
  EXPECT_EQ(statuses[0]["LaserType"], "Default");
  // The diode current goes to DA output 1 as 60 % of 10 V.
  EXPECT_DOUBLE_EQ(statuses[0]["DiodeCurrent"].get<double>(), 60.0);
  EXPECT_NE(run.Err.find("SetDAValue: 1, 6.000"), std::string::npos) << run.Err;
}

TEST(LaserctlTest, LocaleFileGivesTheOperatorMessagesTheirTranslation) {
  TScratchDir scratch;
  const auto locale = scratch.Write("en.ini", "[Device_Strs]\nSUnkownLaserType=No such laser model\n");
  const auto params = scratch.Write("unknown.json", R"({"Model": "Teleporter"})");
  const auto run = RunLaserctl({"--locale", locale, "--params", params, "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_NE(run.Err.find("No such laser model"), std::string::npos) << run.Err;
  EXPECT_NE(run.Out.find("\"LaserType\""), std::string::npos) << "the default laser stands in\n" << run.Out;
}

TEST(LaserctlTest, StopSignalEndsTheWaitAndStillSwitchesTheLaserOff) {
  TScratchDir scratch;
  const auto params = scratch.Write("ready-gate.json", kReadyThenGateParams);
  const auto start = std::chrono::steady_clock::now();
  const auto run = RunLaserctl(
      {"--params", params, "emission-on", "wait", "30000", "status"},
      [](const std::string& err) { return err.find("SetOutputbit: 6, True") != std::string::npos ? SIGINT : 0; });
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(run.ExitStatus, 1) << run.Err;
  EXPECT_LT(elapsed, std::chrono::seconds(25)) << "the wait must end at the signal";
  const auto stopped = run.Err.find("stopped by a signal");
  ASSERT_NE(stopped, std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("SetOutputbit: 6, False", stopped), std::string::npos) << run.Err;
  EXPECT_EQ(run.Out.find("status {"), std::string::npos) << "no command runs after the stop\n" << run.Out;
}

TEST(LaserctlTest, BadOptionsAndMalformedFilesStopBeforeAnythingRuns) {
  TScratchDir scratch;
  const auto jsonFile = scratch.Write("broken.json", "{\n  \"Model\": \"Default\",\n  \"CtrlPort\": 6,,\n}\n");
  const auto xmlFile = scratch.Write("broken.xml", "<Laser>\n<Model>Default</Model>\n<CtrlPort>6</Ctrl>\n</Laser>\n");
  const auto paramsFile = scratch.Write("broken-params.json", "{\"Model\": \"Default\"\n  \"DefParams\": {}}");
  const struct {
    std::string Option, Value;
    std::vector<std::string> Expected;  // parts of the message on standard error
  } cases[] = {
      {"--config", jsonFile, {jsonFile, "line 3"}},
      {"--config", xmlFile, {xmlFile, "line 3"}},
      {"--params", paramsFile, {paramsFile + ": not valid JSON, refused: parse error at line 2"}},
      {"--config", "/nonexistent.json", {"/nonexistent.json"}},
      {"--input", "70=1", {"--input 70: the simulated IO extension has no such input"}},
      {"--input", "3=2", {"--input needs N=0 or N=1", "\"3=2\""}},
      {"--serial", "0=/dev/null", {"0=/dev/null"}},
  };
  for (const auto& [option, value, expected] : cases) {
    SCOPED_TRACE(option + " " + value);
    const auto run = RunLaserctl({option, value, "--", "emission-on", "status"});
    EXPECT_EQ(run.ExitStatus, 2);
    for (const auto& part : expected) EXPECT_NE(run.Err.find(part), std::string::npos) << part << "\n" << run.Err;
    EXPECT_TRUE(run.Out.empty()) << run.Out;
    EXPECT_EQ(run.Err.find("SetOutputbit"), std::string::npos) << "no laser may be switched\n" << run.Err;
  }
}

}  // namespace
