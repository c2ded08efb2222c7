// laserctl as its users run it: the default laser's status keys, emission switching on through its timed IO
// hand-shake, the diode current on the DA output, machine-readable output, and how bad words, bad files and a
// stop signal are handled. Every test runs the built program as a subprocess against the real plug-in.
#include <gtest/gtest.h>

#include <chrono>

#include "LaserctlTestSupport.h"

namespace {

using laserctltest::JsonLines;
using laserctltest::RunLaserctl;
using laserctltest::TScratch;
using nlohmann::json;

// The default laser with a shutter-ready output 5 held 300 ms before the emission gate output 6.
constexpr const char* kReadyThenGateParams = R"({
  "Model": "Default",
  "LaserMainType": "eltOther",
  "DefParams": {"CtrlPort": 6, "DA": {"DAPort": 1}},
  "CfgOther": {"ShutterReady": 5, "ShutterReadyDelay": 300}
})";

// The IO extension's log lines in the order laserctl printed them (standard error, JSON lines).
std::vector<std::string> IOLines(const std::string& err) {
  std::vector<std::string> lines;
  for (const auto& entry : JsonLines(err))
    if (entry.value("category", "") == "IO") lines.push_back(entry.value("text", ""));
  return lines;
}

ptrdiff_t IndexOf(const std::vector<std::string>& lines, const std::string& line, size_t from = 0) {
  for (size_t i = from; i < lines.size(); ++i)
    if (lines[i] == line) return static_cast<ptrdiff_t>(i);
  return -1;
}

TEST(LaserctlTest, StatusWithoutConfigurationShowsTheDefaultLasersKeys) {
  LASERCTL_REQUIRE_PLUGIN();
  const auto run = RunLaserctl({"--json", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = JsonLines(run.Out);
  ASSERT_EQ(lines.size(), 1u) << run.Out;
  const json& status = lines[0];
  for (const char* key : {"Version", "LaserType", "DiodeCurrent", "PwmFreq", "PwmRatio", "IsAimingOn", "IsEmissionOn",
                          "IsLaserOn", "IsQCW"})
    EXPECT_TRUE(status.contains(key)) << key << " missing in " << status.dump();
  EXPECT_EQ(status["Version"], "1.0.0");
  EXPECT_EQ(status["LaserType"], "Default");
  EXPECT_EQ(status["IsEmissionOn"], false);
  EXPECT_EQ(status["IsQCW"], false);
}

TEST(LaserctlTest, EmissionReadsOnOnlyAfterTheReadyDelayAndTheOutputsSwitchInSequenceOrder) {
  LASERCTL_REQUIRE_PLUGIN();
  TScratch scratch;
  const auto params = scratch.Write("ready-gate.json", kReadyThenGateParams);
  // The first status comes straight after emission-on, inside the 300 ms ready delay; the wait leaves the
  // sequence ample time even on a loaded machine.
  const auto run = RunLaserctl({"--json", "--params", params, "emission-on", "status", "wait", "1200", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto statuses = JsonLines(run.Out);
  ASSERT_EQ(statuses.size(), 2u) << run.Out;
  EXPECT_EQ(statuses[0]["IsEmissionOn"], false) << "emission must read off while the sequence runs";
  EXPECT_EQ(statuses[1]["IsEmissionOn"], true) << "emission must read on once the sequence finished";

  const auto io = IOLines(run.Err);
  const auto readyOn = IndexOf(io, "SetOutputbit: 5, True");
  ASSERT_GE(readyOn, 0) << run.Err;
  const auto gateOn = IndexOf(io, "SetOutputbit: 6, True", static_cast<size_t>(readyOn));
  ASSERT_GT(gateOn, readyOn) << "the gate goes on after the ready output\n" << run.Err;
  // Destroying the laser at the end switches emission off again.
  EXPECT_GT(IndexOf(io, "SetOutputbit: 6, False", static_cast<size_t>(gateOn)), gateOn) << run.Err;
}

TEST(LaserctlTest, ExampleConfigurationPutsTheDiodeCurrentOnTheDAOutput) {
  LASERCTL_REQUIRE_PLUGIN();
  const std::string config = laserctltest::SourceDir() + "/examples/default-laser.json";
  const auto run = RunLaserctl({"--config", config, "emission-on", "wait", "1200", "status", "diode", "60", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  // Readable output: each status line carries its time stamp and the object.
  std::vector<json> statuses;
  for (const auto& line : run.OutLines())
    if (const auto at = line.find("] status "); at != std::string::npos)
      statuses.push_back(json::parse(line.substr(at + 9)));
  ASSERT_EQ(statuses.size(), 2u) << run.Out;
  EXPECT_EQ(statuses[0]["IsEmissionOn"], true);
  EXPECT_DOUBLE_EQ(statuses[1]["DiodeCurrent"].get<double>(), 60.0);
  // DA port 1201 of the configuration is DA output 1; 60 % of 10 V.
  EXPECT_NE(run.Err.find("SetDAValue: 1, 6.000"), std::string::npos) << run.Err;
  EXPECT_EQ(run.Err.find("[error]"), std::string::npos) << run.Err;
}

TEST(LaserctlTest, JsonOutputIsOneObjectPerLineOnBothStreams) {
  LASERCTL_REQUIRE_PLUGIN();
  const auto run = RunLaserctl({"--json", "status", "alarms", "exec", "0", "watch", "1"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto out = JsonLines(run.Out);
  ASSERT_GE(out.size(), 4u) << run.Out;
  size_t execLines = 0;
  for (const auto& line : out) {
    ASSERT_TRUE(line.is_object()) << line.dump();
    if (line.contains("cmd")) {
      ++execLines;
      EXPECT_EQ(line["cmd"], 0);
      EXPECT_TRUE(line["result"].is_number_integer());
    } else if (line.contains("id")) {
      EXPECT_TRUE(line["raised"].is_boolean());
      EXPECT_TRUE(line["desc"].is_string());
    } else {
      EXPECT_TRUE(line.contains("IsEmissionOn")) << line.dump();
    }
  }
  EXPECT_EQ(execLines, 1u);
  // watch 1 samples at 0 s and 1 s: three status objects in all.
  size_t statusLines = 0;
  for (const auto& line : out) statusLines += line.contains("IsEmissionOn") ? 1 : 0;
  EXPECT_EQ(statusLines, 3u) << run.Out;
  for (const auto& entry : JsonLines(run.Err)) EXPECT_TRUE(entry.contains("text")) << entry.dump();
}

TEST(LaserctlTest, BadCommandWordsAreReportedWithTheirPositionAndTheValidOnesStillRun) {
  LASERCTL_REQUIRE_PLUGIN();
  const auto run = RunLaserctl({"--json", "status", "frobnicate", "diode", "200", "status", "wait"});
  EXPECT_EQ(run.ExitStatus, 1);
  EXPECT_NE(run.Err.find("command word 2 \\\"frobnicate\\\" is not a command"), std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("command word 4 \\\"200\\\""), std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("command word 6 \\\"wait\\\" needs"), std::string::npos) << run.Err;
  EXPECT_EQ(JsonLines(run.Out).size(), 2u) << "both status commands still ran\n" << run.Out;
}

TEST(LaserctlTest, MalformedConfigurationIsRefusedWithItsPositionAndNothingRuns) {
  LASERCTL_REQUIRE_PLUGIN();
  TScratch scratch;
  const auto jsonFile = scratch.Write("broken.json", "{\n  \"Model\": \"Default\",\n  \"CtrlPort\": 6,,\n}\n");
  const auto xmlFile = scratch.Write("broken.xml", "<Laser>\n<Model>Default</Model>\n<CtrlPort>6</Ctrl>\n</Laser>\n");
  for (const auto& file : {jsonFile, xmlFile}) {
    const auto run = RunLaserctl({"--config", file, "emission-on", "status"});
    EXPECT_EQ(run.ExitStatus, 2) << file;
    EXPECT_NE(run.Err.find(file), std::string::npos) << run.Err;
    EXPECT_NE(run.Err.find("line 3"), std::string::npos) << run.Err;
    EXPECT_TRUE(run.Out.empty()) << run.Out;
    EXPECT_EQ(run.Err.find("SetOutputbit"), std::string::npos) << "no laser may be switched\n" << run.Err;
  }
}

TEST(LaserctlTest, ParameterRecordProblemsNameTheFieldAndTheGoodFieldsStillReachTheLaser) {
  LASERCTL_REQUIRE_PLUGIN();
  TScratch scratch;
  const auto params = scratch.Write("params.json", R"({
    "Model": "Default",
    "LaserMainType": 16,
    "DefParams": {"CtrlPort": "six", "Bogus": 1, "PWM": {"Frequency": 2500, "Ratio": 0.25},
                  "DataTransType": "dttCarrierPigeon"},
    "CfgOther": 5
  })");
  const auto run = RunLaserctl({"--json", "--params", params, "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_NE(run.Err.find(params + ": unknown field DefParams.Bogus"), std::string::npos) << run.Err;
  for (const char* path : {"DefParams.CtrlPort", "DefParams.DataTransType", "CfgOther"})
    EXPECT_NE(run.Err.find(params + ": " + path + " is "), std::string::npos) << path << "\n" << run.Err;
  const auto statuses = JsonLines(run.Out);
  ASSERT_EQ(statuses.size(), 1u);
  EXPECT_EQ(statuses[0]["PwmFreq"], 2500);
  EXPECT_DOUBLE_EQ(statuses[0]["PwmRatio"].get<double>(), 0.25);
  EXPECT_EQ(statuses[0]["LaserType"], "Default");

  const auto broken = scratch.Write("broken-params.json", "{\"Model\": \"Default\"\n  \"DefParams\": {}}");
  const auto refused = RunLaserctl({"--params", broken, "status"});
  EXPECT_EQ(refused.ExitStatus, 2);
  EXPECT_NE(refused.Err.find(broken + ": not valid JSON, refused: parse error at line 2"), std::string::npos)
      << refused.Err;
  EXPECT_TRUE(refused.Out.empty());
}

TEST(LaserctlTest, LocaleFileGivesTheOperatorMessagesTheirTranslation) {
  LASERCTL_REQUIRE_PLUGIN();
  TScratch scratch;
  const auto locale = scratch.Write("en.ini", "[Device_Strs]\nSUnkownLaserType=No such laser model\n");
  const auto params = scratch.Write("unknown.json", R"({"Model": "Teleporter"})");
  const auto run = RunLaserctl({"--locale", locale, "--params", params, "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_NE(run.Err.find("No such laser model"), std::string::npos) << run.Err;
  EXPECT_NE(run.Out.find("\"LaserType\""), std::string::npos) << "the default laser stands in\n" << run.Out;
}

TEST(LaserctlTest, StopSignalEndsTheWaitAndStillSwitchesTheLaserOff) {
  LASERCTL_REQUIRE_PLUGIN();
  TScratch scratch;
  const auto params = scratch.Write("ready-gate.json", kReadyThenGateParams);
  const auto start = std::chrono::steady_clock::now();
  const auto run = RunLaserctl(
      {"--params", params, "emission-on", "wait", "30000", "status"},
      [](const std::string& err) { return err.find("SetOutputbit: 6, True") != std::string::npos ? SIGINT : 0; });
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(run.ExitStatus, 1) << run.Err;
  EXPECT_LT(elapsed, std::chrono::seconds(25)) << "the wait must end at the signal";
  const auto stopped = run.ErrPos("stopped by a signal");
  ASSERT_NE(stopped, std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("SetOutputbit: 6, False", stopped), std::string::npos) << run.Err;
  EXPECT_EQ(run.Out.find("status {"), std::string::npos) << "no command runs after the stop\n" << run.Out;
}

TEST(LaserctlTest, BadOptionsStopBeforeAnythingRuns) {
  for (const std::vector<std::string>& args : {std::vector<std::string>{"--input", "70=1", "status"},
                                               {"--input", "3=2", "status"},
                                               {"--serial", "0=/dev/null", "status"},
                                               {"--config", "/nonexistent.json", "status"}}) {
    const auto run = RunLaserctl(args);
    EXPECT_EQ(run.ExitStatus, 2) << args[0] << " " << args[1] << "\n" << run.Err;
    EXPECT_TRUE(run.Out.empty()) << run.Out;
  }
}

}  // namespace
