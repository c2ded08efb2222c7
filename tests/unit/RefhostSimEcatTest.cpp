// The simulated IPG laser slave answers the control word as the laser does: it starts only when enable and start
// are raised in order, emits only while started, and clears its alarms with the reset bit.
#include <gtest/gtest.h>

#include <chrono>
#include <initializer_list>
#include <vector>

#include "refhost/SimEcatLaserSlave.h"

namespace refhost {
namespace {

using namespace std::chrono_literals;
using TSlave = TSimEcatLaserSlave;

TEST(RefhostSimEcatTest, TheStatusWordFollowsTheControlWordsInOrder) {
  const struct {
    std::vector<uint32_t> Control;
    uint32_t Status;
  } cases[] = {
      {{0x01, 0x03}, 0x03},
      {{0x01, 0x03, 0x13}, 0x13 | TSlave::kLaserOn},
      {{0x01, 0x13}, 0x13 | TSlave::kLaserOn},  // emission asked for with the start bit
      {{0x03}, 0x00},                           // enable and start at once: no start
      {{0x02, 0x03}, 0x00},                     // start before enable: no start
      {{0x01, 0x03, 0x01, 0x11}, 0x00},         // start dropped: stopped, and emission waits for a start
      {{0x08}, 0x08},                           // aiming needs no start
  };
  for (const auto& c : cases) {
    TSlave slave(TSimEcatSlaveKind::IpgLaser, 0ms);
    for (uint32_t control : c.Control) slave.WriteInput(TSlave::kControlIndex, control);
    EXPECT_EQ(slave.ReadOutput(TSlave::kStatusIndex), c.Status) << ::testing::PrintToString(c.Control);
    EXPECT_EQ(slave.ControlWrites().size(), c.Control.size());
  }

  // Started only after the start time.
  TSlave slow(TSimEcatSlaveKind::IpgLaser, 1h);
  for (uint32_t control : {0x01u, 0x03u}) slow.WriteInput(TSlave::kControlIndex, control);
  EXPECT_EQ(slow.ReadOutput(TSlave::kStatusIndex), 0u);
}

TEST(RefhostSimEcatTest, TheResetBitClearsTheAlarmsAndTheirValidBits) {
  TSlave ipg(TSimEcatSlaveKind::IpgLaser, 0ms);
  ipg.SetAlarmDword(0x00110000);
  ipg.SetStatusFlags(0x800 | TSlave::kAlarmValid | TSlave::kWarningValid | TSlave::kProgramInterrupted);
  ipg.WriteInput(TSlave::kControlIndex, TSlave::kReset);
  EXPECT_EQ(ipg.ReadOutput(TSlave::kAlarmIndex), 0u);
  EXPECT_EQ(ipg.ReadOutput(TSlave::kStatusIndex), 0x800u);
}

}  // namespace
}  // namespace refhost
