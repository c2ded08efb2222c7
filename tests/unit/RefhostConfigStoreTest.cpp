// Configuration trees saved and loaded as JSON and XML by the reference host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

#include "host/HostDefs.h"
#include "host/XmlSubConfig.h"
#include "refhost/ConfigStore.h"
#include "refhost/RecordingSink.h"
#include "refhost/RefApp.h"

namespace {

using nchost::TXmlSubConfig;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

// A laser family's node, created only when a file or the program first needs it.
class TFamilyNode : public TXmlSubConfig {
 public:
  TFamilyNode(TXmlSubConfig* parent, std::string name) : TXmlSubConfig(parent, std::move(name)) {
    Define("Model", std::string("YLR"));
    Define("UseTcp", false);
    Define("TcpPort", int32_t{10001});
    Define("MaxCurrent", 100.0);
  }
};

class TDANode : public TXmlSubConfig {
 public:
  TDANode(TXmlSubConfig* parent, std::string name) : TXmlSubConfig(parent, std::move(name)) {
    Define("DAPort", int32_t{0});
    Define("MaxVoltage", 10.0);
  }
};

// A root with every value type, an XML-attribute key, a sub-node made with the root and one made on first use.
class TRootNode : public TXmlSubConfig {
 public:
  explicit TRootNode(std::string name = "Laser") : TXmlSubConfig(nullptr, std::move(name)) {
    Define("Model", std::string("Raycus"));
    Define("Brand", std::string());
    Define("CtrlPort", int32_t{0});
    Define("Power", 1000.0);
    Define("DebugMode", false);
    Define("Type", std::string("CW"), /*xmlAttribute=*/true);
    AddSubConfig<TDANode>("DA");
  }

  TXmlSubConfig* IPG() { return SubConfigForLoad("IPG"); }

  TXmlSubConfig* SubConfigForLoad(const std::string& name) override {
    if (TXmlSubConfig* node = FindSubConfig(name)) return node;
    if (name == "IPG") return AddSubConfig<TFamilyNode>(name);
    return nullptr;
  }
};

struct TReportLine {
  int Type;
  std::string Text;
};

class ConfigStoreTest : public testing::Test {
 protected:
  void SetUp() override {
    FDir = std::filesystem::temp_directory_path() / ("refhost-config-" + std::to_string(::getpid()) + "-" +
                                                     testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(FDir);
  }
  void TearDown() override { std::filesystem::remove_all(FDir); }

  std::string PathOf(const std::string& name) const { return (FDir / name).string(); }
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(PathOf(name), std::ios::binary) << content;
    return PathOf(name);
  }

  refhost::TConfigReport Report() {
    return [this](int type, const std::string& text) { FReport.push_back({type, text}); };
  }
  std::vector<std::string> ReportTexts(int type) const {
    std::vector<std::string> texts;
    for (const auto& line : FReport)
      if (line.Type == type) texts.push_back(line.Text);
    return texts;
  }
  std::vector<std::string> Warnings() const { return ReportTexts(nchost::msgtype::kWarning); }
  std::vector<std::string> Errors() const { return ReportTexts(nchost::msgtype::kError); }

  // The whole tree as text, to tell whether a load changed anything.
  static std::string Snapshot(const TXmlSubConfig& node) {
    std::string text;
    EXPECT_TRUE(refhost::ToJsonText(node, text));
    return text;
  }

  std::filesystem::path FDir;
  std::vector<TReportLine> FReport;
};

// Values that break naive formatting: text with markup and quotes, Chinese, blanks at the ends, line breaks;
// the int32 limits; doubles that need all their digits.
void FillWithAwkwardValues(TRootNode& root) {
  root.SetString("Model", "激光器 \"YLR\" <&> 'x'");
  root.SetString("Brand", "  two\r\nlines\t  ");
  root.SetInteger("CtrlPort", std::numeric_limits<int32_t>::min());
  root.SetDouble("Power", 1.0 / 3.0);
  root.SetBool("DebugMode", true);
  root.SetString("Type", "门脉冲 & \"gate\"\r\n\tx ");
  root.FindSubConfig("DA")->SetInteger("DAPort", std::numeric_limits<int32_t>::max());
  root.FindSubConfig("DA")->SetDouble("MaxVoltage", 1e-300);
  TXmlSubConfig* ipg = root.IPG();
  ipg->SetString("Model", "");
  ipg->SetBool("UseTcp", true);
  ipg->SetInteger("TcpPort", 0);
  ipg->SetDouble("MaxCurrent", 0.1 + 0.2);
}

void ExpectSameValues(const TXmlSubConfig& expected, const TXmlSubConfig& actual) {
  ASSERT_EQ(expected.Properties().size(), actual.Properties().size()) << expected.NodeName();
  for (const auto& p : expected.Properties()) {
    const auto* q = actual.FindProperty(p.Name);
    ASSERT_NE(q, nullptr) << p.Name;
    EXPECT_EQ(p.Value, q->Value) << expected.NodeName() << "." << p.Name;
  }
  ASSERT_EQ(expected.SubConfigs().size(), actual.SubConfigs().size()) << expected.NodeName();
  for (const auto& sub : expected.SubConfigs()) {
    const TXmlSubConfig* other = actual.FindSubConfig(sub->NodeName());
    ASSERT_NE(other, nullptr) << sub->NodeName();
    ExpectSameValues(*sub, *other);
  }
}

TEST_F(ConfigStoreTest, EveryValueSurvivesASaveAndLoadInBothForms) {
  TRootNode saved;
  FillWithAwkwardValues(saved);
  for (bool json : {true, false}) {
    SCOPED_TRACE(json ? "JSON" : "XML");
    std::string path = PathOf(json ? "laser.json" : "laser.xml");
    ASSERT_TRUE(json ? refhost::SaveJson(saved, path, Report()) : refhost::SaveXml(saved, path, Report()));

    TRootNode loaded;  // has no IPG node yet: loading must create it
    ASSERT_TRUE(json ? refhost::LoadJson(loaded, path, Report()) : refhost::LoadXml(loaded, path, Report()));
    ExpectSameValues(saved, loaded);
    EXPECT_THAT(FReport, IsEmpty());
  }
}

TEST_F(ConfigStoreTest, DoublesOutsideJsonReadBackFromXmlAndAreReportedInJson) {
  TRootNode saved;
  saved.SetDouble("Power", std::numeric_limits<double>::infinity());
  saved.FindSubConfig("DA")->SetDouble("MaxVoltage", -std::numeric_limits<double>::infinity());
  ASSERT_TRUE(refhost::SaveXml(saved, PathOf("inf.xml"), Report()));
  TRootNode loaded;
  ASSERT_TRUE(refhost::LoadXml(loaded, PathOf("inf.xml"), Report()));
  EXPECT_EQ(loaded.GetDouble("Power"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(loaded.FindSubConfig("DA")->GetDouble("MaxVoltage"), -std::numeric_limits<double>::infinity());
  EXPECT_THAT(FReport, IsEmpty());

  ASSERT_TRUE(refhost::SaveJson(saved, PathOf("inf.json"), Report()));
  EXPECT_THAT(Warnings(), testing::Contains(AllOf(HasSubstr("inf.json"), HasSubstr("DA.MaxVoltage"))));
}

TEST_F(ConfigStoreTest, SavedFilesHaveTheShapeAPersonWouldWrite) {
  TRootNode root;
  root.SetString("Model", "IPG");
  root.SetInteger("CtrlPort", 5);
  root.FindSubConfig("DA")->SetInteger("DAPort", 1203);
  root.IPG()->SetBool("UseTcp", true);

  std::string jsonText;
  ASSERT_TRUE(refhost::ToJsonText(root, jsonText));
  auto json = nlohmann::json::parse(jsonText);
  EXPECT_EQ(json["Model"], "IPG");
  EXPECT_EQ(json["CtrlPort"], 5);
  EXPECT_EQ(json["Type"], "CW");
  EXPECT_EQ(json["DA"]["DAPort"], 1203);
  EXPECT_EQ(json["IPG"]["UseTcp"], true);

  std::string xmlText;
  ASSERT_TRUE(refhost::ToXmlText(root, xmlText));
  pugi::xml_document xml;
  ASSERT_TRUE(xml.load_string(xmlText.c_str()));
  pugi::xml_node laser = xml.child("Laser");
  EXPECT_STREQ(laser.attribute("Type").value(), "CW");  // the XML-attribute key
  EXPECT_FALSE(laser.child("Type"));
  EXPECT_STREQ(laser.child("Model").text().get(), "IPG");
  EXPECT_STREQ(laser.child("DA").child("DAPort").text().get(), "1203");
  EXPECT_STREQ(laser.child("IPG").child("UseTcp").text().get(), "true");
}

TEST_F(ConfigStoreTest, HandWrittenFilesLoadAndKeysTheyLeaveOutKeepTheirValues) {
  std::string json = Write("hand.json", R"({
    // laser on the cutting head
    "Model": "IPG", "CtrlPort": 5, "DA": {"DAPort": 1203}, "IPG": {"Model": "YLR", "UseTcp": true}
  })");
  TRootNode root;
  ASSERT_TRUE(refhost::LoadJson(root, json, Report()));
  EXPECT_EQ(root.GetString("Model"), "IPG");
  EXPECT_EQ(root.GetInteger("CtrlPort"), 5);
  EXPECT_EQ(root.GetDouble("Power"), 1000.0);  // not in the file
  EXPECT_EQ(root.FindSubConfig("DA")->GetInteger("DAPort"), 1203);
  EXPECT_EQ(root.FindSubConfig("DA")->GetDouble("MaxVoltage"), 10.0);
  ASSERT_NE(root.FindSubConfig("IPG"), nullptr);
  EXPECT_TRUE(root.FindSubConfig("IPG")->GetBool("UseTcp"));
  EXPECT_EQ(root.FindSubConfig("IPG")->GetInteger("TcpPort"), 10001);

  std::string xml = Write("hand.xml", R"(<?xml version="1.0"?>
<Laser Type="QCW">
  <Power> 1500.5 </Power>
  <DebugMode>True</DebugMode>
  <Brand>   </Brand>
  <!-- the DA output of the analogue power setting -->
  <DA><MaxVoltage>5</MaxVoltage></DA>
</Laser>)");
  ASSERT_TRUE(refhost::LoadXml(root, xml, Report()));
  EXPECT_EQ(root.GetString("Type"), "QCW");
  EXPECT_EQ(root.GetDouble("Power"), 1500.5);
  EXPECT_TRUE(root.GetBool("DebugMode"));
  EXPECT_EQ(root.GetString("Brand"), "   ");
  EXPECT_EQ(root.FindSubConfig("DA")->GetDouble("MaxVoltage"), 5.0);
  EXPECT_EQ(root.FindSubConfig("DA")->GetInteger("DAPort"), 1203);  // kept from the JSON load
  EXPECT_THAT(FReport, IsEmpty());
}

TEST_F(ConfigStoreTest, MalformedFilesAreRefusedWithThePositionAndChangeNothing) {
  struct TCase {
    std::string Name, Content, Position;
  };
  const TCase cases[] = {
      {"cut.json", "{\n  \"Model\": \"IPG\",\n  \"CtrlPort\": 5,\n  \"DA\": {\"DAPort\": 1203\n", "line 5"},
      {"comma.json", "{\"Model\": \"IPG\",\n \"CtrlPort\" 5}", "line 2, column"},
      {"array.json", "[1, 2]", "not an object"},
      {"cut.xml", "<Laser>\n  <Model>IPG</Model>\n  <CtrlPort>5</CtrlPort>\n  <DA><DAPort>1203</DAPort>\n", "line"},
      {"tags.xml", "<Laser>\n  <Model>IPG</Mode>\n</Laser>", "line 2, column"},
      {"empty.xml", "", "No document element"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    TRootNode root;
    root.SetString("Model", "Raycus-before");
    std::string before = Snapshot(root);
    FReport.clear();
    std::string path = Write(c.Name, c.Content);
    bool json = c.Name.ends_with(".json");
    EXPECT_FALSE(json ? refhost::LoadJson(root, path, Report()) : refhost::LoadXml(root, path, Report()));
    EXPECT_EQ(Snapshot(root), before);
    EXPECT_EQ(root.FindSubConfig("IPG"), nullptr);
    ASSERT_EQ(Errors().size(), 1u);
    EXPECT_THAT(Errors()[0], AllOf(HasSubstr(path), HasSubstr(c.Position)));
  }
}

TEST_F(ConfigStoreTest, MissingFileIsRefusedWithItsNameAndTheReason) {
  TRootNode root;
  std::string path = PathOf("absent.xml");
  EXPECT_FALSE(refhost::LoadXml(root, path, Report()));
  ASSERT_EQ(Errors().size(), 1u);
  EXPECT_THAT(Errors()[0], AllOf(HasSubstr(path), HasSubstr("No such file")));

  FReport.clear();
  EXPECT_FALSE(refhost::SaveJson(root, PathOf("no-such-dir/laser.json"), Report()));
  ASSERT_EQ(Errors().size(), 1u);
  EXPECT_THAT(Errors()[0], HasSubstr("no-such-dir/laser.json"));
}

TEST_F(ConfigStoreTest, UnknownKeysAndWrongTypesAreReportedWithTheKeyPathAndTheRestIsLoaded) {
  std::string json = Write("mixed.json", R"({
    "Model": "IPG", "Colour": "red", "CtrlPort": 4294967296, "Power": "high",
    "IPG": {"UseTcp": "yes", "TcpPort": 7.5, "MaxCurrent": 80, "Extra": {"A": 1}},
    "Nowhere": {"B": 2}, "DA": 5
  })");
  std::string xml = Write("mixed.xml", R"(<Laser Colour="red">
    <Model>IPG</Model><CtrlPort>12abc</CtrlPort><Power>2.5e3</Power>
    <IPG><UseTcp>yes</UseTcp><TcpPort>99999999999</TcpPort><MaxCurrent>80</MaxCurrent><Extra><A>1</A></Extra></IPG>
    <Nowhere><B>2</B></Nowhere><Model2>x</Model2>
  </Laser>)");
  for (const std::string& path : {json, xml}) {
    SCOPED_TRACE(path);
    FReport.clear();
    TRootNode root;
    bool isJson = path.ends_with(".json");
    ASSERT_TRUE(isJson ? refhost::LoadJson(root, path, Report()) : refhost::LoadXml(root, path, Report()));
    EXPECT_EQ(root.GetString("Model"), "IPG");
    EXPECT_EQ(root.GetInteger("CtrlPort"), 0);
    EXPECT_EQ(root.GetDouble("Power"), isJson ? 1000.0 : 2500.0);
    ASSERT_NE(root.FindSubConfig("IPG"), nullptr);
    EXPECT_FALSE(root.FindSubConfig("IPG")->GetBool("UseTcp"));
    EXPECT_EQ(root.FindSubConfig("IPG")->GetInteger("TcpPort"), 10001);
    EXPECT_EQ(root.FindSubConfig("IPG")->GetDouble("MaxCurrent"), 80.0);
    EXPECT_THAT(Errors(), IsEmpty());

    auto warned = [&](const std::string& key) {
      for (const auto& w : Warnings())
        if (w.find(path) != std::string::npos && w.find(" " + key + " ") != std::string::npos) return true;
      return false;
    };
    EXPECT_TRUE(warned("Colour"));
    EXPECT_TRUE(warned("CtrlPort"));
    EXPECT_TRUE(warned("IPG.UseTcp"));
    EXPECT_TRUE(warned("IPG.TcpPort"));
    EXPECT_TRUE(warned("IPG.Extra"));
    EXPECT_TRUE(warned("Nowhere"));
    EXPECT_EQ(warned("Model"), false);
  }
}

TEST_F(ConfigStoreTest, ReportsReachTheHostAsLogLines) {
  auto recorder = std::make_shared<refhost::TRecordingSink>();
  refhost::TRefApp app(recorder);
  TRootNode root;
  EXPECT_TRUE(refhost::LoadJsonText(root, R"({"Unknown": 1, "DA": 5})", "inline.json", refhost::ReportToApp(app)));
  auto logs = recorder->Entries(refhost::TEntryKind::Log);
  ASSERT_EQ(logs.size(), 2u);
  for (const auto& entry : logs) {
    EXPECT_EQ(entry.Type, nchost::msgtype::kWarning);
    EXPECT_EQ(entry.Category, "Config");
    EXPECT_THAT(entry.Text, HasSubstr("inline.json"));
  }
  EXPECT_THAT(logs[1].Text, HasSubstr("DA ignored: expected an object"));
}

}  // namespace
