// The Modbus IO module's map (default and from a file), its read plan, the module address, and the image that
// the host's calls and the scan thread share.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "refhost/modbus/ModbusImage.h"
#include "refhost/modbus/ModbusMap.h"
#include "refhost/modbus/ModbusUri.h"
#include "support/ScratchDir.h"

namespace refhost {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

const TModbusPoint* Find(const TModbusMap& map, TIORole role, int port) {
  for (const auto& p : map.Points)
    if (p.Role == role && p.Port == port) return &p;
  return nullptr;
}

void ExpectPoint(const TModbusMap& map, TIORole role, int port, TModbusTable table, int address, double scale) {
  const TModbusPoint* p = Find(map, role, port);
  ASSERT_NE(p, nullptr) << IORoleOperation(role) << " " << port;
  EXPECT_EQ(p->Table, table) << IORoleOperation(role) << " " << port;
  EXPECT_EQ(p->Address, address) << IORoleOperation(role) << " " << port;
  EXPECT_EQ(p->Scale, scale) << IORoleOperation(role) << " " << port;
}

TEST(ModbusMapTest, DefaultMapPutsEachPortOnItsOwnNumber) {
  const TModbusMap map = TModbusMap::Default();
  EXPECT_FALSE(map.Unit);
  ExpectPoint(map, TIORole::Output, 16, TModbusTable::Coil, 16, 1);
  ExpectPoint(map, TIORole::Input, 3, TModbusTable::DiscreteInput, 3, 1);
  ExpectPoint(map, TIORole::DA, 1, TModbusTable::HoldingRegister, 1, 1000);  // millivolts
  ExpectPoint(map, TIORole::PwmEnable, 1, TModbusTable::Coil, 201, 1);
  ExpectPoint(map, TIORole::PwmRatio, 2, TModbusTable::HoldingRegister, 105, 10000);
  EXPECT_EQ(Find(map, TIORole::Output, 0), nullptr) << "port 0 means not used";
  EXPECT_EQ(Find(map, TIORole::Output, 17), nullptr);

  // Every input in one request per table; nothing that is written is read.
  const auto reads = PlanModbusReads(map);
  ASSERT_EQ(reads.size(), 2u);
  EXPECT_EQ(reads[0].Table, TModbusTable::DiscreteInput);
  EXPECT_EQ(reads[0].Start, 1);
  EXPECT_EQ(reads[0].Count, 16);
  EXPECT_EQ(reads[1].Table, TModbusTable::InputRegister);
  EXPECT_EQ(reads[1].Start, 0);
  EXPECT_EQ(reads[1].Count, 4);
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
  ExpectPoint(map, TIORole::Output, 5, TModbusTable::Coil, 17, 1);
  ExpectPoint(map, TIORole::DA, 1, TModbusTable::HoldingRegister, 4, 409.5);
  ExpectPoint(map, TIORole::AD, 0, TModbusTable::HoldingRegister, 30, 1000);
  ExpectPoint(map, TIORole::PwmRatio, 1, TModbusTable::HoldingRegister, 41, 1000);
  EXPECT_EQ(Find(map, TIORole::PwmFrequency, 1), nullptr);
  EXPECT_EQ(Find(map, TIORole::Output, 7), nullptr) << "a port the map does not name does not exist";
  EXPECT_EQ(map.Points.size(), 7u);
}

TEST(ModbusMapTest, ShippedExampleMapLoads) {
  TModbusMap map;
  std::string error;
  ASSERT_TRUE(LoadModbusMapFile(DEVLASER_SOURCE_DIR "/examples/modbus-io-map.json", map, error)) << error;
  ExpectPoint(map, TIORole::Output, 6, TModbusTable::Coil, 1, 1);
  ExpectPoint(map, TIORole::DA, 1, TModbusTable::HoldingRegister, 0, 409.5);
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
  const auto reads = PlanModbusReads(map);
  ASSERT_EQ(reads.size(), 4u);
  EXPECT_EQ(reads[0].Start, 0);
  EXPECT_EQ(reads[0].Count, 9);
  EXPECT_EQ(reads[0].Points.size(), 2u);
  EXPECT_EQ(reads[1].Start, 40);
  EXPECT_EQ(reads[1].Count, 1);
  EXPECT_EQ(reads[2].Count, 125);
  EXPECT_EQ(reads[3].Start, 125);
  EXPECT_EQ(reads[3].Count, 5);
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

// The image without a module: what the host sees of writes the module refused, of values that do not fit a
// register, and of a link that went down.
TEST(ModbusImageTest, RefusedWritesLinkLossAndScaling) {
  TModbusImage image(TModbusMap::Default());
  EXPECT_EQ(image.Write(TIORole::Output, 5, 1).Result, TImageWrite::Disconnected) << "nothing before the link";
  EXPECT_FALSE(image.Read(TIORole::Output, 5));
  image.LinkUp();

  EXPECT_EQ(image.Write(TIORole::Output, 17, 1).Result, TImageWrite::NoSuchPort);
  image.Write(TIORole::Output, 5, 1);
  image.Write(TIORole::DA, 1, 6.0);
  image.Write(TIORole::PwmRatio, 1, 0.25);
  const auto over = image.Write(TIORole::PwmFrequency, 1, 100000);
  EXPECT_TRUE(over.Clamped);
  EXPECT_EQ(over.Raw, 65535);
  EXPECT_EQ(image.Write(TIORole::DA, 2, -1).Raw, 0);
  EXPECT_EQ(image.Read(TIORole::DA, 1), 6.0) << "reads answer from the image at once";
  EXPECT_EQ(image.Read(TIORole::PwmRatio, 1), 0.25);

  auto pending = image.TakePendingWrites();
  ASSERT_EQ(pending.size(), 5u);
  EXPECT_TRUE(image.TakePendingWrites().empty()) << "each write goes out once";
  for (const auto& w : pending) {
    const TModbusPoint& p = image.Map().Points[w.Point];
    if (p.Role == TIORole::DA && p.Port == 1) {
      EXPECT_EQ(w.Raw, 6000);
    }
    if (p.Role == TIORole::PwmRatio) {
      EXPECT_EQ(w.Raw, 2500);
    }
    image.WriteDone(w, !(p.Role == TIORole::Output && p.Port == 5));  // the module refuses output 5
  }
  EXPECT_FALSE(image.Read(TIORole::Output, 5)) << "a refused output reads as the module still holds it";
  EXPECT_EQ(image.Read(TIORole::DA, 1), 6.0);

  image.LinkDown();
  for (auto role : {TIORole::DA, TIORole::PwmRatio, TIORole::PwmFrequency}) EXPECT_EQ(image.Read(role, 1), 0.0);
  EXPECT_EQ(image.Write(TIORole::Output, 6, 1).DroppedSinceLoss, 1);
  EXPECT_EQ(image.Write(TIORole::Output, 6, 1).DroppedSinceLoss, 2);
  EXPECT_FALSE(image.Read(TIORole::Output, 6)) << "a write while the module is gone is not kept for later";
  EXPECT_EQ(image.LinkUp(), 2);
  EXPECT_TRUE(image.TakePendingWrites().empty()) << "nothing is re-applied when the link comes back";

  image.Close();
  EXPECT_EQ(image.Write(TIORole::Output, 6, 1).Result, TImageWrite::Closed);
}

}  // namespace
}  // namespace refhost
