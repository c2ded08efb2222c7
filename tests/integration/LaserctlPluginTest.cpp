// laserctl refuses a plug-in built against other host interfaces before anything of it runs.
#include <gtest/gtest.h>

#include "LaserctlTestSupport.h"
#include "host/HostDefs.h"

namespace {

TEST(LaserctlPluginTest, PluginOfAnotherInterfaceVersionIsRefused) {
  const std::string plugin = laserctltest::BinDir() + "/fixtures/libother_version_plugin.so";
  const auto run = laserctltest::RunLaserctl({"--lib", plugin, "status"});
  // The fake aborts when asked for its API table: a normal exit shows that only its version was asked.
  EXPECT_EQ(run.ExitStatus, 2) << run.Err;
  const std::string expected = "refusing the laser plug-in " + plugin + ": it was built for host interface version " +
                               std::to_string(nchost::kHostInterfaceVersion + 1) + ", laserctl has version " +
                               std::to_string(nchost::kHostInterfaceVersion);
  EXPECT_NE(run.Err.find(expected), std::string::npos) << run.Err;
  EXPECT_TRUE(run.Out.empty()) << run.Out;
}

}  // namespace
