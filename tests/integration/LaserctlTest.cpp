// laserctl as its users run it, as a subprocess against the real plug-in: the default laser's status keys, emission
// through its timed IO hand-shake, and how bad words, bad options and files and a stop signal are handled.
#include <gtest/gtest.h>

#include <array>
#include <chrono>

#include "LaserctlTestSupport.h"

namespace {

using namespace laserctltest;

// The default laser with a shutter-ready output 5 held 300 ms before the emission gate output 6.
constexpr const char* kReadyThenGateParams = R"({"Model": "Default", "LaserMainType": "eltOther",
  "DefParams": {"CtrlPort": 6}, "CfgOther": {"ShutterReady": 5, "ShutterReadyDelay": 300}})";

// Every JSON line says which command printed it and when; status lines carry the information source's object.
TEST(LaserctlTest, JsonLinesSayWhatTheyAreAndWhen) {
  const auto run = RunLaserctl({"--json", "status", "exec", "99", "wait", "200", "alarms", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = JsonLines(run.Out);
  std::vector<std::string> cmds;  // each command once, in order (alarms prints one line per alarm)
  for (const auto& line : lines) {
    if (cmds.empty() || cmds.back() != line.value("cmd", "")) cmds.push_back(line.value("cmd", ""));
    EXPECT_TRUE(line["t"].is_number()) << line.dump();
  }
  ASSERT_EQ(cmds, (std::vector<std::string>{"status", "exec", "alarms", "status"})) << run.Out;
  EXPECT_GE(lines.back()["t"].get<double>() - lines[0]["t"].get<double>(), 0.2) << "t follows the commands' time";
  EXPECT_EQ(lines[1]["number"], 99);
  EXPECT_TRUE(lines[1].contains("result")) << lines[1].dump();
  EXPECT_TRUE(lines[2].contains("id") && lines[2].contains("raised")) << lines[2].dump();
  const auto& status = lines[0]["status"];
  for (const char* key : {"Version", "LaserType", "DiodeCurrent", "PwmFreq", "PwmRatio", "IsAimingOn", "IsEmissionOn",
                          "IsLaserOn", "IsQCW"})
    EXPECT_TRUE(status.contains(key)) << key << " missing in " << lines[0].dump();
  EXPECT_EQ(status["LaserType"], "Default");
}

TEST(LaserctlTest, EmissionReadsOnOnlyAfterTheReadyDelayAndTheOutputsSwitchInSequenceOrder) {
  testsupport::TScratchDir scratch;
  const auto params = scratch.Write("ready-gate.json", kReadyThenGateParams);
  // The first status comes straight after emission-on, inside the 300 ms ready delay; the wait leaves the
  // sequence ample time even on a loaded machine.
  const auto run = RunLaserctl({"--json", "--params", params, "emission-on", "status", "wait", "1200", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto statuses = Statuses(JsonLines(run.Out));
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

TEST(LaserctlTest, BadCommandWordsAreAllReportedWithTheirPositionAndNothingRuns) {
  const auto run = RunLaserctl({"--json", "status", "frobnicate", "diode", "200", "status", "wait"});
  EXPECT_EQ(run.ExitStatus, 2);
  EXPECT_NE(run.Err.find("command word 2 \\\"frobnicate\\\" is not a command"), std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("command word 6 \\\"wait\\\" needs"), std::string::npos) << run.Err;
  EXPECT_TRUE(run.Out.empty()) << "no command runs after a mistake\n" << run.Out;
}

TEST(LaserctlTest, StopSignalEndsTheWaitAndStillSwitchesTheLaserOff) {
  testsupport::TScratchDir scratch;
  const auto params = scratch.Write("ready-gate.json", kReadyThenGateParams);
  const auto start = std::chrono::steady_clock::now();
  const auto run = RunLaserctl(
      {"--params", params, "emission-on", "wait", "30000", "status"},
      [](const std::string& err) { return err.find("SetOutputbit: 6, True") != std::string::npos ? SIGINT : 0; });
  EXPECT_EQ(run.ExitStatus, 130) << run.Err;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(25)) << "the wait must end at the signal";
  const auto stopped = run.Err.find("stopped by a signal");
  ASSERT_NE(stopped, std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("SetOutputbit: 6, False", stopped), std::string::npos) << run.Err;
  EXPECT_EQ(run.Out.find("status {"), std::string::npos) << "no command runs after the stop\n" << run.Out;
}

TEST(LaserctlTest, BadOptionsAndMalformedFilesStopBeforeAnythingRuns) {
  testsupport::TScratchDir scratch;
  const auto jsonFile = scratch.Write("broken.json", "{\n  \"Model\": \"Default\",\n  \"CtrlPort\": 6,,\n}\n");
  const auto paramsFile = scratch.Write("broken-params.json", "{\"Model\": \"Default\"\n  \"DefParams\": {}}");
  const auto notAPlugin = scratch.Write("libNotAPlugin.so", "this is text, not a shared object\n");
  // The option, its value, and a part of the message on standard error.
  const std::vector<std::array<std::string, 3>> cases = {
      {"--config", jsonFile, jsonFile + "' is refused, nothing was loaded: line 3, column 17"},
      {"--params", paramsFile, paramsFile + ", line 2, column 3: unexpected '\"DefParams\"'"},
      {"--input", "70=1", "--input 70: the simulated IO extension has no such input"},
      {"--lib", notAPlugin, "cannot load the laser plug-in " + notAPlugin},
  };
  for (const auto& [option, value, expected] : cases) {
    const auto run = RunLaserctl({option, value, "--", "emission-on", "status"});
    EXPECT_EQ(run.ExitStatus, 2) << option << " " << value;
    EXPECT_NE(run.Err.find(expected), std::string::npos) << expected << "\n" << run.Err;
    EXPECT_TRUE(run.Out.empty()) << run.Out;
    EXPECT_EQ(run.Err.find("SetOutputbit"), std::string::npos) << "no laser may be switched\n" << run.Err;
  }
}

}  // namespace
