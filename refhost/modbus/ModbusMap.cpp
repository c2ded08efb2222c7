#include "refhost/modbus/ModbusMap.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>

#include "refhost/FileText.h"
#include "refhost/JsonParse.h"

namespace refhost {
namespace {

// What one request may read: 2000 bits or 125 registers.
constexpr int kMaxBitsPerRead = 2000;
constexpr int kMaxRegistersPerRead = 125;
// Neighbouring inputs this close share one read; a wider gap gets a request of its own.
constexpr int kMaxReadGap = 8;

// Refuses the whole file with a message that already names the file and the entry.
struct TMapError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct TRoleRule {
  const char* Section;               // the map file's key for the role
  std::vector<TModbusTable> Tables;  // the tables the role may use; the first is its default
  double DefaultScale;               // register units per engineering unit
  int FirstPort;                     // 0 is "not used" for digital and PWM ports
};

const TRoleRule& RuleFor(TIORole role) {
  static const TRoleRule output{"outputs", {TModbusTable::Coil}, 1.0, 1};
  static const TRoleRule input{"inputs", {TModbusTable::DiscreteInput}, 1.0, 1};
  static const TRoleRule da{"da", {TModbusTable::HoldingRegister}, 1000.0, 0};
  static const TRoleRule ad{"ad", {TModbusTable::InputRegister, TModbusTable::HoldingRegister}, 1000.0, 0};
  static const TRoleRule pwmEnable{"pwm", {TModbusTable::Coil}, 1.0, 1};
  static const TRoleRule pwmFrequency{"pwm", {TModbusTable::HoldingRegister}, 1.0, 1};
  static const TRoleRule pwmRatio{"pwm", {TModbusTable::HoldingRegister}, 10000.0, 1};
  switch (role) {
    case TIORole::Output:
      return output;
    case TIORole::Input:
      return input;
    case TIORole::DA:
      return da;
    case TIORole::AD:
      return ad;
    case TIORole::PwmEnable:
      return pwmEnable;
    case TIORole::PwmFrequency:
      return pwmFrequency;
    case TIORole::PwmRatio:
      return pwmRatio;
  }
  return output;
}

std::optional<TModbusTable> TableByName(const std::string& name) {
  for (auto table :
       {TModbusTable::Coil, TModbusTable::DiscreteInput, TModbusTable::HoldingRegister, TModbusTable::InputRegister})
    if (name == ModbusTableName(table)) return table;
  return std::nullopt;
}

std::string TableList(const std::vector<TModbusTable>& tables) {
  std::string text;
  for (size_t i = 0; i < tables.size(); ++i) {
    if (i > 0) text += i + 1 == tables.size() ? " or " : ", ";
    text += ModbusTableName(tables[i]);
  }
  return text;
}

class TMapReader {
 public:
  explicit TMapReader(std::string fileName) : FFile(std::move(fileName)) {}

  TModbusMap Read(const TJson& document) {
    if (!document.is_object())
      Fail("",
           "the map is a JSON object with \"unit\", \"outputs\", \"inputs\", \"da\", "
           "\"ad\" and \"pwm\"");
    TModbusMap map;
    for (const auto& [key, value] : document.items()) {
      if (key == "unit") {
        map.Unit = IntIn(value, "unit", "unit", 0, 255);
      } else if (key == "outputs" || key == "inputs" || key == "da" || key == "ad") {
        const TIORole role = key == "outputs"  ? TIORole::Output
                             : key == "inputs" ? TIORole::Input
                             : key == "da"     ? TIORole::DA
                                               : TIORole::AD;
        ForEachEntry(value, key, [&](const TJson& entry, const std::string& name) {
          const uint8_t port = Port(entry, name, role);
          const std::string where = name + " (port " + std::to_string(port) + ")";
          CheckKeys(entry, where, {"port", "table", "address", "scale"});
          Add(map, Point(entry, where, role, port), where);
        });
      } else if (key == "pwm") {
        ForEachEntry(value, key, [&](const TJson& entry, const std::string& name) {
          const uint8_t port = Port(entry, name, TIORole::PwmEnable);
          const std::string where = name + " (port " + std::to_string(port) + ")";
          CheckKeys(entry, where, {"port", "enable", "frequency", "ratio"});
          if (!entry.contains("enable")) Fail(where, "a PWM channel needs \"enable\" (the coil that switches it)");
          const std::pair<const char*, TIORole> parts[] = {
              {"enable", TIORole::PwmEnable}, {"frequency", TIORole::PwmFrequency}, {"ratio", TIORole::PwmRatio}};
          for (const auto& [part, role] : parts) {
            if (!entry.contains(part)) continue;
            const std::string partWhere = where + " " + part;
            const TJson& point = entry.at(part);
            if (!point.is_object()) Fail(partWhere, "is an object with \"table\", \"address\" and \"scale\"");
            CheckKeys(point, partWhere, {"table", "address", "scale"});
            Add(map, Point(point, partWhere, role, port), partWhere);
          }
        });
      } else {
        Fail("", "unknown key \"" + key + "\"; a map has \"unit\", \"outputs\", \"inputs\", \"da\", \"ad\", \"pwm\"");
      }
    }
    return map;
  }

 private:
  [[noreturn]] void Fail(const std::string& where, const std::string& what) const {
    throw TMapError(FFile + ": " + (where.empty() ? "" : where + ": ") + what);
  }

  template <class F>
  void ForEachEntry(const TJson& list, const std::string& section, F each) {
    if (!list.is_array()) Fail(section, "is a list of entries");
    for (size_t i = 0; i < list.size(); ++i) {
      const std::string name = section + "[" + std::to_string(i) + "]";
      if (!list[i].is_object()) Fail(name, "an entry is an object with \"port\" and \"address\"");
      each(list[i], name);
    }
  }

  void CheckKeys(const TJson& entry, const std::string& where, std::initializer_list<const char*> known) const {
    for (const auto& item : entry.items()) {
      // A named reference, not a structured binding: clang before 16 cannot capture a binding in a lambda.
      const std::string& key = item.key();
      if (std::none_of(known.begin(), known.end(), [&](const char* k) { return key == k; })) {
        std::string list;
        for (const char* k : known) list += std::string(list.empty() ? "" : ", ") + "\"" + k + "\"";
        Fail(where, "unknown key \"" + key + "\" (an entry has " + list + ")");
      }
    }
  }

  int IntIn(const TJson& value, const std::string& where, const std::string& what, int low, int high) const {
    if (!value.is_number_integer() || value.get<int64_t>() < low || value.get<int64_t>() > high)
      Fail(where, "\"" + what + "\" is a whole number from " + std::to_string(low) + " to " + std::to_string(high) +
                      ", not " + DumpJson(value));
    return static_cast<int>(value.get<int64_t>());
  }

  uint8_t Port(const TJson& entry, const std::string& name, TIORole role) const {
    if (!entry.contains("port")) Fail(name, "\"port\" is missing");
    return static_cast<uint8_t>(IntIn(entry.at("port"), name, "port", RuleFor(role).FirstPort, 255));
  }

  TModbusPoint Point(const TJson& entry, const std::string& where, TIORole role, uint8_t port) const {
    const TRoleRule& rule = RuleFor(role);
    TModbusPoint point{role, port, rule.Tables.front(), 0, rule.DefaultScale};
    if (entry.contains("table")) {
      const TJson& name = entry.at("table");
      const auto table = name.is_string() ? TableByName(name.get<std::string>()) : std::nullopt;
      if (!table)
        Fail(where, "unknown table " + DumpJson(name) +
                        "; the tables are coil, discrete_input, holding_register "
                        "and input_register");
      if (std::find(rule.Tables.begin(), rule.Tables.end(), *table) == rule.Tables.end())
        Fail(where, std::string("table ") + ModbusTableName(*table) + " cannot serve " + IORoleOperation(role) +
                        "; use " + TableList(rule.Tables));
      point.Table = *table;
    }
    if (!entry.contains("address")) Fail(where, "\"address\" is missing");
    point.Address = static_cast<uint16_t>(IntIn(entry.at("address"), where, "address", 0, 65535));
    if (entry.contains("scale")) {
      const TJson& scale = entry.at("scale");
      if (IsBitTable(point.Table)) Fail(where, "a bit has no scale");
      if (!scale.is_number() || !std::isfinite(scale.get<double>()) || scale.get<double>() <= 0.0)
        Fail(where, "bad scale " + DumpJson(scale) + "; a scale is a number above 0 (register units per unit)");
      point.Scale = scale.get<double>();
    }
    return point;
  }

  void Add(TModbusMap& map, const TModbusPoint& point, const std::string& where) {
    const auto sameRole = [&](const TModbusPoint& p) { return p.Role == point.Role && p.Port == point.Port; };
    const auto sameAddress = [&](const TModbusPoint& p) {
      return p.Table == point.Table && p.Address == point.Address;
    };
    auto found = std::find_if(map.Points.begin(), map.Points.end(), sameRole);
    if (found != map.Points.end())
      Fail(where, "port " + std::to_string(point.Port) + " is already mapped by " + WhereOf(map, found));
    found = std::find_if(map.Points.begin(), map.Points.end(), sameAddress);
    if (found != map.Points.end())
      Fail(where, "duplicate address: " + std::string(ModbusTableName(point.Table)) + " " +
                      std::to_string(point.Address) + " is already used by " + WhereOf(map, found));
    map.Points.push_back(point);
    FWhere.push_back(where);
  }

  std::string WhereOf(const TModbusMap& map, std::vector<TModbusPoint>::const_iterator point) const {
    return FWhere.at(static_cast<size_t>(point - map.Points.begin()));
  }

  const std::string FFile;
  std::vector<std::string> FWhere;  // the entry of each point taken, by index
};

}  // namespace

const char* ModbusTableName(TModbusTable table) {
  switch (table) {
    case TModbusTable::Coil:
      return "coil";
    case TModbusTable::DiscreteInput:
      return "discrete_input";
    case TModbusTable::HoldingRegister:
      return "holding_register";
    case TModbusTable::InputRegister:
      return "input_register";
  }
  return "?";
}

const char* IORoleOperation(TIORole role) {
  switch (role) {
    case TIORole::Output:
      return "SetOutputbit";
    case TIORole::PwmEnable:
      return "SetPwmEn";
    case TIORole::PwmFrequency:
      return "SetPwmFreq";
    case TIORole::PwmRatio:
      return "SetPwmRatio";
    case TIORole::DA:
      return "SetDAValue";
    case TIORole::Input:
      return "GetInputBit";
    case TIORole::AD:
      return "GetADValue";
  }
  return "?";
}

TModbusMap TModbusMap::Default() {
  TModbusMap map;
  const auto add = [&](TIORole role, int port, TModbusTable table, int address, double scale) {
    map.Points.push_back({role, static_cast<uint8_t>(port), table, static_cast<uint16_t>(address), scale});
  };
  for (int n = 1; n <= 16; ++n) add(TIORole::Output, n, TModbusTable::Coil, n, 1.0);
  for (int n = 1; n <= 16; ++n) add(TIORole::Input, n, TModbusTable::DiscreteInput, n, 1.0);
  for (int n = 0; n <= 3; ++n) add(TIORole::DA, n, TModbusTable::HoldingRegister, n, 1000.0);
  for (int n = 0; n <= 3; ++n) add(TIORole::AD, n, TModbusTable::InputRegister, n, 1000.0);
  for (int n = 1; n <= 2; ++n) {
    add(TIORole::PwmEnable, n, TModbusTable::Coil, 200 + n, 1.0);
    add(TIORole::PwmFrequency, n, TModbusTable::HoldingRegister, 100 + 2 * n, 1.0);
    add(TIORole::PwmRatio, n, TModbusTable::HoldingRegister, 101 + 2 * n, 10000.0);
  }
  return map;
}

bool ParseModbusMap(const std::string& text, const std::string& fileName, TModbusMap& map, std::string& error) {
  TJson document;
  std::string parseError;
  if (!ParseJsonText(text, document, parseError, /*allowComments=*/true)) {
    error = fileName + ": " + parseError;
    return false;
  }
  try {
    map = TMapReader(fileName).Read(document);
    return true;
  } catch (const TMapError& e) {
    error = e.what();
    return false;
  }
}

bool LoadModbusMapFile(const std::string& path, TModbusMap& map, std::string& error) {
  std::string text, readError;
  if (!ReadTextFile(path, text, readError)) {
    error = path + ": " + readError;
    return false;
  }
  return ParseModbusMap(text, path, map, error);
}

std::vector<TModbusReadBlock> PlanModbusReads(const TModbusMap& map) {
  std::vector<size_t> read;
  for (size_t i = 0; i < map.Points.size(); ++i)
    if (!IsWrittenRole(map.Points[i].Role)) read.push_back(i);
  std::sort(read.begin(), read.end(), [&](size_t a, size_t b) {
    const auto& pa = map.Points[a];
    const auto& pb = map.Points[b];
    return pa.Table != pb.Table ? pa.Table < pb.Table : pa.Address < pb.Address;
  });
  std::vector<TModbusReadBlock> blocks;
  for (size_t index : read) {
    const TModbusPoint& p = map.Points[index];
    const int limit = IsBitTable(p.Table) ? kMaxBitsPerRead : kMaxRegistersPerRead;
    if (!blocks.empty()) {
      TModbusReadBlock& last = blocks.back();
      const int end = last.Start + last.Count;  // one past the block's last address
      if (last.Table == p.Table && p.Address - end <= kMaxReadGap && p.Address - last.Start < limit) {
        last.Count = static_cast<uint16_t>(p.Address - last.Start + 1);
        last.Points.push_back(index);
        continue;
      }
    }
    blocks.push_back({p.Table, p.Address, 1, {index}});
  }
  return blocks;
}

}  // namespace refhost
