// laserctl --sim: the simulator that matches the configured laser starts where the laser's driver looks for it;
// a laser whose protocol has no simulator yet is told so and still runs; a hard-wired laser is left alone.
#include <gtest/gtest.h>

#include "LaserctlTestSupport.h"

namespace {

using laserctltest::RunLaserctl;
using laserctltest::TScratch;

TEST(LaserctlSimTest, IpgYlrOverTcpGetsItsSimulatorOnTheConfiguredAddress) {
  LASERCTL_REQUIRE_PLUGIN();
  TScratch scratch;
  // An address of its own, so that tests running in parallel never share port 10001.
  const auto config = scratch.Write("ipg-tcp.json", R"({
    "Model": "IPG",
    "IPG": {"Model": "YLR", "UseTcp": true, "TcpHost": "127.0.0.31"}
  })");
  const auto run = RunLaserctl({"--config", config, "--sim", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_NE(run.Err.find("simulated IPG YLR laser listening on 127.0.0.31:10001"), std::string::npos) << run.Err;
  EXPECT_EQ(run.Err.find("no simulator"), std::string::npos) << run.Err;
}

TEST(LaserctlSimTest, IpgYlrOnASerialPortGetsAPseudoTerminalUnderThatPortNumber) {
  LASERCTL_REQUIRE_PLUGIN();
  TScratch scratch;
  const auto config = scratch.Write("ipg-serial.json", R"({
    "Model": "IPG",
    "IPG": {"Model": "YLR", "UseTcp": false, "CommPort": 3}
  })");
  const auto run = RunLaserctl({"--config", config, "--sim", "status"});
  ASSERT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_NE(run.Err.find("simulated IPG YLR laser on serial port 3 (/dev/pts/"), std::string::npos) << run.Err;
}

TEST(LaserctlSimTest, ProtocolWithoutSimulatorIsToldAndTheCommandsStillRun) {
  LASERCTL_REQUIRE_PLUGIN();
  TScratch scratch;
  const auto params = scratch.Write("zorun-udp.json", R"({
    "Model": "Zorun",
    "LaserMainType": "eltZorun",
    "DefParams": {"DataTransType": "dttNetUDP", "Net": {"TcpHost": "127.0.0.32", "TcpPort": 10001}}
  })");
  const auto run = RunLaserctl({"--params", params, "--sim", "status"});
  EXPECT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_NE(run.Err.find("there is no simulator for Zorun lasers over UDP yet"), std::string::npos) << run.Err;
  EXPECT_NE(run.Out.find("status {"), std::string::npos) << run.Out;
}

TEST(LaserctlSimTest, HardWiredLaserNeedsNoSimulator) {
  LASERCTL_REQUIRE_PLUGIN();
  const auto run = RunLaserctl({"--sim", "status"});
  EXPECT_EQ(run.ExitStatus, 0) << run.Err;
  EXPECT_EQ(run.Err.find("simulat"), std::string::npos) << run.Err;
}

}  // namespace
