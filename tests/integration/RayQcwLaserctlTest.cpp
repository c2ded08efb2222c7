// laserctl drives the example Raycus QCW configuration against its simulator on a pseudo-terminal: laser on and a
// diode current over the frame protocol, the status it shows and the alarm bytes the simulated laser reports.
#include <gtest/gtest.h>

#include <algorithm>

#include "LaserctlTestSupport.h"

namespace {

TEST(RayQcwLaserctlTest, ExampleConfigurationRunsOnTheSimulatedLaser) {
  const auto run =
      laserctltest::RunLaserctl({"--config", laserctltest::SourceDir() + "/examples/raycus-qcw.json", "--sim", "--json",
                                 "laser-on", "diode", "50", "wait", "500", "status", "alarms"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_NE(run.Err.find("simulated Raycus QCW laser on serial port 3"), std::string::npos) << run.Err;
  const auto lines = laserctltest::JsonLines(run.Out);
  ASSERT_FALSE(lines.empty()) << run.Out;
  const auto& status = lines.front()["status"];
  EXPECT_TRUE(status.value("IsQCW", false)) << status.dump();
  EXPECT_DOUBLE_EQ(status.value("DiodeCurrent", 0.0), 50.0) << status.dump();

  // One module: its 13 alarm bytes as IDs 2 to 14, none raised, beside the laser's generic and diode-set alarms.
  std::vector<int> ids;
  for (const auto& line : lines) {
    if (!line.contains("id")) continue;
    EXPECT_FALSE(line.value("raised", true)) << line.dump();
    const int id = line.value("id", 0);
    if (id != 1 && id != 511) ids.push_back(id);
  }
  ASSERT_EQ(ids.size(), 13u) << run.Out;
  EXPECT_EQ(ids.front(), 2);
  EXPECT_EQ(ids.back(), 14);
}

}  // namespace
