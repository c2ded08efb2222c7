// laserctl as people who run and service lasers meet it: mistakes stop it before any laser exists, it tells what
// it is and which lasers it knows, speaks the operator's language, and watch shows only what changes.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>

#include "LaserctlTestSupport.h"

namespace {

using namespace laserctltest;

// Every mistake exits 2 before the plug-in creates a laser: nothing on standard output, no IO written.
TEST(LaserctlForPeopleTest, MistakesStopBeforeAnyLaserExists) {
  struct TCase {
    std::vector<std::string> Args;
    std::string Says;  // on standard error ("" when the usage goes to standard output)
  };
  const std::vector<TCase> cases = {
      {{"emission-on", "diod", "60"}, "command word 2 \"diod\" is not a command; the nearest command is \"diode\""},
      {{"emision-on"}, "the nearest command is \"emission-on\""},
      {{"status", "diode", "200"}, "command word 3 \"200\" after \"diode\" is not a diode current"},
      {{"wait"}, "command word 1 \"wait\" needs"},
      {{"status", "--frobnicate"}, "\"--frobnicate\" is not a command (options go before the commands)"},
      {{"--input", "3=2", "status"}, "--input needs N=0 or N=1"},
  };
  for (const auto& c : cases) {
    const auto run = RunLaserctl(c.Args);
    EXPECT_EQ(run.ExitStatus, 2) << c.Args[0] << "\n" << run.Err;
    EXPECT_NE(run.Err.find(c.Says), std::string::npos) << c.Says << "\n" << run.Err;
    EXPECT_TRUE(run.Out.empty()) << run.Out;
    EXPECT_EQ(run.Err.find("SetOutputbit"), std::string::npos) << run.Err;
    EXPECT_EQ(run.Err.find("CreateLaser"), std::string::npos) << run.Err;
  }
  const auto bare = RunLaserctl({});
  EXPECT_EQ(bare.ExitStatus, 2);
  EXPECT_NE(bare.Out.find("Usage"), std::string::npos) << bare.Out;
}

TEST(LaserctlForPeopleTest, ListModelsComesFromThePluginsRegistry) {
  const auto run = RunLaserctl({"--list-models", "--json"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = JsonLines(run.Out);
  ASSERT_EQ(lines.size(), 29u) << run.Out;
  std::set<std::string> keys;
  for (const auto& line : lines) {
    if (!line["model"].get<std::string>().empty()) keys.insert(line["model"].get<std::string>());
    const std::string cls = line["class"];
    if (cls == "TIPGYLR2Laser") {
      EXPECT_EQ(line["protocol"], "own");
      EXPECT_EQ(line["links"], nlohmann::json({"serial", "tcp"}));
      EXPECT_EQ(line["simulator"], true);
      EXPECT_EQ(line["subTypes"], nlohmann::json({3}));
    }
    if (cls == "TDefaultLaser") {
      EXPECT_EQ(line["protocol"], "hard-wired");
      EXPECT_EQ(line["links"], nlohmann::json({"io"}));
      EXPECT_EQ(line["model"], "Default");
    }
  }
  EXPECT_EQ(keys.size(), 17u) << "one key per family";
  const auto table = RunLaserctl({"--list-models"});
  EXPECT_NE(table.Out.find("29 registrations"), std::string::npos) << table.Out;
}

TEST(LaserctlForPeopleTest, VersionNamesLaserctlTheHostInterfacesAndThePlugin) {
  const auto run = RunLaserctl({"--version"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  for (const char* part : {"laserctl 0.", "host interface version ", "libDevLaser.so version 0."})
    EXPECT_NE(run.Out.find(part), std::string::npos) << part << "\n" << run.Out;
}

// Operator texts follow the environment unless --locale decides; an unknown model is named in that language and
// the run exits 1 although the default laser did everything asked.
TEST(LaserctlForPeopleTest, UnknownModelIsNamedInTheOperatorsLanguage) {
  testsupport::TScratchDir scratch;
  const auto params = scratch.Write("unknown.json", R"({"Model": "Frobulator"})");
  setenv("LANG", "en_US.UTF-8", 1);
  unsetenv("LC_ALL");
  unsetenv("LC_MESSAGES");
  auto run = RunLaserctl({"--params", params, "status"});
  EXPECT_EQ(run.ExitStatus, 1) << run.Err;
  EXPECT_NE(run.Err.find("unknown laser model \"Frobulator\""), std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("Unknown laser type"), std::string::npos) << "the plug-in's own text in English\n" << run.Err;
  setenv("LANG", "zh_CN.UTF-8", 1);
  run = RunLaserctl({"--params", params, "status"});
  EXPECT_EQ(run.ExitStatus, 1) << run.Err;
  EXPECT_NE(run.Err.find("未知的激光器型号 \"Frobulator\""), std::string::npos) << run.Err;
  EXPECT_EQ(run.Err.find("Unknown laser type"), std::string::npos) << run.Err;
}

TEST(LaserctlForPeopleTest, WatchPrintsTheStateOnceAndThenOnlyChanges) {
  // Emission reads on 1.2 s after emission-on (the ready output is held first): the one change watch sees.
  testsupport::TScratchDir scratch;
  const auto params = scratch.Write("slow-ready.json", R"({"Model": "Default", "LaserMainType": "eltOther",
    "DefParams": {"CtrlPort": 6}, "CfgOther": {"ShutterReady": 5, "ShutterReadyDelay": 1200}})");
  const auto run = RunLaserctl({"--json", "--params", params, "emission-on", "watch", "4"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = JsonLines(run.Out);
  ASSERT_GE(lines.size(), 2u) << run.Out;
  EXPECT_EQ(lines[0]["cmd"], "watch") << lines[0].dump();
  EXPECT_EQ(lines[0]["status"]["IsEmissionOn"], false) << "the state first";
  int emissionChanges = 0;
  for (size_t i = 1; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i]["cmd"], "watch") << "only changes after the first state: " << lines[i].dump();
    EXPECT_TRUE(lines[i].contains("t")) << lines[i].dump();
    if (lines[i]["key"] == "IsEmissionOn") {
      ++emissionChanges;
      EXPECT_EQ(lines[i]["after"], true);
    }
  }
  EXPECT_EQ(emissionChanges, 1) << run.Out;
}

TEST(LaserctlForPeopleTest, CtrlCDuringWatchExitsWith130AfterSwitchingTheLaserOff) {
  testsupport::TScratchDir scratch;
  const auto params = scratch.Write("ready-gate.json", R"({"Model": "Default", "LaserMainType": "eltOther",
    "DefParams": {"CtrlPort": 6}, "CfgOther": {"ShutterReady": 5, "ShutterReadyDelay": 300}})");
  const auto log = scratch.Path() + "/laserctl.log";
  const auto run = RunLaserctl(
      {"--log-file", log, "--params", params, "emission-on", "watch", "60"},
      [](const std::string& err) { return err.find("SetOutputbit: 6, True") != std::string::npos ? SIGINT : 0; });
  EXPECT_EQ(run.ExitStatus, 130) << run.Err;
  const auto gateOn = run.Err.find("SetOutputbit: 6, True");
  ASSERT_NE(gateOn, std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("SetOutputbit: 6, False", gateOn), std::string::npos) << "switched off\n" << run.Err;
  // Every line on standard error starts with the time, and the log file holds the same lines.
  const std::regex stamped(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} .*)");
  std::istringstream lines(run.Err);
  for (std::string line; std::getline(lines, line);) EXPECT_TRUE(std::regex_match(line, stamped)) << line;
  std::ifstream file(log);
  const std::string logged((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_EQ(logged, run.Err);
}

}  // namespace
