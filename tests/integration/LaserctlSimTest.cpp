// laserctl --sim: the simulator that matches the configured laser starts where the laser's driver looks for it;
// a laser whose protocol has no simulator yet is told so and still runs; a hard-wired laser is left alone.
#include <gtest/gtest.h>

#include "LaserctlTestSupport.h"

namespace {

TEST(LaserctlSimTest, StartsTheSimulatorThatMatchesTheConfiguredLaser) {
  testsupport::TScratchDir scratch;
  const struct {
    std::vector<std::string> Laser;  // the option that gives the laser and its file
    std::string Present;             // on standard error
    std::vector<std::string> Absent;
  } cases[] = {
      // An address of its own, so that tests running in parallel never share port 10001.
      {{"--config", scratch.Write("tcp.json", R"({"Model": "IPG",
          "IPG": {"Model": "YLR", "UseTcp": true, "TcpHost": "127.0.0.31"}})")},
       "simulated IPG YLR laser listening on 127.0.0.31:10001",
       {"no simulator"}},
      {{"--config", scratch.Write("serial.json", R"({"Model": "IPG",
          "IPG": {"Model": "YLR", "UseTcp": false, "CommPort": 3}})")},
       "simulated IPG YLR laser on serial port 3 (/dev/pts/",
       {"no simulator"}},
      {{"--params", scratch.Write("zorun.json", R"({"Model": "Zorun", "LaserMainType": "eltZorun", "DefParams":
          {"DataTransType": "dttNetUDP", "Net": {"TcpHost": "127.0.0.32", "TcpPort": 10001}}})")},
       "there is no simulator for Zorun lasers over UDP yet",
       {"simulated"}},
      // The example configuration of the hard-wired default laser.
      {{"--config", laserctltest::SourceDir() + "/examples/default-laser.json"}, "", {"simulat", "[error]"}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.Laser[1]);
    auto args = row.Laser;
    args.insert(args.end(), {"--sim", "status"});
    const auto run = laserctltest::RunLaserctl(args);
    EXPECT_EQ(run.ExitStatus, 0) << run.Err;
    EXPECT_NE(run.Err.find(row.Present), std::string::npos) << run.Err;
    for (const auto& absent : row.Absent) EXPECT_EQ(run.Err.find(absent), std::string::npos) << absent << run.Err;
    EXPECT_NE(run.Out.find("] status {"), std::string::npos) << run.Out;
  }
}

}  // namespace
