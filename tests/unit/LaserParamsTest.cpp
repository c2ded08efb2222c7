#include "frame/LaserParams.h"

#include <gtest/gtest.h>

#include <limits>

namespace devlaser {
namespace {

// The defaults a laser without a configured value runs with, in a fresh record and in a used one initialised again.
TEST(LaserParams, FreshAndReinitializedRecordsHoldTheCommonDefaults) {
  TLaserParams p;
  auto expectDefaults = [&] {
    EXPECT_EQ(p.Model, "Error");
    EXPECT_EQ(p.LaserMainType, eltNone);
    EXPECT_EQ(p.LaserSubType, 0);
    const TLaserParamsDef& d = p.DefParams;
    EXPECT_EQ(d.DataTransType, dttNone);
    EXPECT_EQ(d.DiodeSetTimeOut, 1000);
    EXPECT_EQ(d.PWM.Frequency, 5000);
    EXPECT_DOUBLE_EQ(d.PWM.MinRatio, 0.01);
    EXPECT_DOUBLE_EQ(d.DA.MaxVoltage, 10.0);
    EXPECT_EQ(d.Comm.CommSettings, "9600,n,8,1");
    EXPECT_EQ(d.Comm.Baudrate, 9600);
    EXPECT_TRUE(d.Comm.IgnoreCommResult);
    EXPECT_DOUBLE_EQ(d.ConnCheck.ConnCheckTimeIntv, 30.0);
    // Family records stay zero until the parameter initialiser fills the one the laser needs.
    EXPECT_EQ(p.CfgIPG.YLS.Wire.LaserOnPort, 0);
    EXPECT_EQ(p.CfgRay.CtrlMode, 0);
    EXPECT_TRUE(p.CfgZorun.Desc.empty());
  };
  expectDefaults();
  p.Model = "IPG";
  p.InitLaserType(eltIPG, 3);
  p.DefParams.PWM.Frequency = 1;
  p.DefParams.Comm.CommSettings = "115200,n,8,1";
  p.CfgIPG.YLS.Wire.LaserOnPort = 6;
  p.CfgRay.CtrlMode = 4;
  p.CfgZorun.Desc = "left over";
  p.Initialize();
  expectDefaults();
}

// Each laser keeps its own copy of the record: a copy holds every field, and changing it leaves the original alone.
TEST(LaserParams, CopyingARecordCopiesEverything) {
  TLaserParams p;
  p.Model = "IPG-YLR";
  p.InitLaserType(eltIPG, 2);
  p.DefParams.Comm.CommSettings = "57600,n,8,1";
  p.CfgIPG.YLS.Wire.LaserOnPort = 9;
  p.CfgZorun.Desc = "激光器";
  TLaserParams copy;
  copy = p;
  EXPECT_EQ(copy.Model, "IPG-YLR");
  EXPECT_EQ(copy.LaserSubType, 2);
  EXPECT_EQ(copy.DefParams.Comm.CommSettings, "57600,n,8,1");
  EXPECT_EQ(copy.CfgIPG.YLS.Wire.LaserOnPort, 9);
  EXPECT_EQ(copy.CfgZorun.Desc, "激光器");
  copy.CfgZorun.Desc.clear();
  EXPECT_EQ(p.CfgZorun.Desc, "激光器");
}

TEST(LaserParams, FamilyRecordDefaults) {
  TIPGLaserParams ipg{};
  ipg.MaxCurrent = 55.0;
  ipg.YLR.GateMode = true;
  ipg.YLP.YLPLock = 9;
  ipg.Initialize();
  EXPECT_EQ(ipg.YLS.Wire.LaserOnPort, 6);
  EXPECT_EQ(ipg.YLS.Wire.LaserOnDelay, 10000);
  EXPECT_FALSE(ipg.YLR.GateMode);
  EXPECT_EQ(ipg.YLP.YLPLock, 0);
  EXPECT_DOUBLE_EQ(ipg.MaxCurrent, 55.0);  // only the three sub-records are initialised

  // The Raycus record only gets its QCW pulse defaults; the rest was filled from the configuration and stays.
  TRaycusLaserParams ray{};
  ray.CtrlMode = 3;
  ray.MaxCurrent = 80.0;
  ray.Initialize();
  EXPECT_EQ(ray.QCW.PulseFreq, 5000);
  EXPECT_EQ(ray.QCW.PulsePower, 100);
  EXPECT_EQ(ray.CtrlMode, 3);
  EXPECT_DOUBLE_EQ(ray.MaxCurrent, 80.0);
}

TEST(LaserParams, DARatioScalesOnlyAboveAFiveVoltBoard) {
  TLaserDA da{};
  da.Initialize();
  EXPECT_DOUBLE_EQ(da.GetDARatio(7.5), 7.5);  // 10 V laser on a 10 V board

  da.MaxVoltage = 10.0;
  da.ProofMax = 5.0;  // 5 V or less: no scaling configured
  EXPECT_DOUBLE_EQ(da.GetDARatio(4.0), 4.0);

  da.MaxVoltage = 5.0;
  da.ProofMax = 10.0;
  EXPECT_DOUBLE_EQ(da.GetDARatio(4.0), 2.0);

  da.ProofMax = 5.0001;
  EXPECT_NEAR(da.GetDARatio(4.0), 5.0 / 5.0001 * 4.0, 1e-12);

  da.ProofMax = std::numeric_limits<double>::quiet_NaN();
  EXPECT_DOUBLE_EQ(da.GetDARatio(4.0), 4.0);
}

TEST(LaserParams, StatusBitTakesTheIndexModulo32) {
  EXPECT_TRUE(LaserDevStatusBit(0x80000000u, 31));
  EXPECT_FALSE(LaserDevStatusBit(0x7FFFFFFFu, 31));
  EXPECT_TRUE(LaserDevStatusBit(0x10u, 36));
  EXPECT_FALSE(LaserDevStatusBit(0u, 65535));
  EXPECT_TRUE(LaserDevStatusBit(0x80000000u, 65535));  // 65535 % 32 == 31
}

}  // namespace
}  // namespace devlaser
