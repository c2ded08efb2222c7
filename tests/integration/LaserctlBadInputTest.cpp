// laserctl against inputs found by feeding it hostile files and command lines: each is refused or reported with
// where it goes wrong, nothing crashes, and a refused file switches no laser.
#include <gtest/gtest.h>

#include <array>

#include "LaserctlTestSupport.h"

namespace {

using namespace laserctltest;

TEST(LaserctlBadInputTest, HostileFilesAreRefusedWithFileLineAndColumn) {
  testsupport::TScratchDir scratch;
  const std::string deepArrays = std::string(100000, '[') + std::string(100000, ']');
  const auto hugeParams = scratch.Write("huge-params.json", "{\"DefParams\": {\"Power\": 1e999}}");
  const auto deepParams = scratch.Write("deep-params.json", "{\"DefParams\": {\"Power\": " + deepArrays + "}}");
  const auto hugeConfig = scratch.Write("huge.json", "{\n  \"Model\": \"Default\",\n  \"CtrlPort\": 1e999\n}\n");
  const auto deepConfig = scratch.Write("deep.json", "{\"CtrlPort\": " + deepArrays + "}");
  // The option, its file, and the message on standard error.
  const std::vector<std::array<std::string, 3>> cases = {
      {"--params", hugeParams, hugeParams + ", line 1, column 25: the number 1e999 is out of range"},
      {"--params", deepParams, deepParams + ", line 1, column 279: arrays and objects nest deeper than 256 levels"},
      {"--config", hugeConfig, hugeConfig + "' is refused, nothing was loaded: line 3, column 15: the number 1e999"},
      {"--config", deepConfig, deepConfig + "' is refused, nothing was loaded: line 1, column 269: arrays and"},
  };
  for (const auto& [option, file, expected] : cases) {
    const auto run = RunLaserctl({option, file, "emission-on", "status"});
    EXPECT_EQ(run.ExitStatus, 2) << file << "\n" << run.Err;
    EXPECT_NE(run.Err.find(expected), std::string::npos) << expected << "\n" << run.Err;
    EXPECT_EQ(run.Err.find("json.exception"), std::string::npos) << run.Err;
    EXPECT_EQ(run.Err.find("SetOutputbit"), std::string::npos) << "no laser may be switched\n" << run.Err;
    EXPECT_TRUE(run.Out.empty()) << run.Out;
  }
}

TEST(LaserctlBadInputTest, AFieldOfTheWrongTypeIsNamedWithItsTypeNotItsValue) {
  testsupport::TScratchDir scratch;
  const std::string longText(5000, 'x');
  const auto params =
      scratch.Write("wrong-types.json",
                    R"({"Model": "Default", "DefParams": {"Power": [[[[1, 2, 3]]]], "CtrlPort": 99999999999999999999999,
                               "AimingPort": ")" +
                        longText + "\"}}");
  const auto run = RunLaserctl({"--params", params, "status"});
  EXPECT_EQ(run.ExitStatus, 0) << run.Err;
  for (const std::string expected :
       {"DefParams.Power is an array, expected a number", "DefParams.CtrlPort is a whole number, expected a whole",
        "DefParams.AimingPort is a text, expected a whole number"})
    EXPECT_NE(run.Err.find(expected), std::string::npos) << expected << "\n" << run.Err;
  EXPECT_EQ(run.Err.find("xxxxxxxxxx"), std::string::npos) << "the value itself is not printed";
}

// --input and --serial take one value each, so the first command word after them is a command; --debug turns on
// the laser's debug mode whatever the laser is built from (the factory then names the class it creates).
TEST(LaserctlBadInputTest, RepeatedOptionsTakeOneValueAndDebugReachesEveryRoute) {
  testsupport::TScratchDir scratch;
  const auto params = scratch.Write("default.json", R"({"Model": "Default"})");
  const auto config = scratch.Write("default-config.json", R"({"Model": "Default"})");
  const std::vector<std::vector<std::string>> runs = {
      {"--json", "--input", "3=1", "--input", "4=0", "status"},
      {"--json", "--serial", "1=/dev/null", "--serial", "2=/dev/null", "--input", "3=1", "status"},
      {"--json", "--debug", "status"},
      {"--json", "--debug", "--params", params, "status"},
      {"--json", "--debug", "--config", config, "status"},
  };
  for (const auto& args : runs) {
    const auto run = RunLaserctl(args);
    EXPECT_EQ(run.ExitStatus, 0) << args[1] << " " << args[2] << "\n" << run.Err;
    EXPECT_EQ(JsonLines(run.Out).size(), 1u) << "status ran\n" << run.Out;
    const bool debug = args[1] == "--debug";
    EXPECT_EQ(run.Err.find("CreateLaser ClassType") != std::string::npos, debug) << args[2] << "\n" << run.Err;
  }
}

// Texts from files and lasers reach standard error; a terminal must not receive their control bytes raw.
TEST(LaserctlBadInputTest, ControlBytesInMessagesReachTheTerminalEscaped) {
  testsupport::TScratchDir scratch;
  const auto params = scratch.Write("escape.json", R"({"Model": "Evil\u001b[31mRed\u0007"})");
  const auto run = RunLaserctl({"--params", params, "status"});
  EXPECT_EQ(run.ExitStatus, 1) << run.Err;
  EXPECT_NE(run.Err.find("unknown laser model \"Evil\\x1b[31mRed\\x07\""), std::string::npos) << run.Err;
  EXPECT_EQ(run.Err.find('\x1b'), std::string::npos);
  EXPECT_EQ(run.Err.find('\x07'), std::string::npos);
}

}  // namespace
