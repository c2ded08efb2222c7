#include "frame/LaserConfig.h"
#include "frame/LaserParams.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace devlaser {
namespace {

std::string SubNodeNames(const nchost::TXmlSubConfig& node) {
  std::string names;
  for (const auto& n : node.SubConfigs()) names += (names.empty() ? "" : ",") + n->NodeName();
  return names;
}

// Initialize brings back the defaults a fresh installation drives the laser with, without dropping the family nodes
// or declaring a key a second time.
TEST(LaserConfig, InitializeRestoresTheDefaultsAndKeepsFamilyNodes) {
  TLaserConfig cfg;
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM");  // family nodes are made when first used
  const size_t rootKeys = cfg.Properties().size(), pwmKeys = cfg.Pwm().Properties().size();
  cfg.SetModel("CO2");
  cfg.Pwm().SetFrequency(20000);
  cfg.GetCO2Config().SetShutterPort(3);
  cfg.Initialize();
  EXPECT_EQ(cfg.Properties().size(), rootKeys);
  EXPECT_EQ(cfg.Pwm().Properties().size(), pwmKeys);
  EXPECT_EQ(cfg.Model(), "Raycus");
  EXPECT_EQ(cfg.Pwm().Frequency(), 5000);
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,CO2");
  EXPECT_EQ(cfg.GetCO2Config().ShutterPort(), 3);
  // A value of the wrong type is refused and the key keeps its value.
  EXPECT_FALSE(cfg.SetProperty("CtrlPort", std::string("5")));
  EXPECT_EQ(cfg.CtrlPort(), 0);
}

// Nodes a file names are made on first use (the round trip of every family is in LaserConfigPersistTest); names
// that are not a family make nothing.
TEST(LaserConfig, FilesMakeOnlyTheFamilyNodesTheyName) {
  TLaserConfig cfg;
  for (const char* unknown : {"Trumpf", "Mars", ""}) EXPECT_EQ(cfg.SubConfigForLoad(unknown), nullptr) << unknown;
  TLaserIPGConfig& ipg = cfg.GetIPGConfig();
  EXPECT_EQ(ipg.SubConfigForLoad("YLS2000"), &ipg.YLS2000());  // the IPG node in turn holds its YLS2000 node
  // A name that already belongs to a node of another class is not handed out as the wrong class.
  EXPECT_EQ(cfg.GetLaserConfig<TCO2LaserConfig>("IPG"), nullptr);
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,IPG");
}

// The family tests are case-sensitive and YAG is the whole model; the brand follows the model unless the model is
// generic or names the configured brand.
TEST(LaserConfig, ModelDecidesTheFamilyAndTheBrand) {
  struct TCase {
    const char *Brand, *Model;
    bool CO2, IPG, YAG;
    const char* ExpectedBrand;
  };
  const TCase cases[] = {
      {"IPG", "Raycus", false, false, false, "Raycus"}, {"", "CO2-Rofin", true, false, false, "CO2-Rofin"},
      {"", "co2", false, false, false, "co2"},          {"IPG", "IPG-YLS", false, true, false, "IPG"},
      {"", "yag", false, false, true, "yag"},           {"", "YAG-1", false, false, false, "YAG-1"},
      {"IPG", "default", false, false, false, "IPG"},   {"IPG", "", false, false, false, "UnkownBrand"},
  };
  TLaserConfig cfg;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.Brand) + " / " + c.Model);
    cfg.SetBrand(c.Brand);
    cfg.SetModel(c.Model);
    EXPECT_EQ(cfg.IsCO2(), c.CO2);
    EXPECT_EQ(cfg.IsIPG(), c.IPG);
    EXPECT_EQ(cfg.IsYAG(), c.YAG);
    EXPECT_EQ(cfg.GetBrand(), c.ExpectedBrand);
  }
}

TEST(LaserConfig, BaudRateIsTheFirstFieldOfTheSerialSettings) {
  TLaserConfig cfg;
  TSPILaserConfig& spi = cfg.GetSPIConfig();
  spi.SetBaudrate(115200);
  EXPECT_EQ(spi.CommSettings(), "115200,e,8,1");  // parity, data and stop bits kept
  spi.SetCommSettings(" 4800 ,o,7,2");
  EXPECT_EQ(spi.GetBaudrate(), 4800);
  spi.SetCommSettings("96OO,n,8,1");
  EXPECT_EQ(spi.GetBaudrate(), 0);
  spi.SetBaudrate(9600);  // replaces a broken rate too
  EXPECT_EQ(spi.CommSettings(), "9600,n,8,1");
}

// ---- the parameter record a laser is built from ------------------------------------------------------------------
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
