// laserctl and the plug-in file: one built against other host interfaces is refused before anything of it runs,
// and a file that is no plug-in at all is reported clearly.
#include <gtest/gtest.h>

#include "LaserctlTestSupport.h"
#include "host/HostDefs.h"

namespace {

using laserctltest::RunLaserctl;

TEST(LaserctlPluginTest, PluginOfAnotherInterfaceVersionIsRefused) {
  const std::string plugin = laserctltest::BinDir() + "/fixtures/libother_version_plugin.so";
  const auto run = RunLaserctl({"--lib", plugin, "status"});
  // The fake aborts when asked for its API table: a normal exit shows that only its version was asked.
  EXPECT_EQ(run.ExitStatus, 2) << run.Err;
  const std::string expected = "refusing the laser plug-in " + plugin + ": it was built for host interface version " +
                               std::to_string(nchost::kHostInterfaceVersion + 1) + ", laserctl has version " +
                               std::to_string(nchost::kHostInterfaceVersion);
  EXPECT_NE(run.Err.find(expected), std::string::npos) << run.Err;
  EXPECT_TRUE(run.Out.empty()) << run.Out;
}

TEST(LaserctlPluginTest, FileThatIsNoPluginIsReported) {
  testsupport::TScratchDir scratch;
  for (const auto& file : {scratch.Write("libNotAPlugin.so", "this is text, not a shared object\n"),
                           std::string("/nonexistent/libDevLaser.so")}) {
    const auto run = RunLaserctl({"--lib", file, "status"});
    EXPECT_EQ(run.ExitStatus, 2);
    EXPECT_NE(run.Err.find("cannot load the laser plug-in " + file), std::string::npos) << run.Err;
  }
}

}  // namespace
