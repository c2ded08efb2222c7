// The laser configuration as the host persists it: every key of every node written and read back unchanged, and
// the sample files loading cleanly, and a broken file leaving the configuration in memory as it was.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "frame/LaserConfig.h"
#include "refhost/ConfigStore.h"

namespace devlaser {
namespace {

namespace fs = std::filesystem;

const fs::path kSourceDir = fs::path(__FILE__).parent_path().parent_path().parent_path();

struct TReport {
  int MsgType;
  std::string Text;
};

// Collects what the store reports.
struct TReports {
  std::vector<TReport> Items;
  refhost::TConfigReport Sink() {
    return [this](int msgType, const std::string& text) { Items.push_back({msgType, text}); };
  }
  std::string All() const {
    std::string s;
    for (const auto& r : Items) s += std::to_string(r.MsgType) + ": " + r.Text + "\n";
    return s;
  }
};

// Every key of a tree as "Node.Sub.Key=value" lines, sub-nodes in order: two trees are equal when their dumps are.
void Dump(const nchost::TXmlSubConfig& node, const std::string& path, std::ostringstream& out) {
  for (const auto& p : node.Properties()) {
    out << path << p.Name << "=";
    std::visit([&](const auto& v) { out << v; }, p.Value);
    out << " (" << p.Value.index() << ")\n";
  }
  for (const auto& sub : node.SubConfigs()) Dump(*sub, path + sub->NodeName() + ".", out);
}
std::string Dump(const nchost::TXmlSubConfig& node) {
  std::ostringstream out;
  out.precision(17);
  Dump(node, "", out);
  return out.str();
}

// Creates every family node, so that the whole tree can be exercised.
void CreateAllFamilies(TLaserConfig& cfg) {
  cfg.GetCO2Config();
  cfg.GetIPGConfig();
  cfg.GetGSIConfig();
  cfg.GetMaxSZConfig();
  cfg.GetMeimanConfig();
  cfg.GetQingHuaConfig();
  cfg.GetQYZConfig();
  cfg.GetRaycusConfig();
  cfg.GetRofinConfig();
  cfg.GetSPIConfig();
  cfg.GetCASConfig();
  cfg.GetMarsConfig();
  cfg.GetNLightConfig();
  cfg.GetZorunConfig();
}

// Gives every key of the tree a value that differs from its default and from every other key's, with digits,
// signs and characters that a careless writer or reader would lose.
void SetEveryKey(nchost::TXmlSubConfig& node, int& counter) {
  for (const auto& p : std::vector<nchost::TXmlSubConfig::TProperty>(node.Properties())) {
    ++counter;
    nchost::TConfigValue value = std::visit(
        [&](const auto& v) -> nchost::TConfigValue {
          using V = std::decay_t<decltype(v)>;
          if constexpr (std::is_same_v<V, bool>)
            return !v;
          else if constexpr (std::is_same_v<V, int32_t>)
            return counter % 3 == 0 ? int32_t{-70000 - counter} : int32_t{v + 1000 + counter};
          else if constexpr (std::is_same_v<V, double>)
            return v + counter + 1.0 / 3.0;
          else
            return v + "é/<&\"'> #" + std::to_string(counter);
        },
        p.Value);
    ASSERT_TRUE(node.SetProperty(p.Name, value)) << p.Name;
  }
  for (const auto& sub : node.SubConfigs()) SetEveryKey(*sub, counter);
}

class LaserConfigPersistTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FDir = fs::temp_directory_path() /
           ("laser-config-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(FDir);
  }
  void TearDown() override { fs::remove_all(FDir); }

  // A tree with every family node and every key off its default.
  static void FillTree(TLaserConfig& cfg) {
    CreateAllFamilies(cfg);
    int counter = 0;
    SetEveryKey(cfg, counter);
  }

  fs::path FDir;
};

TEST_F(LaserConfigPersistTest, EveryKeySurvivesASaveAndLoadInBothForms) {
  TLaserConfig saved;
  FillTree(saved);
  for (bool json : {true, false}) {
    SCOPED_TRACE(json ? "JSON" : "XML");
    const std::string path = (FDir / (json ? "laser.json" : "laser.xml")).string();
    TReports reports;
    ASSERT_TRUE(json ? refhost::SaveJson(saved, path, reports.Sink()) : refhost::SaveXml(saved, path, reports.Sink()))
        << reports.All();
    TLaserConfig loaded;
    ASSERT_TRUE(json ? refhost::LoadJson(loaded, path, reports.Sink()) : refhost::LoadXml(loaded, path, reports.Sink()))
        << reports.All();
    EXPECT_TRUE(reports.Items.empty()) << reports.All();
    EXPECT_EQ(Dump(loaded), Dump(saved));
    EXPECT_EQ(loaded.SubConfigs().size(), 16u);
  }
}

TEST_F(LaserConfigPersistTest, ABrokenFileChangesNothingAndBadKeysAreNamed) {
  TLaserConfig cfg;
  cfg.SetCtrlPort(7);
  cfg.GetIPGConfig().SetModel("YLR");
  const std::string before = Dump(cfg);
  for (bool json : {true, false}) {
    SCOPED_TRACE(json ? "JSON" : "XML");
    TReports reports;
    const std::string text = json ? "{\"CtrlPort\": 5,\n \"IPG\": {\"Model\": \"YLS\",}\n"
                                  : "<Laser><CtrlPort>5</CtrlPort>\n<IPG><Model>YLS</IPG></Laser>";
    EXPECT_FALSE(json ? refhost::LoadJsonText(cfg, text, "broken.json", reports.Sink())
                      : refhost::LoadXmlText(cfg, text, "broken.xml", reports.Sink()));
    EXPECT_EQ(Dump(cfg), before);
    ASSERT_EQ(reports.Items.size(), 1u) << reports.All();
    EXPECT_NE(reports.Items[0].Text.find(json ? "broken.json" : "broken.xml"), std::string::npos) << reports.All();
    EXPECT_NE(reports.Items[0].Text.find("line 2"), std::string::npos) << reports.All();
  }
  // A hand-written file: a wrong type and an unknown key are named and skipped, the rest applies.
  TReports reports;
  EXPECT_TRUE(refhost::LoadJsonText(
      cfg, R"({"CtrlPort": 5, "DA": {"DAPort": 1203}, "IPG": {"UseTcp": "yes", "Colour": 1, "TcpHost": "10.0.0.2"}})",
      "hand.json", reports.Sink()));
  EXPECT_EQ(cfg.CtrlPort(), 5);
  EXPECT_EQ(cfg.DA().DAPort(), 1203);
  EXPECT_EQ(cfg.GetIPGConfig().TcpHost(), "10.0.0.2");
  EXPECT_FALSE(cfg.GetIPGConfig().UseTcp());
  ASSERT_EQ(reports.Items.size(), 2u) << reports.All();
  EXPECT_NE(reports.All().find("IPG.UseTcp"), std::string::npos) << reports.All();
  EXPECT_NE(reports.All().find("IPG.Colour"), std::string::npos) << reports.All();
}

TEST_F(LaserConfigPersistTest, FamilyNodesOnlyAppearOnceUsed) {
  TLaserConfig saved;
  saved.GetIPGConfig().SetModel("YLR");
  std::string text;
  ASSERT_TRUE(refhost::ToJsonText(saved, text));
  TLaserConfig loaded;
  ASSERT_TRUE(refhost::LoadJsonText(loaded, text, "memory.json"));
  std::vector<std::string> names;
  for (const auto& n : loaded.SubConfigs()) names.push_back(n->NodeName());
  EXPECT_EQ(names, (std::vector<std::string>{"DA", "PWM", "IPG"}));
  EXPECT_EQ(loaded.GetIPGConfig().Model(), "YLR");
}

TEST_F(LaserConfigPersistTest, SampleConfigurationsLoadWithoutAnyReport) {
  {
    TLaserConfig cfg;
    TReports reports;
    ASSERT_TRUE(refhost::LoadJson(cfg, (kSourceDir / "examples" / "ipg-ylr-tcp.json").string(), reports.Sink()));
    EXPECT_TRUE(reports.Items.empty()) << reports.All();
    EXPECT_TRUE(cfg.IsIPG());
    EXPECT_EQ(cfg.CtrlPort(), 5);
    EXPECT_EQ(cfg.DA().DAPort(), 1203);
    EXPECT_TRUE(cfg.GetIPGConfig().IsYLR());
    EXPECT_TRUE(cfg.GetIPGConfig().UseTcp());
    EXPECT_EQ(cfg.GetIPGConfig().TcpHost(), "127.0.0.1");
    // Keys the file leaves out keep their defaults.
    EXPECT_EQ(cfg.Power(), TLaserConfig().Power());
    EXPECT_EQ(cfg.GetIPGConfig().YLS2000().LaserOnPort(), 6);
  }
  {
    TLaserConfig cfg;
    TReports reports;
    ASSERT_TRUE(refhost::LoadJson(cfg, (kSourceDir / "examples" / "default-laser.json").string(), reports.Sink()));
    EXPECT_TRUE(reports.Items.empty()) << reports.All();
    EXPECT_EQ(cfg.Model(), "Default");
    EXPECT_EQ(cfg.ShutterReady(), 5);
    EXPECT_EQ(cfg.ShutterReadyDelay(), 300);
    EXPECT_EQ(cfg.CtrlPort(), 6);
    EXPECT_EQ(cfg.SubConfigs().size(), 2u);
  }
}

}  // namespace
}  // namespace devlaser
