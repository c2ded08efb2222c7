// laserctl drives the example IPG EtherCAT configuration on a simulated EtherCAT bus: the laser slave starts and
// reports emission, the diode current arrives as watts, its alarms come from the slave's alarm dword; without a
// bus the operator is told and gets the default laser.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "LaserctlTestSupport.h"

namespace {

std::vector<std::string> Args(std::vector<std::string> more) {
  std::vector<std::string> args{"--config", laserctltest::SourceDir() + "/examples/ipg-ethercat.json", "--json"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

std::vector<nlohmann::json> Alarms(const std::vector<nlohmann::json>& lines) {
  std::vector<nlohmann::json> alarms;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(alarms),
               [](const nlohmann::json& line) { return line.contains("raised"); });
  return alarms;
}

TEST(IpgEcatLaserctlTest, TheExampleSwitchesEmissionAndSetsWattsOnTheSimulatedBusLaser) {
  const auto run = laserctltest::RunLaserctl(
      Args({"--sim", "emission-on", "wait", "1000", "status", "diode", "50", "status", "alarms"}));
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = laserctltest::JsonLines(run.Out);
  const auto statuses = laserctltest::Statuses(lines);
  ASSERT_EQ(statuses.size(), 2u) << run.Out;
  EXPECT_TRUE(statuses[0].value("IsEmissionOn", false)) << statuses[0].dump();
  EXPECT_TRUE(statuses[1].value("IsEmissionOn", false)) << statuses[1].dump();
  EXPECT_DOUBLE_EQ(statuses[1].value("DiodeCurrent", 0.0), 50.0);

  // The laser's alarm and its thirteen bus alarms, none raised.
  const auto alarms = Alarms(lines);
  EXPECT_EQ(alarms.size(), 14u) << run.Out;
  for (const auto& alarm : alarms) EXPECT_FALSE(alarm.value("raised", true)) << alarm.dump();

  // What the controller wrote to the slave: the start sequence, emission, 1000 W of the laser's 2000 W, and
  // everything off when laserctl destroyed the laser.
  for (const char* write : {"EcatInput: 0, 0x0003", "EcatInput: 0, 0x0013", "EcatInput: 1, 0x03E8"})
    EXPECT_NE(run.Err.find(write), std::string::npos) << write << "\n" << run.Err;
  EXPECT_LT(run.Err.find("EcatInput: 0, 0x0013"), run.Err.rfind("EcatInput: 0, 0x0000")) << run.Err;
}

TEST(IpgEcatLaserctlTest, TheSlavesAlarmDwordRaisesItsAlarm) {
  const auto run = laserctltest::RunLaserctl(Args({"--sim", "--ecat-alarm", "0x00100000", "alarms"}));
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  std::vector<int> raised;
  for (const auto& alarm : Alarms(laserctltest::JsonLines(run.Out)))
    if (alarm.value("raised", false)) raised.push_back(alarm.value("id", 0));
  EXPECT_EQ(raised, std::vector<int>{20}) << run.Out;  // safety interlock open

  const auto refused = laserctltest::RunLaserctl(Args({"--sim", "--ecat-status", "0x10g", "status"}));
  EXPECT_EQ(refused.ExitStatus, 2);
  EXPECT_NE(refused.Err.find("--ecat-status needs a 32-bit number"), std::string::npos) << refused.Err;
}

TEST(IpgEcatLaserctlTest, WithoutTheBusTheOperatorIsToldAndGetsTheDefaultLaser) {
  const auto run = laserctltest::RunLaserctl(Args({"--debug", "status"}));
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  // Operator texts are English unless the environment asks for Chinese.
  EXPECT_NE(run.Err.find("No EtherCAT laser connected"), std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("CreateLaser ClassType TDefaultLaser"), std::string::npos) << run.Err;
  EXPECT_EQ(run.Err.find("EcatInput"), std::string::npos) << run.Err;
}

}  // namespace
