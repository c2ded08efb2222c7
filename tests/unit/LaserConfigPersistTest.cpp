// The laser configuration as the host persists it: every key of every node read back unchanged, a broken file
// leaving the configuration as it was, and what a hand-written file gets wrong named and skipped.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "frame/LaserConfig.h"
#include "refhost/ConfigStore.h"
#include "support/ScratchDir.h"

namespace devlaser {
namespace {

namespace fs = std::filesystem;
using namespace testing;

const fs::path kSourceDir = DEVLASER_SOURCE_DIR;

// Every key of a tree as "Node.Sub.Key=value (type)" lines, sub-nodes in order: trees are equal when their dumps are.
std::string Dump(const nchost::TXmlSubConfig& node, const std::string& path = "") {
  std::ostringstream out;
  out.precision(17);
  for (const auto& p : node.Properties()) {
    out << path << p.Name << "=";
    std::visit([&](const auto& v) { out << v; }, p.Value);
    out << " (" << p.Value.index() << ")\n";
  }
  for (const auto& sub : node.SubConfigs()) out << Dump(*sub, path + sub->NodeName() + ".");
  return out.str();
}

// Gives every key of the tree a value that differs from its default and from every other key's, made of what a
// careless writer or reader would lose: empty texts, markup, quotes, Chinese, blanks at the ends and line breaks; the
// int32 limits and negative numbers; doubles that need all their digits or a large exponent.
void SetEveryKey(nchost::TXmlSubConfig& node, int& counter) {
  for (const auto& p : std::vector<nchost::TXmlSubConfig::TProperty>(node.Properties())) {
    ++counter;
    nchost::TConfigValue value = std::visit(
        [&](const auto& v) -> nchost::TConfigValue {
          using V = std::decay_t<decltype(v)>;
          if constexpr (std::is_same_v<V, bool>)
            return !v;
          else if constexpr (std::is_same_v<V, int32_t>)
            return counter == 1       ? std::numeric_limits<int32_t>::min()
                   : counter == 2     ? std::numeric_limits<int32_t>::max()
                   : counter % 3 == 0 ? int32_t{-70000 - counter}
                                      : int32_t{v + 1000 + counter};
          else if constexpr (std::is_same_v<V, double>)
            return counter % 5 == 0 ? counter * 1e-300 : v + counter + 1.0 / 3.0;
          else if (!v.empty() && counter % 4 == 0)
            return std::string();
          else
            return "  " + v + "激光器 é/<&\"'>\r\n\t#" + std::to_string(counter) + " ";
        },
        p.Value);
    ASSERT_TRUE(node.SetProperty(p.Name, value)) << p.Name;
  }
  for (const auto& sub : node.SubConfigs()) SetEveryKey(*sub, counter);
}

// Reaches every family node the way the program does, making those that do not exist yet.
void ReachEveryFamily(TLaserConfig& cfg) {
  const nchost::TXmlSubConfig* families[] = {&cfg.GetCO2Config(),    &cfg.GetIPGConfig(),    &cfg.GetGSIConfig(),
                                             &cfg.GetMaxSZConfig(),  &cfg.GetMeimanConfig(), &cfg.GetQingHuaConfig(),
                                             &cfg.GetQYZConfig(),    &cfg.GetRaycusConfig(), &cfg.GetRofinConfig(),
                                             &cfg.GetSPIConfig(),    &cfg.GetCASConfig(),    &cfg.GetMarsConfig(),
                                             &cfg.GetNLightConfig(), &cfg.GetZorunConfig()};
  for (const auto* node : families) ASSERT_EQ(node->Parent(), &cfg);
}

class LaserConfigPersistTest : public ::testing::Test {
 protected:
  // Writes the file, or leaves it missing when there is no content.
  std::string Write(const std::string& name, const char* content) const {
    return content != nullptr ? FDir.Write(name, content) : FDir / name;
  }
  bool Load(TLaserConfig& cfg, const std::string& path) {
    return path.ends_with(".json") ? refhost::LoadJson(cfg, path, Sink()) : refhost::LoadXml(cfg, path, Sink());
  }

  // Reports as "<message type>: <text>", so that a failing expectation prints them all.
  refhost::TConfigReport Sink() {
    return [this](int msgType, const std::string& text) { FReports.push_back(std::to_string(msgType) + ": " + text); };
  }

  testsupport::TScratchDir FDir;
  std::vector<std::string> FReports;
};

TEST_F(LaserConfigPersistTest, EveryKeySurvivesASaveAndLoadInBothForms) {
  TLaserConfig saved;
  ReachEveryFamily(saved);
  int counter = 0;
  SetEveryKey(saved, counter);
  for (const std::string& path : {FDir / "laser.json", FDir / "laser.xml"}) {
    SCOPED_TRACE(path);
    ASSERT_TRUE(path.ends_with(".json") ? refhost::SaveJson(saved, path, Sink())
                                        : refhost::SaveXml(saved, path, Sink()));
    TLaserConfig loaded;  // has no family nodes yet: loading must create them
    ASSERT_TRUE(Load(loaded, path));
    EXPECT_THAT(FReports, IsEmpty());
    EXPECT_EQ(Dump(loaded), Dump(saved));
    ReachEveryFamily(loaded);  // the program finds the nodes the file made instead of making second ones
    EXPECT_EQ(loaded.SubConfigs().size(), 16u);
  }
}

TEST_F(LaserConfigPersistTest, ABrokenFileChangesNothingAndNamesTheFileAndThePosition) {
  struct TCase {
    const char *Name, *Content, *Position;
  };
  const TCase cases[] = {
      {"cut.json", "{\n  \"Model\": \"IPG\",\n  \"CtrlPort\": 5,\n  \"DA\": {\"DAPort\": 1203\n", "line 5"},
      {"array.json", "[1, 2]", "not an object"},
      {"tags.xml", "<Laser><CtrlPort>5</CtrlPort>\n<IPG><Model>YLS</IPG></Laser>", "line 2, column"},
      {"empty.xml", "", "No document element"},
      {"absent.xml", nullptr, "No such file"},
  };
  TLaserConfig cfg;
  cfg.SetCtrlPort(7);
  const std::string before = Dump(cfg);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    FReports.clear();
    const std::string path = Write(c.Name, c.Content);
    EXPECT_FALSE(Load(cfg, path));
    EXPECT_EQ(Dump(cfg), before);  // nothing applied, no family node created
    EXPECT_THAT(FReports, ElementsAre(AllOf(StartsWith("7: "), HasSubstr(path), HasSubstr(c.Position))));
  }

  FReports.clear();
  EXPECT_FALSE(refhost::SaveJson(cfg, FDir / "no-such-dir/laser.json", Sink()));
  EXPECT_THAT(FReports, ElementsAre(AllOf(StartsWith("7: "), HasSubstr("no-such-dir/laser.json"))));
}

// A hand-written file: keys it leaves out keep their values; an unknown key or node and a value of the wrong type
// (or out of the 32-bit range) are named with the file and the key path and skipped; the rest applies. In XML a
// person pads numbers, writes booleans as they like, adds comments and puts a key in either form.
TEST_F(LaserConfigPersistTest, HandWrittenFilesApplyWhatTheyCanAndNameWhatTheyCannot) {
  const std::string json = Write("hand.json", R"({
    // laser on the cutting head
    "Model": "IPG", "Colour": "red", "CtrlPort": 4294967296, "Power": "high",
    "IPG": {"UseTcp": "yes", "TcpPort": 7.5, "MaxCurrent": 80, "Extra": {"A": 1}},
    "Nowhere": {"B": 2}, "DA": 5
  })");
  const std::string xml = Write("hand.xml", R"(<Laser Colour="red">
    <Model>IPG</Model><CtrlPort>12abc</CtrlPort><Power> 2.5e3 </Power><DebugMode>True</DebugMode>
    <!-- the analogue power output --><PWM DynamicPwm="1"><Frequency>
      20000</Frequency></PWM>
    <IPG><UseTcp>yes</UseTcp><TcpPort>99999999999</TcpPort><MaxCurrent>80</MaxCurrent><Extra><A>1</A></Extra></IPG>
    <Nowhere><B>2</B></Nowhere><Model2>x</Model2>
  </Laser>)");
  for (const std::string& path : {json, xml}) {
    SCOPED_TRACE(path);
    FReports.clear();
    TLaserConfig cfg;
    ASSERT_TRUE(Load(cfg, path));
    EXPECT_EQ(cfg.Model(), "IPG");
    EXPECT_EQ(cfg.CtrlPort(), 0);
    EXPECT_EQ(cfg.Power(), path == json ? 1000.0 : 2500.0);
    EXPECT_FALSE(cfg.GetIPGConfig().UseTcp());
    EXPECT_EQ(cfg.GetIPGConfig().TcpPort(), 8080);
    if (path == xml) {
      EXPECT_EQ(std::tuple(cfg.DebugMode(), cfg.Pwm().DynamicPwm(), cfg.Pwm().Frequency()),
                std::tuple(true, true, 20000));
    }
    EXPECT_THAT(FReports, Each(StartsWith("5: ")));
    auto warning = [&](const std::string& key) { return AllOf(HasSubstr(path), HasSubstr(" " + key + " ")); };
    for (const char* key : {"Colour", "CtrlPort", "IPG.UseTcp", "IPG.TcpPort", "IPG.Extra", "Nowhere"})
      EXPECT_THAT(FReports, Contains(warning(key)));
    EXPECT_THAT(FReports, Not(Contains(warning("Model"))));
  }
}

TEST_F(LaserConfigPersistTest, SampleConfigurationsLoadWithoutAnyReport) {
  TLaserConfig ipg, plain;
  ASSERT_TRUE(Load(ipg, (kSourceDir / "examples" / "ipg-ylr-tcp.json").string()));
  ASSERT_TRUE(Load(plain, (kSourceDir / "examples" / "default-laser.json").string()));
  EXPECT_THAT(FReports, IsEmpty());
  EXPECT_EQ(ipg.GetIPGConfig().TcpHost(), "127.0.0.1");
  EXPECT_EQ(plain.SubConfigs().size(), 2u);  // loading creates only the family nodes a file names
}

}  // namespace
}  // namespace devlaser
