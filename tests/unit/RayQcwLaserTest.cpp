// The Raycus QCW laser without its serial driver (no serial port, or not configured as QCW): emission still goes
// by the start and gate outputs, the diode current by the DA output, and nothing asks for a driver.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

#include "core/LaserLifetime.h"
#include "raycus/RayQcwLaser.h"
#include "support/LaserHostFixture.h"

namespace devlaser {
namespace {

using refhost::TIOOp;

struct TRecordingReport : nchost::INcAlarmReport20 {
  std::map<int32_t, bool> Raised;
  void ReportAlarm(int32_t id, bool raised) override { Raised[id] = raised; }
};

class RayQcwLaserTest : public testing::TLaserHostFixture {
 protected:
  void SetUp() override {
    TLaserHostFixture::SetUp();
    FParams.Model = "Raycus";
    FParams.LaserMainType = eltRay;
    FParams.LaserSubType = TRayQCWLaser::kQcwSubType;
    FParams.DefParams.Comm.CommPort = 0;
    FParams.DefParams.CtrlPort = 6;
    FParams.DefParams.DA.DAPort = 1;
    FParams.DefParams.DA.MaxVoltage = 10;
    FParams.CfgRay.UseRemoteCtrl = true;
    FParams.CfgRay.RayStartPort = 7;
  }
  TRayQCWLaser& Make() {
    FLaser = MakeLaser<TRayQCWLaser>(FParams, FIO);
    if (!FLaser) throw std::runtime_error("the QCW laser could not be built");
    return *FLaser;
  }
  std::shared_ptr<TRayQCWLaser> FLaser;
};

TEST_F(RayQcwLaserTest, WithoutASerialPortOrQcwModeTheOutputsDoEverything) {
  for (bool qcw : {true, false}) {
    SCOPED_TRACE(qcw ? "no serial port" : "not QCW");
    FParams.DefParams.Comm.CommPort = qcw ? 0 : 3;
    FParams.LaserSubType = qcw ? TRayQCWLaser::kQcwSubType : 1;
    auto& laser = Make();
    EXPECT_EQ(laser.Driver(), nullptr);
    EXPECT_EQ(laser.GetIsQCW(), qcw);

    laser.EmissionOn();
    EXPECT_TRUE(FIO->GetOutputBit(6));
    EXPECT_TRUE(FIO->GetOutputBit(7));
    EXPECT_TRUE(laser.GetIsEmissionOn());
    laser.EmissionOff();
    EXPECT_FALSE(FIO->GetOutputBit(6) || FIO->GetOutputBit(7));
    EXPECT_FALSE(laser.GetIsEmissionOn());

    EXPECT_FALSE(laser.SetDiodeCustom(40));
    laser.SetDiodeCurrent(40);
    EXPECT_DOUBLE_EQ(FIO->GetDAValue(1), 4.0);
    EXPECT_EQ(laser.GetDiodeCurrent(), 0.0);
    EXPECT_EQ(laser.GetDeviceDesc(), "");
    TRecordingReport report;
    EXPECT_FALSE(laser.UpdateAlarms(report));
    EXPECT_TRUE(report.Raised.empty());
    EXPECT_EQ(laser.ExecuteCmd(TRayQCWLaser::kQueryCmd, 1), 10);
    FLaser.reset();
  }
}

TEST_F(RayQcwLaserTest, WithoutAGateOutputEmissionIsTheCommandedState) {
  FParams.DefParams.CtrlPort = 0;
  auto& laser = Make();
  EXPECT_FALSE(laser.GetIsHardWire());
  laser.EmissionOn();
  EXPECT_TRUE(laser.GetIsEmissionOn());
  laser.EmissionOff();
  EXPECT_FALSE(laser.GetIsEmissionOn());
}

TEST_F(RayQcwLaserTest, RegistersOneModulesAlarmsAndTheDiodeSetAlarm) {
  struct TTable : nchost::INcAlarmTable20 {
    std::vector<int32_t> Ids;
    void RegisterAlarm(int32_t id, const nchost::TNcAlarmDef&) override { Ids.push_back(id); }
  } table;
  Make().RegisterAlarms(table);
  EXPECT_THAT(table.Ids, ::testing::ElementsAre(1, 511, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14));
  EXPECT_EQ(FLaser->GetAlarmIDPrefix(), "RaycusQCW");
}

}  // namespace
}  // namespace devlaser
