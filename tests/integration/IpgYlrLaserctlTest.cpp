// laserctl drives the example IPG YLR configuration against its simulator: emission on, a diode current, and the
// status bits and alarms the laser reports back.
#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>

#include "LaserctlTestSupport.h"

namespace {

using laserctltest::JsonLines;
using laserctltest::RunLaserctl;

TEST(IpgYlrLaserctlTest, ExampleConfigurationSwitchesEmissionAndCurrentOnTheSimulatedLaser) {
  const auto run = RunLaserctl({"--config", laserctltest::SourceDir() + "/examples/ipg-ylr-tcp.json", "--sim", "--json",
                                "emission-on", "diode", "40", "wait", "300", "status", "alarms"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = JsonLines(run.Out);
  ASSERT_FALSE(lines.empty()) << run.Out;
  const auto& status = lines.front();
  EXPECT_EQ(status.value("LaserType", ""), "IPG-YLR");
  EXPECT_TRUE(status.value("IsEmissionOn", false)) << status.dump();
  EXPECT_DOUBLE_EQ(status.value("DiodeCurrent", 0.0), 40.0);
  // Emission (bit 2) and modulation (bit 4) of a CW laser; no alarm, no warning.
  EXPECT_EQ(status.value("StateBit", -1), 0x14);
  EXPECT_EQ(status.value("AlarmBit", -1), 0);
  EXPECT_EQ(status.value("WarningBit", -1), 0);

  // One line per alarm: the status bits as IDs 2..33, emission (ID 4) raised with the others clear.
  std::map<int, bool> alarms;
  for (size_t i = 1; i < lines.size(); ++i) alarms[lines[i].value("id", 0)] = lines[i].value("raised", false);
  EXPECT_TRUE(alarms.count(511));
  for (int id = 2; id <= 33; ++id) EXPECT_TRUE(alarms.count(id)) << id;
  EXPECT_TRUE(alarms[4]);
  EXPECT_FALSE(alarms[3]);
}

}  // namespace
