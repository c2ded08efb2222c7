// laserctl drives the example IPG YLR configuration against its simulator: emission on, a diode current, and the
// status bits and alarms the laser reports back.
#include <gtest/gtest.h>

#include <algorithm>

#include "LaserctlTestSupport.h"

namespace {

TEST(IpgYlrLaserctlTest, ExampleConfigurationSwitchesEmissionAndCurrentOnTheSimulatedLaser) {
  const auto run =
      laserctltest::RunLaserctl({"--config", laserctltest::SourceDir() + "/examples/ipg-ylr-tcp.json", "--sim",
                                 "--json", "emission-on", "diode", "40", "wait", "300", "status", "alarms"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = laserctltest::JsonLines(run.Out);
  ASSERT_FALSE(lines.empty()) << run.Out;
  const auto& status = lines.front()["status"];
  EXPECT_TRUE(status.value("IsEmissionOn", false)) << status.dump();
  EXPECT_DOUBLE_EQ(status.value("DiodeCurrent", 0.0), 40.0);
  EXPECT_EQ(status.value("StateBit", -1), 0x1004);  // emission (bit 2) and modulation (bit 12) of a CW laser

  // One line per alarm, the status bits among them: emission (ID 4) raised.
  const auto emission =
      std::find_if(lines.begin(), lines.end(), [](const auto& line) { return line.value("id", 0) == 4; });
  ASSERT_NE(emission, lines.end()) << run.Out;
  EXPECT_TRUE(emission->value("raised", false));
}

}  // namespace
