// laserctl drives the example Raycus serial configuration against its simulator on a pseudo-terminal.
#include <gtest/gtest.h>

#include "LaserctlTestSupport.h"

namespace {

TEST(RaycusLaserctlTest, ExampleConfigurationSwitchesEmissionAndCurrentOnTheSimulatedLaser) {
  const auto run =
      laserctltest::RunLaserctl({"--config", laserctltest::SourceDir() + "/examples/raycus-serial.json", "--sim",
                                 "--debug", "--json", "emission-on", "diode", "60", "wait", "300", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  const auto lines = laserctltest::JsonLines(run.Out);
  ASSERT_FALSE(lines.empty()) << run.Out;
  const auto& status = lines.back()["status"];
  EXPECT_EQ(status.value("LaserType", ""), "Ray-CW") << status.dump();
  EXPECT_TRUE(status.value("IsEmissionOn", false)) << status.dump();
  EXPECT_DOUBLE_EQ(status.value("DiodeCurrent", 0.0), 60.0);
  // The simulated laser's log: emission on and 60 % (0x3C) reached the line.
  EXPECT_NE(run.Err.find("<- 1B 4F 0D"), std::string::npos) << run.Err;
  EXPECT_NE(run.Err.find("<- 1B 43 50 3C 0D"), std::string::npos) << run.Err;
  EXPECT_EQ(run.Err.find("Trace IO"), std::string::npos) << "the link's traffic only with --trace-io\n" << run.Err;
}

}  // namespace
