#include "frame/LaserConfig.h"

#include <gtest/gtest.h>

#include <string>

namespace devlaser {
namespace {

std::string SubNodeNames(const nchost::TXmlSubConfig& node) {
  std::string names;
  for (const auto& n : node.SubConfigs()) names += (names.empty() ? "" : ",") + n->NodeName();
  return names;
}

// Every key surviving save and load is shown by the persistence tests; here: the root's shape and the defaults a
// fresh installation drives the laser with.
TEST(LaserConfig, FreshRootHasItsDefaultsAndOnlyTheDAAndPWMNodes) {
  TLaserConfig cfg;
  EXPECT_EQ(cfg.Properties().size(), 17u);
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM");
  EXPECT_EQ(&cfg.DA(), cfg.FindSubConfig("DA"));
  EXPECT_EQ(&cfg.Pwm(), cfg.FindSubConfig("PWM"));
  EXPECT_EQ(cfg.DA().Parent(), &cfg);
  EXPECT_EQ(cfg.DA().Properties().size(), 3u);
  EXPECT_EQ(cfg.Pwm().Properties().size(), 7u);

  EXPECT_EQ(cfg.Model(), "Raycus");
  EXPECT_DOUBLE_EQ(cfg.Power(), 1000.0);
  EXPECT_EQ(cfg.ShutterReadyDelay(), 100);
  EXPECT_EQ(cfg.DiodeSetTimeOut(), 1000);
  EXPECT_EQ(cfg.Pwm().Frequency(), 5000);
  EXPECT_DOUBLE_EQ(cfg.Pwm().Ratio(), 1.0);
  EXPECT_DOUBLE_EQ(cfg.DA().MaxVoltage(), 10.0);
  // The one attribute key of these nodes is written as an attribute of its element in the XML form.
  ASSERT_NE(cfg.Pwm().FindProperty("DynamicPwm"), nullptr);
  EXPECT_TRUE(cfg.Pwm().FindProperty("DynamicPwm")->XmlAttribute);
  EXPECT_FALSE(cfg.FindProperty("Model")->XmlAttribute);
}

TEST(LaserConfig, AccessorsAndStoredKeysAreOneAndTheSame) {
  TLaserConfig cfg;
  cfg.SetCtrlPort(7);
  cfg.SetModel("IPG");
  cfg.SetPower(1500.5);
  cfg.SetHardWireMutexEmAndAB(true);
  cfg.DA().SetDAPort(1203);
  cfg.Pwm().SetDynamicPwm(true);
  EXPECT_EQ(cfg.GetInteger("CtrlPort"), 7);
  EXPECT_EQ(cfg.GetString("Model"), "IPG");
  EXPECT_DOUBLE_EQ(cfg.GetDouble("Power"), 1500.5);
  EXPECT_TRUE(cfg.GetBool("HardWireMutexEmAndAB"));
  EXPECT_EQ(cfg.DA().GetInteger("DAPort"), 1203);
  EXPECT_TRUE(cfg.Pwm().GetBool("DynamicPwm"));

  // What the host's persistence writes by name, the accessors read.
  ASSERT_TRUE(cfg.SetProperty("AimingPort", int32_t{4}));
  ASSERT_TRUE(cfg.GetRaycusConfig().SetProperty("Type", std::string("RFL-C3000")));
  EXPECT_EQ(cfg.AimingPort(), 4);
  EXPECT_EQ(cfg.GetRaycusConfig().Type(), "RFL-C3000");
  // A value of the wrong type is refused and the key keeps its value.
  EXPECT_FALSE(cfg.SetProperty("CtrlPort", std::string("5")));
  EXPECT_EQ(cfg.CtrlPort(), 7);
}

TEST(LaserConfig, InitializeRestoresDefaultsAndKeepsFamilyNodes) {
  TLaserConfig cfg;
  cfg.SetModel("CO2");
  cfg.SetDiodeSetTimeOut(5);
  cfg.Pwm().SetFrequency(20000);
  cfg.DA().SetProofMax(5.0);
  cfg.GetCO2Config().SetShutterPort(3);
  cfg.Initialize();
  EXPECT_EQ(cfg.Model(), "Raycus");
  EXPECT_EQ(cfg.DiodeSetTimeOut(), 1000);
  EXPECT_EQ(cfg.Pwm().Frequency(), 5000);
  EXPECT_DOUBLE_EQ(cfg.DA().ProofMax(), 10.0);
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,CO2");
  EXPECT_EQ(cfg.GetCO2Config().ShutterPort(), 3);
  EXPECT_EQ(cfg.Properties().size(), 17u);  // no key declared twice
}

TEST(LaserConfig, FamilyNodesAreCreatedOnFirstAccessAndThenReused) {
  TLaserConfig cfg;
  TRaycusLaserConfig& first = cfg.GetRaycusConfig();
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,Raycus");
  EXPECT_EQ(first.Parent(), &cfg);
  EXPECT_EQ(&cfg.GetRaycusConfig(), &first);

  cfg.GetCO2Config();
  cfg.GetIPGConfig();
  cfg.GetGSIConfig();
  cfg.GetMaxSZConfig();
  cfg.GetMeimanConfig();
  cfg.GetQingHuaConfig();
  cfg.GetQYZConfig();
  cfg.GetRofinConfig();
  cfg.GetSPIConfig();
  cfg.GetCASConfig();
  cfg.GetMarsConfig();
  cfg.GetNLightConfig();
  cfg.GetZorunConfig();
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,Raycus,CO2,IPG,GSI,MaxSZ,Meiman,Qinghua,QYZ,Rofin,SPI,CAS,MARS,NLight,Zorun");
  EXPECT_EQ(&cfg.GetIPGConfig(), cfg.FindSubConfig("IPG"));
  EXPECT_EQ(&cfg.GetMarsConfig(), cfg.FindSubConfig("MARS"));
  EXPECT_EQ(SubNodeNames(cfg.GetIPGConfig()), "YLS2000");

  // A name that already belongs to a node of another class is not handed out as the wrong class.
  EXPECT_EQ(cfg.GetLaserConfig<TCO2LaserConfig>("IPG"), nullptr);
  EXPECT_EQ(cfg.GetLaserConfig<TLaserIPGConfig>("IPG"), &cfg.GetIPGConfig());
}

TEST(LaserConfig, LoadingCreatesTheFamilyNodeAFileNames) {
  TLaserConfig cfg;
  nchost::TXmlSubConfig* ipg = cfg.SubConfigForLoad("IPG");
  ASSERT_NE(ipg, nullptr);
  EXPECT_EQ(ipg, &cfg.GetIPGConfig());
  EXPECT_EQ(cfg.SubConfigForLoad("IPG"), ipg);
  EXPECT_EQ(cfg.SubConfigForLoad("DA"), &cfg.DA());
  EXPECT_EQ(cfg.SubConfigForLoad("MARS"), &cfg.GetMarsConfig());
  EXPECT_EQ(cfg.SubConfigForLoad("Zorun"), &cfg.GetZorunConfig());
  // Unknown nodes (and the published property spelling "Mars") create nothing.
  EXPECT_EQ(cfg.SubConfigForLoad("Trumpf"), nullptr);
  EXPECT_EQ(cfg.SubConfigForLoad("Mars"), nullptr);
  EXPECT_EQ(cfg.SubConfigForLoad(""), nullptr);
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,IPG,MARS,Zorun");
  // The IPG node in turn knows its YLS2000 node.
  EXPECT_EQ(ipg->SubConfigForLoad("YLS2000"), &cfg.GetIPGConfig().YLS2000());
}

TEST(LaserConfig, FamilyNodesHaveTheirKeysAndLinkDefaults) {
  TLaserConfig cfg;
  struct TNode {
    nchost::TXmlSubConfig& Node;
    size_t Keys;
  };
  const TNode nodes[] = {
      {cfg.GetRaycusConfig(), 16},
      {cfg.GetSPIConfig(), 6},
      {cfg.GetMaxSZConfig(), 6},
      {cfg.GetGSIConfig(), 6},
      {cfg.GetQYZConfig(), 6},
      {cfg.GetQingHuaConfig(), 6},
      {cfg.GetMarsConfig(), 5},
      {cfg.GetNLightConfig(), 5},
      {cfg.GetCASConfig(), 5},
      {cfg.GetIPGConfig(), 39},
      {cfg.GetIPGConfig().YLS2000(), 17},
      {cfg.GetRofinConfig(), 13},
      {cfg.GetCO2Config(), 7},
      {cfg.GetMeimanConfig(), 2},
      {cfg.GetZorunConfig(), 6},
  };
  for (const auto& n : nodes) EXPECT_EQ(n.Node.Properties().size(), n.Keys) << n.Node.NodeName();

  // Each family's serial link defaults to what its lasers ship with.
  EXPECT_EQ(cfg.GetRaycusConfig().CommSettings(), "9600,n,8,1");
  EXPECT_EQ(cfg.GetIPGConfig().CommSettings(), "57600,n,8,1");
  EXPECT_EQ(cfg.GetSPIConfig().CommSettings(), "19200,e,8,1");
  EXPECT_EQ(cfg.GetQYZConfig().CommSettings(), "38400,n,8,1");
  EXPECT_EQ(cfg.GetQingHuaConfig().CommSettings(), "57600,n,8,1");
  EXPECT_EQ(cfg.GetMaxSZConfig().CommSettings(), "115200,n,8,1");
  EXPECT_EQ(cfg.GetIPGConfig().CommPort(), 1);
  EXPECT_FALSE(cfg.GetIPGConfig().UseTcp());
  EXPECT_EQ(cfg.GetIPGConfig().TcpPort(), 8080);
  EXPECT_EQ(cfg.GetIPGConfig().LaserOnDelay(), 10000);
  EXPECT_EQ(cfg.GetIPGConfig().YLS2000().LaserOnPort(), 6);
  EXPECT_EQ(cfg.GetIPGConfig().YLS2000().TcpHost(), "192.168.100.1");
  EXPECT_TRUE(cfg.GetRaycusConfig().FindProperty("Type")->XmlAttribute);
  EXPECT_EQ(cfg.GetZorunConfig().NetPort(), 10001);
  EXPECT_EQ(cfg.GetZorunConfig().Desc(), "无激光器文件");
}

TEST(LaserConfig, ModelTests) {
  TLaserConfig cfg;
  EXPECT_FALSE(cfg.IsCO2());
  EXPECT_FALSE(cfg.IsIPG());
  EXPECT_FALSE(cfg.IsYAG());
  cfg.SetModel("CO2-Rofin");
  EXPECT_TRUE(cfg.IsCO2());
  cfg.SetModel("co2");  // the family tests are case-sensitive
  EXPECT_FALSE(cfg.IsCO2());
  cfg.SetModel("IPG-YLR");
  EXPECT_TRUE(cfg.IsIPG());
  cfg.SetModel("yag");
  EXPECT_TRUE(cfg.IsYAG());
  cfg.SetModel("YAG-1");  // YAG is the whole model, not a part of it
  EXPECT_FALSE(cfg.IsYAG());
}

TEST(LaserConfig, BrandFollowsTheModelUnlessTheModelIsGenericOrNamesTheBrand) {
  TLaserConfig cfg;
  cfg.SetBrand("IPG");
  cfg.SetModel("Raycus");
  EXPECT_EQ(cfg.GetBrand(), "Raycus");
  cfg.SetModel("IPG-YLS");
  EXPECT_EQ(cfg.GetBrand(), "IPG");
  cfg.SetModel("default");
  EXPECT_EQ(cfg.GetBrand(), "IPG");
  cfg.SetModel("");
  EXPECT_EQ(cfg.GetBrand(), "UnkownBrand");
  cfg.SetBrand("");
  cfg.SetModel("Default");
  EXPECT_EQ(cfg.GetBrand(), "Default");
  cfg.SetModel("");
  EXPECT_EQ(cfg.GetBrand(), "UnkownBrand");
}

TEST(LaserConfig, BaudRateIsTheFirstFieldOfTheSerialSettings) {
  TLaserConfig cfg;
  EXPECT_EQ(cfg.GetMaxSZConfig().GetBaudrate(), 115200);
  TSPILaserConfig& spi = cfg.GetSPIConfig();
  spi.SetBaudrate(115200);
  EXPECT_EQ(spi.CommSettings(), "115200,e,8,1");  // parity, data and stop bits kept
  EXPECT_EQ(spi.GetBaudrate(), 115200);

  spi.SetCommSettings(" 4800 ,o,7,2");
  EXPECT_EQ(spi.GetBaudrate(), 4800);
  spi.SetCommSettings("fast,n,8,1");
  EXPECT_EQ(spi.GetBaudrate(), 0);
  spi.SetCommSettings("96OO,n,8,1");
  EXPECT_EQ(spi.GetBaudrate(), 0);
  spi.SetBaudrate(9600);
  EXPECT_EQ(spi.CommSettings(), "9600,n,8,1");

  spi.SetCommSettings("");
  EXPECT_EQ(spi.GetBaudrate(), 0);
  spi.SetBaudrate(38400);
  EXPECT_EQ(spi.CommSettings(), "38400");
  EXPECT_EQ(spi.GetBaudrate(), 38400);
}

TEST(LaserConfig, IPGModelAndLinkTests) {
  TLaserConfig cfg;
  TLaserIPGConfig& ipg = cfg.GetIPGConfig();
  ipg.SetModel("YLR-3000");
  EXPECT_TRUE(ipg.IsYLR());
  EXPECT_FALSE(ipg.IsYLS());
  EXPECT_TRUE(ipg.UseComm());  // serial port 1 by default

  ipg.SetCommPort(0);
  EXPECT_FALSE(ipg.UseComm());  // neither TCP nor a serial port
  ipg.SetUseTcp(true);
  EXPECT_TRUE(ipg.UseComm());

  ipg.SetModel("YLS-6000-USA");
  EXPECT_TRUE(ipg.IsYLS());
  EXPECT_FALSE(ipg.IsYLR());
  EXPECT_FALSE(ipg.UseComm());  // only YLR lasers are driven over the text link
}

TEST(LaserConfig, GSIAddressIsAByte) {
  TLaserConfig cfg;
  TGSILaserConfig& gsi = cfg.GetGSIConfig();
  gsi.SetAddress(255);
  EXPECT_EQ(gsi.Address(), 255);
  gsi.SetAddress(300);
  EXPECT_EQ(gsi.Address(), 255);
  EXPECT_EQ(gsi.GetInteger("Address"), 300);  // stored as written; only the reading is clamped
  gsi.SetAddress(-5);
  EXPECT_EQ(gsi.Address(), 0);
}

}  // namespace
}  // namespace devlaser
