// laserctl and the laser's own link (serial, TCP, UDP): a link that never comes up is named and stops the run
// before any command, and --trace-io shows the traffic of each kind of link both ways, escaped for a terminal.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "LaserctlTestSupport.h"

namespace {

using namespace laserctltest;

std::string IpgYlrTcpConfig(const std::string& host) {
  return R"({"Model": "IPG", "CtrlPort": 5, "IPG": {"Model": "YLR", "UseTcp": true, "TcpHost": ")" + host + "\"}}";
}

std::string OwnBrandUdpConfig(const std::string& host) {
  return R"({"Model": "Zorun", "Zorun": {"LaserIdx": 0, "CommType": 2, "NetAddress": ")" + host +
         R"(", "NetPort": 10001}})";
}

const std::string kRaycusSerial = SourceDir() + "/examples/raycus-serial.json";
const std::string kDescriptions = SourceDir() + "/examples";  // the own-brand laser's description file

TEST(LaserctlLinkTest, ALinkThatNeverCameUpIsNamedAndNoCommandRuns) {
  testsupport::TScratchDir scratch;
  setenv("LANG", "en_US.UTF-8", 1);
  unsetenv("LC_ALL");
  unsetenv("LC_MESSAGES");
  const std::string noDevice = scratch.Path() + "/no-such-tty";
  struct TCase {
    std::vector<std::string> Args;
    std::string Says;
  };
  const std::vector<TCase> cases = {
      {{"--config", scratch.Write("tcp.json", IpgYlrTcpConfig("127.0.21.1"))},
       "the laser's link TCP 127.0.21.1:10001 never came up within 1 s (cannot connect to 127.0.21.1:10001"},
      {{"--config", kRaycusSerial, "--serial", "1=" + noDevice},
       "the laser's link serial port 1 (" + noDevice + ") never came up within 1 s (cannot open " + noDevice},
      {{"--config", scratch.Write("udp.json", OwnBrandUdpConfig("127.0.21.2")), "--host-dir", kDescriptions},
       "the laser's link UDP 127.0.21.2:10001 never came up within 1 s (open, but the laser never answered)"},
  };
  for (auto args : cases) {
    args.Args.insert(args.Args.end(), {"--link-wait", "1", "--json", "emission-on", "status"});
    const auto run = RunLaserctl(args.Args);
    EXPECT_EQ(run.ExitStatus, 1) << run.Err;
    EXPECT_NE(run.Err.find(args.Says), std::string::npos) << args.Says << "\n" << run.Err;
    EXPECT_TRUE(run.Out.empty()) << "no command runs on a laser that never answered\n" << run.Out;
  }
}

TEST(LaserctlLinkTest, TraceIoShowsEachKindOfLinkBothWaysWithControlBytesEscaped) {
  testsupport::TScratchDir scratch;
  struct TCase {
    std::vector<std::string> Args;
    std::string Link;  // how the trace names the link
    std::string Sent;  // a chunk laserctl sent for emission-on: hex, then as text
  };
  const std::vector<TCase> cases = {
      {{"--config", scratch.Write("tcp.json", IpgYlrTcpConfig("127.0.21.3"))},
       "TCP 127.0.21.3:10001",
       "45 4D 4F 4E 0D"},  // EMON
      {{"--config", kRaycusSerial}, "serial port 1 (/dev/pts/", "1B 4F 0D  \"\\x1BO\\r\""},
      {{"--config", scratch.Write("udp.json", OwnBrandUdpConfig("127.0.21.4")), "--host-dir", kDescriptions},
       "UDP 127.0.21.4:10001",
       "5A A5 01 10 00 02 C1  \"Z\\xA5\\x01\\x10\\x00\\x02\\xC1\""},  // init
  };
  for (auto c : cases) {
    c.Args.insert(c.Args.end(), {"--sim", "--trace-io", "emission-on", "wait", "200"});
    const auto run = RunLaserctl(c.Args);
    EXPECT_EQ(run.ExitStatus, 0) << run.Err;
    // One trace line per chunk: the link, the direction, the bytes.
    bool sent = false, received = false;
    std::istringstream lines(run.Err);
    for (std::string line; std::getline(lines, line);) {
      const auto link = line.find("Trace IO: " + c.Link);
      if (link == std::string::npos) continue;
      sent = sent || (line.find(" -> ", link) != std::string::npos && line.find(c.Sent) != std::string::npos);
      received = received || line.find(" <- ", link) != std::string::npos;
    }
    EXPECT_TRUE(sent) << c.Sent << "\n" << run.Err;
    EXPECT_TRUE(received) << "the laser's answers\n" << run.Err;
    EXPECT_EQ(run.Err.find_first_of("\r\x1b"), std::string::npos) << "raw control bytes reached the terminal";
  }
}

}  // namespace
