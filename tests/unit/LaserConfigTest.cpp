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

// Every family node: the name it is saved under, how the program reaches it, and how many keys it holds.
struct TFamily {
  const char* Name;
  nchost::TXmlSubConfig& (*Get)(TLaserConfig&);
  size_t Keys;
};
template <auto Getter>
nchost::TXmlSubConfig& Get(TLaserConfig& cfg) {
  return (cfg.*Getter)();
}
const TFamily kFamilies[] = {
    {"Raycus", Get<&TLaserConfig::GetRaycusConfig>, 16},  {"CO2", Get<&TLaserConfig::GetCO2Config>, 7},
    {"IPG", Get<&TLaserConfig::GetIPGConfig>, 39},        {"GSI", Get<&TLaserConfig::GetGSIConfig>, 6},
    {"MaxSZ", Get<&TLaserConfig::GetMaxSZConfig>, 6},     {"Meiman", Get<&TLaserConfig::GetMeimanConfig>, 2},
    {"Qinghua", Get<&TLaserConfig::GetQingHuaConfig>, 6}, {"QYZ", Get<&TLaserConfig::GetQYZConfig>, 6},
    {"Rofin", Get<&TLaserConfig::GetRofinConfig>, 13},    {"SPI", Get<&TLaserConfig::GetSPIConfig>, 6},
    {"CAS", Get<&TLaserConfig::GetCASConfig>, 5},         {"MARS", Get<&TLaserConfig::GetMarsConfig>, 5},
    {"NLight", Get<&TLaserConfig::GetNLightConfig>, 5},   {"Zorun", Get<&TLaserConfig::GetZorunConfig>, 6},
};

// The root's shape and the defaults a fresh installation drives the laser with, which Initialize brings back
// without dropping the family nodes or declaring a key twice.
TEST(LaserConfig, FreshAndInitializedRootsHoldTheDefaultsAndInitializeKeepsFamilyNodes) {
  TLaserConfig cfg;
  auto expectDefaults = [&] {
    EXPECT_EQ(cfg.Properties().size(), 17u);
    EXPECT_EQ(cfg.DA().Properties().size(), 3u);
    EXPECT_EQ(cfg.Pwm().Properties().size(), 7u);
    EXPECT_EQ(cfg.Model(), "Raycus");
    EXPECT_DOUBLE_EQ(cfg.Power(), 1000.0);
    EXPECT_EQ(cfg.ShutterReadyDelay(), 100);
    EXPECT_EQ(cfg.DiodeSetTimeOut(), 1000);
    EXPECT_EQ(cfg.Pwm().Frequency(), 5000);
    EXPECT_DOUBLE_EQ(cfg.Pwm().Ratio(), 1.0);
    EXPECT_DOUBLE_EQ(cfg.DA().ProofMax(), 10.0);
  };
  expectDefaults();
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM");  // family nodes are made when first used
  EXPECT_EQ(&cfg.DA(), cfg.FindSubConfig("DA"));
  EXPECT_EQ(&cfg.Pwm(), cfg.FindSubConfig("PWM"));
  // These keys are written as attributes of their node's element in the XML form.
  EXPECT_TRUE(cfg.Pwm().FindProperty("DynamicPwm")->XmlAttribute);
  EXPECT_TRUE(cfg.GetRaycusConfig().FindProperty("Type")->XmlAttribute);
  EXPECT_FALSE(cfg.FindProperty("Model")->XmlAttribute);
  // Each family's serial link defaults to what its lasers ship with.
  EXPECT_EQ(cfg.GetRaycusConfig().CommSettings(), "9600,n,8,1");
  EXPECT_EQ(cfg.GetIPGConfig().CommSettings(), "57600,n,8,1");
  EXPECT_EQ(cfg.GetSPIConfig().CommSettings(), "19200,e,8,1");
  // A value of the wrong type is refused and the key keeps its value.
  EXPECT_FALSE(cfg.SetProperty("CtrlPort", std::string("5")));
  EXPECT_EQ(cfg.CtrlPort(), 0);

  cfg.SetModel("CO2");
  cfg.SetDiodeSetTimeOut(5);
  cfg.Pwm().SetFrequency(20000);
  cfg.DA().SetProofMax(5.0);
  cfg.GetCO2Config().SetShutterPort(3);
  cfg.Initialize();
  expectDefaults();
  EXPECT_EQ(SubNodeNames(cfg), "DA,PWM,Raycus,IPG,SPI,CO2");
  EXPECT_EQ(cfg.GetCO2Config().ShutterPort(), 3);
}

// A family node is made on first use, by the program or by a file naming it, and is the same object afterwards.
TEST(LaserConfig, FamilyNodesAreMadeOnFirstUseByTheProgramOrAFile) {
  TLaserConfig byProgram, byFile;
  std::string names = "DA,PWM";
  for (const auto& family : kFamilies) {
    SCOPED_TRACE(family.Name);
    nchost::TXmlSubConfig& node = family.Get(byProgram);
    EXPECT_EQ(&family.Get(byProgram), &node);
    EXPECT_EQ(node.NodeName(), family.Name);
    EXPECT_EQ(node.Parent(), &byProgram);
    EXPECT_EQ(node.Properties().size(), family.Keys);
    nchost::TXmlSubConfig* loaded = byFile.SubConfigForLoad(family.Name);
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(byFile.SubConfigForLoad(family.Name), loaded);
    EXPECT_EQ(&family.Get(byFile), loaded);
    names += std::string(",") + family.Name;
  }
  EXPECT_EQ(byFile.SubConfigForLoad("DA"), &byFile.DA());
  // Unknown nodes (and the published property spelling "Mars") create nothing.
  for (const char* unknown : {"Trumpf", "Mars", ""}) EXPECT_EQ(byFile.SubConfigForLoad(unknown), nullptr) << unknown;
  EXPECT_EQ(SubNodeNames(byProgram), names);
  EXPECT_EQ(SubNodeNames(byFile), names);

  // The IPG node in turn holds its YLS2000 node.
  TLaserIPGConfig& ipg = byFile.GetIPGConfig();
  EXPECT_EQ(SubNodeNames(ipg), "YLS2000");
  EXPECT_EQ(ipg.SubConfigForLoad("YLS2000"), &ipg.YLS2000());
  EXPECT_EQ(ipg.YLS2000().Properties().size(), 17u);
  // A name that already belongs to a node of another class is not handed out as the wrong class.
  EXPECT_EQ(byFile.GetLaserConfig<TCO2LaserConfig>("IPG"), nullptr);
}

TEST(LaserConfig, ModelTests) {
  struct TCase {
    const char* Model;
    bool CO2, IPG, YAG;
  };
  const TCase cases[] = {
      {"Raycus", false, false, false}, {"CO2-Rofin", true, false, false},
      {"co2", false, false, false},  // the family tests are case-sensitive
      {"IPG-YLR", false, true, false}, {"yag", false, false, true},
      {"YAG-1", false, false, false},  // YAG is the whole model, not a part of it
  };
  TLaserConfig cfg;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Model);
    cfg.SetModel(c.Model);
    EXPECT_EQ(cfg.IsCO2(), c.CO2);
    EXPECT_EQ(cfg.IsIPG(), c.IPG);
    EXPECT_EQ(cfg.IsYAG(), c.YAG);
  }
}

TEST(LaserConfig, BrandFollowsTheModelUnlessTheModelIsGenericOrNamesTheBrand) {
  struct TCase {
    const char *Brand, *Model, *Expected;
  };
  const TCase cases[] = {
      {"IPG", "Raycus", "Raycus"}, {"IPG", "IPG-YLS", "IPG"},  {"IPG", "default", "IPG"},
      {"IPG", "", "UnkownBrand"},  {"", "Default", "Default"}, {"", "", "UnkownBrand"},
  };
  TLaserConfig cfg;
  for (const auto& c : cases) {
    cfg.SetBrand(c.Brand);
    cfg.SetModel(c.Model);
    EXPECT_EQ(cfg.GetBrand(), c.Expected) << c.Brand << " / " << c.Model;
  }
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
  for (const char* bad : {"fast,n,8,1", "96OO,n,8,1", ""}) {
    spi.SetCommSettings(bad);
    EXPECT_EQ(spi.GetBaudrate(), 0) << bad;
  }
  spi.SetBaudrate(38400);
  EXPECT_EQ(spi.CommSettings(), "38400");
  spi.SetCommSettings("96OO,n,8,1");
  spi.SetBaudrate(9600);
  EXPECT_EQ(spi.CommSettings(), "9600,n,8,1");
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
  gsi.SetAddress(300);
  EXPECT_EQ(gsi.Address(), 255);
  EXPECT_EQ(gsi.GetInteger("Address"), 300);  // stored as written; only the reading is clamped
  gsi.SetAddress(-5);
  EXPECT_EQ(gsi.Address(), 0);
}

}  // namespace
}  // namespace devlaser
