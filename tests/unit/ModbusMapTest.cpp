// The Modbus IO module's map (default and from a file), its read plan, the module address, and the image that
// the host's calls and the scan thread share.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "refhost/modbus/ModbusImage.h"
#include "refhost/modbus/ModbusMap.h"
#include "refhost/modbus/ModbusUri.h"
#include "support/ScratchDir.h"

namespace refhost {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Where a port is: its table, address and scale, or nothing when the map does not name it.
std::optional<std::tuple<TModbusTable, int, double>> Point(const TModbusMap& map, TIORole role, int port) {
  for (const auto& p : map.Points)
    if (p.Role == role && p.Port == port) return std::tuple(p.Table, int{p.Address}, p.Scale);
  return std::nullopt;
}

std::vector<std::tuple<TModbusTable, int, int>> Reads(const TModbusMap& map) {
  std::vector<std::tuple<TModbusTable, int, int>> reads;
  for (const auto& r : PlanModbusReads(map)) reads.emplace_back(r.Table, r.Start, r.Count);
  return reads;
}

// Where each output, DA and PWM port of the default map lands on a module is shown against one in ModbusIOTest.
TEST(ModbusMapTest, DefaultMapReadsEveryInputInOneRequestPerTable) {
  const TModbusMap map = TModbusMap::Default();
  EXPECT_FALSE(map.Unit);
  EXPECT_EQ(Point(map, TIORole::Output, 0), std::nullopt) << "port 0 means not used";
  // Nothing that is written is read.
  EXPECT_THAT(Reads(map), ElementsAre(std::tuple(TModbusTable::DiscreteInput, 1, 16),
                                      std::tuple(TModbusTable::InputRegister, 0, 4)));
}

TEST(ModbusMapTest, MapFileSetsUnitTablesAddressesAndScales) {
  TModbusMap map;
  std::string error;
  ASSERT_TRUE(ParseModbusMap(R"({
      // a module with its outputs from coil 16 and a 0..20 mA AD input on a holding register
      "unit": 7,
      "outputs": [{"port": 6, "address": 16}, {"port": 5, "table": "coil", "address": 17}],
      "inputs": [{"port": 1, "address": 0}],
      "da": [{"port": 1, "address": 4, "scale": 409.5}],
      "ad": [{"port": 0, "table": "holding_register", "address": 30}],
      "pwm": [{"port": 1, "enable": {"address": 40}, "ratio": {"address": 41, "scale": 1000}}]
    })",
                             "io.json", map, error))
      << error;
  EXPECT_EQ(map.Unit, 7);
  EXPECT_EQ(Point(map, TIORole::Output, 5), std::tuple(TModbusTable::Coil, 17, 1.0));
  EXPECT_EQ(Point(map, TIORole::DA, 1), std::tuple(TModbusTable::HoldingRegister, 4, 409.5));
  EXPECT_EQ(Point(map, TIORole::AD, 0), std::tuple(TModbusTable::HoldingRegister, 30, 1000.0));
  EXPECT_EQ(Point(map, TIORole::PwmRatio, 1), std::tuple(TModbusTable::HoldingRegister, 41, 1000.0));
  EXPECT_EQ(Point(map, TIORole::PwmFrequency, 1), std::nullopt);
  EXPECT_EQ(Point(map, TIORole::Output, 7), std::nullopt) << "a port the map does not name does not exist";
  EXPECT_EQ(map.Points.size(), 7u);
}

TEST(ModbusMapTest, ShippedExampleMapLoads) {
  TModbusMap map;
  std::string error;
  ASSERT_TRUE(LoadModbusMapFile(DEVLASER_SOURCE_DIR "/examples/modbus-io-map.json", map, error)) << error;
  EXPECT_EQ(Point(map, TIORole::Output, 6), std::tuple(TModbusTable::Coil, 1, 1.0));
  EXPECT_EQ(Point(map, TIORole::DA, 1), std::tuple(TModbusTable::HoldingRegister, 0, 409.5));
}

TEST(ModbusMapTest, BrokenMapFilesAreRefusedNamingFileAndEntry) {
  struct TCase {
    const char* Json;
    std::vector<const char*> Says;
  };
  const TCase cases[] = {
      {R"({"outputs": [{"port": 5, "address": 5}, {"port": 7, "table": "coils", "address": 7}]})",
       {"io.json: outputs[1] (port 7): unknown table \"coils\"", "coil, discrete_input"}},
      {R"({"outputs": [{"port": 5, "address": 5}], "pwm": [{"port": 1, "enable": {"address": 5}}]})",
       {"io.json: pwm[0] (port 1) enable: duplicate address: coil 5 is already used by outputs[0] (port 5)"}},
      {R"({"da": [{"port": 1, "address": 1}], "ad": [{"port": 1, "table": "holding_register", "address": 1}]})",
       {"io.json: ad[0] (port 1): duplicate address: holding_register 1"}},
      {R"({"da": [{"port": 1, "address": 1, "scale": 0}]})", {"io.json: da[0] (port 1): bad scale 0"}},
      {R"({"ad": [{"port": 2, "address": 1, "scale": "mV"}]})", {"ad[0] (port 2): bad scale \"mV\""}},
      {R"({"outputs": [{"port": 5, "address": 5}, {"port": 5, "address": 6}]})",
       {"outputs[1] (port 5): port 5 is already mapped by outputs[0]"}},
      {R"({"outputs": [{"port": 5, "table": "input_register", "address": 5}]})",
       {"outputs[0] (port 5): table input_register cannot serve SetOutputbit; use coil"}},
      {R"({"inputs": [{"port": 0, "address": 1}]})", {"inputs[0]: \"port\" is a whole number from 1 to 255, not 0"}},
      {R"({"da": [{"port": 1}]})", {"da[0] (port 1): \"address\" is missing"}},
      {R"({"outputs": [{"port": 5, "adress": 5}]})", {"outputs[0] (port 5): unknown key \"adress\""}},
      {R"({"outputs": [)", {"io.json: line 1"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Json);
    TModbusMap map = TModbusMap::Default();
    std::string error;
    EXPECT_FALSE(ParseModbusMap(c.Json, "io.json", map, error));
    EXPECT_THAT(error, StartsWith("io.json: "));
    for (const char* part : c.Says) EXPECT_THAT(error, HasSubstr(part));
    EXPECT_EQ(map.Points.size(), TModbusMap::Default().Points.size()) << "a refused file changes nothing";
  }
}

TEST(ModbusMapTest, SparseInputsAreReadInSeparateRequestsWithinTheProtocolLimit) {
  TModbusMap map;
  for (int port = 1; port <= 3; ++port)  // discrete inputs 0, 8 (gap 7: shared) and 40 (own request)
    map.Points.push_back({TIORole::Input, static_cast<uint8_t>(port), TModbusTable::DiscreteInput,
                          static_cast<uint16_t>(port == 3 ? 40 : (port - 1) * 8), 1});
  for (int port = 0; port < 130; ++port)  // 130 registers: more than one request may carry
    map.Points.push_back(
        {TIORole::AD, static_cast<uint8_t>(port), TModbusTable::InputRegister, static_cast<uint16_t>(port), 1000});
  EXPECT_THAT(
      Reads(map),
      ElementsAre(std::tuple(TModbusTable::DiscreteInput, 0, 9), std::tuple(TModbusTable::DiscreteInput, 40, 1),
                  std::tuple(TModbusTable::InputRegister, 0, 125), std::tuple(TModbusTable::InputRegister, 125, 5)));
  EXPECT_EQ(PlanModbusReads(map)[0].Points.size(), 2u);
}

TEST(ModbusUriTest, AddressesAndOptions) {
  testsupport::TScratchDir dir;
  const std::string map = dir.Write("io.json", R"({"unit": 9, "outputs": [{"port": 1, "address": 0}]})");
  const std::string badMap = dir.Write("bad.json", R"({"outputs": [{"port": 1, "table": "relay", "address": 0}]})");

  struct TGood {
    std::string Uri, Host;
    int Port, Unit, ScanMs;
  };
  const TGood good[] = {
      {"modbus-tcp://192.168.1.20", "192.168.1.20", 502, 1, 10},
      {"modbus-tcp://io-module:1502?unit=3&scan-ms=20", "io-module", 1502, 3, 20},
      {"modbus-tcp://[::1]:1502", "::1", 1502, 1, 10},
      {"modbus-tcp://127.0.0.9?map=" + map, "127.0.0.9", 502, 9, 10},              // the map's unit
      {"modbus-tcp://127.0.0.9?map=" + map + "&unit=2", "127.0.0.9", 502, 2, 10},  // the address's unit wins
  };
  for (const auto& g : good) {
    SCOPED_TRACE(g.Uri);
    TModbusIOOptions options;
    std::string error;
    ASSERT_TRUE(ParseModbusUri(g.Uri, options, error)) << error;
    EXPECT_EQ(options.Host, g.Host);
    EXPECT_EQ(options.Port, g.Port);
    EXPECT_EQ(options.Unit, g.Unit);
    EXPECT_EQ(options.ScanPeriod.count(), g.ScanMs);
  }

  struct TBad {
    std::string Uri, Says;
  };
  const TBad bad[] = {
      {"tcp://127.0.0.9", "starts with modbus-tcp://"},
      {"modbus-tcp://", "host is missing"},
      {"modbus-tcp://127.0.0.9:70000", "port is a number from 1 to 65535"},
      {"modbus-tcp://127.0.0.9?unit=300", "unit is a number from 0 to 255"},
      {"modbus-tcp://127.0.0.9?speed=1", "unknown option \"speed\""},
      {"modbus-tcp://127.0.0.9?map=" + dir / "missing.json", "missing.json: No such file"},
      {"modbus-tcp://127.0.0.9?map=" + badMap, badMap + ": outputs[0] (port 1): unknown table \"relay\""},
  };
  for (const auto& b : bad) {
    SCOPED_TRACE(b.Uri);
    TModbusIOOptions options;
    std::string error;
    EXPECT_FALSE(ParseModbusUri(b.Uri, options, error));
    EXPECT_THAT(error, HasSubstr(b.Says));
  }
}

// The image without a module: what ModbusIOTest cannot show against a module (refused writes, link loss and
// nothing re-applied are shown there): writes before the link, ports the map lacks, values that do not fit a
// register, and how many writes a lost link dropped.
TEST(ModbusImageTest, WritesOutsideTheLinkOrTheRegisterAreAccountedFor) {
  TModbusImage image(TModbusMap::Default());
  EXPECT_EQ(image.Write(TIORole::Output, 5, 1).Result, TImageWrite::Disconnected) << "nothing before the link";
  image.LinkUp();
  EXPECT_EQ(image.Write(TIORole::Output, 17, 1).Result, TImageWrite::NoSuchPort);
  const auto over = image.Write(TIORole::PwmFrequency, 1, 100000);
  EXPECT_EQ(std::tuple(over.Clamped, over.Raw), std::tuple(true, 65535));
  EXPECT_EQ(image.Write(TIORole::DA, 2, -1).Raw, 0);
  EXPECT_EQ(image.TakePendingWrites().size(), 2u);
  EXPECT_TRUE(image.TakePendingWrites().empty()) << "each write goes out once";

  image.LinkDown();
  EXPECT_EQ(image.Read(TIORole::PwmFrequency, 1), 0.0);
  EXPECT_EQ(image.Write(TIORole::Output, 6, 1).DroppedSinceLoss, 1);
  EXPECT_EQ(image.Write(TIORole::Output, 6, 1).DroppedSinceLoss, 2);
  EXPECT_EQ(image.LinkUp(), 2);
  EXPECT_TRUE(image.TakePendingWrites().empty()) << "nothing is re-applied when the link comes back";
  image.Close();
  EXPECT_EQ(image.Write(TIORole::Output, 6, 1).Result, TImageWrite::Closed);
}

}  // namespace
}  // namespace refhost
