// How the reference host's configuration store takes numbers and refuses what no double holds (round trips,
// broken files and hand-written files are in LaserConfigPersistTest; how warnings reach the operator, in laserctl's
// tests), and the host's JSON reader beneath it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "frame/LaserConfig.h"
#include "host/HostDefs.h"
#include "refhost/ConfigStore.h"
#include "refhost/JsonObject.h"
#include "refhost/JsonParse.h"

namespace {

using devlaser::TLaserConfig;
using testing::HasSubstr;
using testing::IsEmpty;
using Kind = nchost::ISuperObject::TKind;
using testing::ElementsAre;

class ConfigStoreTest : public testing::Test {
 protected:
  refhost::TConfigReport Report() {
    return [this](int type, const std::string& text) { FReports.push_back(std::to_string(type) + ": " + text); };
  }
  std::vector<std::string> FReports;
};

// How numbers of each shape reach an integer key: whole numbers in range are taken however written; the rest is
// named for what it is ("a fractional number" only when there is a fraction).
TEST_F(ConfigStoreTest, NumbersReachIntegerKeysOrAreNamedForWhatTheyAre) {
  struct TCase {
    std::string Value;
    int32_t Stored;        // CtrlPort afterwards (it starts at 0)
    std::string Reported;  // part of the one warning, or empty for none
  };
  const std::vector<TCase> cases = {
      {"6", 6, ""},
      {"6.0", 6, ""},
      {"-2147483648", std::numeric_limits<int32_t>::min(), ""},
      {"2147483648", 0, "CtrlPort ignored: 2147483648 is outside the 32-bit integer range"},
      {"99999999999999999999999", 0, "CtrlPort ignored: a whole number outside the 32-bit integer range"},
      {"6.5", 0, "CtrlPort ignored: expected a whole number, found a fractional number"},
      {"[[[6]]]", 0, "CtrlPort ignored: expected a whole number, found an array"},
  };
  for (const auto& c : cases) {
    FReports.clear();
    TLaserConfig root;
    EXPECT_TRUE(refhost::LoadJsonText(root, R"({"CtrlPort": )" + c.Value + "}", "ports.json", Report())) << c.Value;
    EXPECT_EQ(root.CtrlPort(), c.Stored) << c.Value;
    if (c.Reported.empty()) {
      EXPECT_THAT(FReports, IsEmpty()) << c.Value;
    } else {
      ASSERT_EQ(FReports.size(), 1u) << c.Value;
      EXPECT_THAT(FReports[0], HasSubstr(c.Reported));
    }
  }
}

TEST_F(ConfigStoreTest, ANumberNoDoubleHoldsRefusesTheFileWithItsPosition) {
  TLaserConfig root;
  EXPECT_FALSE(refhost::LoadJsonText(root, "{\n  \"CtrlPort\": 5,\n  \"Power\": 1e999\n}", "huge.json", Report()));
  ASSERT_EQ(FReports.size(), 1u);
  EXPECT_EQ(FReports[0], std::to_string(nchost::msgtype::kError) +
                             ": configuration file 'huge.json' is refused, nothing was loaded: line 3, column 12: "
                             "the number 1e999 is out of range");
  EXPECT_EQ(root.CtrlPort(), 0) << "nothing of a refused file is applied";
}

// ---- the reference host's JSON object: parsing, reading, and views that write through to their document ----------

std::shared_ptr<nchost::ISuperObject> Parse(const std::string& text) {
  std::string error;
  auto obj = refhost::ParseJson(text, error);
  EXPECT_NE(obj, nullptr) << error;
  return obj;
}

TEST(JsonObjectTest, ParsedDocumentsReadBackInTheirOrderAndConvertLeniently) {
  auto doc = Parse(R"({"Cmds": [{"Name": "STA", "Len": 4}, 1.5, null], "Zeta": 1, "Alpha": "1.5e3",
                      "big": 18446744073709551615, "huge": 1e300, "x": "abc"})");
  EXPECT_THAT(doc->Keys(), ElementsAre("Cmds", "Zeta", "Alpha", "big", "huge", "x"));
  EXPECT_EQ(doc->Get("Missing"), nullptr);
  auto cmds = doc->Get("Cmds");
  EXPECT_EQ(cmds->At(0)->Get("Len")->AsInteger(), 4);
  EXPECT_EQ(cmds->At(2)->Kind(), Kind::Null);
  EXPECT_EQ(cmds->At(3), nullptr);
  EXPECT_EQ(cmds->Get("Name"), nullptr);
  // Conversions between kinds are lenient and clamp instead of overflowing.
  EXPECT_EQ(doc->Get("Alpha")->AsInteger(), 1500);
  EXPECT_EQ(doc->Get("big")->AsInteger(), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(doc->Get("huge")->AsInteger(), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(doc->Get("x")->AsInteger(), 0);
}

// A view is a place in its document: writes through it land in the document, it keeps the document alive, and
// when its member is replaced it reads what now stands there.
TEST(JsonObjectTest, ViewsWriteThroughToTheirPlaceInTheDocument) {
  auto doc = Parse(R"({"Laser": {"Model": "YLR"}, "Other": 1})");
  auto laser = doc->Get("Laser");
  laser->S("Model", "YLS");
  laser->I("Power", 2000);
  laser->B("Aiming", true);
  EXPECT_EQ(doc->AsJson(), R"({"Laser":{"Model":"YLS","Power":2000,"Aiming":true},"Other":1})");
  doc.reset();
  EXPECT_EQ(laser->Get("Power")->AsInteger(), 2000);

  auto parsed = Parse(R"({"A": {"B": {"C": 1}}})");
  auto c = parsed->Get("A")->Get("B")->Get("C");
  parsed->S("A", "gone");  // replaces the object that held B and C
  EXPECT_EQ(c->Kind(), Kind::Null);
  c->S("x", "y");                 // writing into a vanished place changes nothing
  parsed->Get("A")->S("x", "y");  // nor does writing a member into a text
  EXPECT_EQ(parsed->AsJson(), R"({"A":"gone"})");
}

// Documents found by feeding the readers hostile files: each is refused with where it goes wrong, in words an
// operator can act on, and never with the parser's own exception text.
TEST(JsonObjectTest, HostileDocumentsAreRefusedWithTheirPositionInPlainWords) {
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"DefParams": {"Power": 1e999}})", "line 1, column 25: the number 1e999 is out of range"},
      {"{\n  \"Cmds\": [1, 2,\n  ]\n}", "line 3, column 3: unexpected ']'"},
      {R"({"DefParams": {"Power": )" + deep + "}}", "line 1, column 279: arrays and objects nest deeper than 256"},
      {R"({"a": tru})", "line 1, column 7: 'tru' is not a JSON value"},
      {R"({"a": 1} trailing)", "line 1, column 10: more follows the end of the JSON value: 'trailing'"},
      {R"({"a": 0x1F})", "line 1, column 7: '0x1F' is not a number"},
      {R"({"a": )", "the text ends inside a JSON value"},
      {"{\"a\": \"\x01\"}", "line 1, column 8: a control character in a text must be written as an escape"},
  };
  for (const auto& [text, expected] : cases) {
    refhost::TJson document;
    std::string error;
    EXPECT_FALSE(refhost::ParseJsonText(text, document, error, /*allowComments=*/true)) << expected;
    EXPECT_THAT(error, HasSubstr(expected));
    EXPECT_THAT(error, testing::Not(HasSubstr("json.exception")));
  }
  // Brackets in texts and comments are not nesting; the host's own documents take no comments.
  refhost::TJson document;
  std::string error;
  EXPECT_EQ(refhost::ParseJson("// comment\n{}", error), nullptr);
  const std::string brackets = "// [[[[\n{\"a\": \"" + std::string(300, '[') + "\"}";
  EXPECT_TRUE(refhost::ParseJsonText(brackets, document, error, true)) << error;
}

}  // namespace
