#include "frame/LaserParams.h"

#include <gtest/gtest.h>

#include <limits>

namespace devlaser {
namespace {

// A record used by one laser and initialised again holds the common defaults, with no family values left over.
TEST(LaserParams, InitializeForgetsEverythingTheLastLaserSet) {
  TLaserParams p;
  p.Model = "IPG";
  p.InitLaserType(eltIPG, 3);
  p.DefParams.PWM.Frequency = 1;
  p.CfgZorun.Desc = "left over";
  p.Initialize();
  EXPECT_EQ(p.Model, "Error");
  EXPECT_EQ(p.LaserMainType, eltNone);
  EXPECT_EQ(p.DefParams.PWM.Frequency, 5000);
  EXPECT_TRUE(p.CfgZorun.Desc.empty());
}

TEST(LaserParams, DARatioScalesOnlyAboveAFiveVoltBoard) {
  TLaserDA da{};
  da.MaxVoltage = 10.0;
  da.ProofMax = 5.0;  // 5 V or less: no scaling configured
  EXPECT_DOUBLE_EQ(da.GetDARatio(4.0), 4.0);
  da.MaxVoltage = 5.0;
  da.ProofMax = 10.0;
  EXPECT_DOUBLE_EQ(da.GetDARatio(4.0), 2.0);
  da.ProofMax = std::numeric_limits<double>::quiet_NaN();
  EXPECT_DOUBLE_EQ(da.GetDARatio(4.0), 4.0);
}

}  // namespace
}  // namespace devlaser
