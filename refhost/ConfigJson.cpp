// Configuration trees as JSON: a node is an object of its keys and, nested under their names, its sub-nodes.
#include <cmath>
#include <limits>

#include "host/HostDefs.h"
#include "refhost/ConfigStore.h"
#include "refhost/ConfigValues.h"
#include "refhost/FileText.h"
#include "refhost/JsonParse.h"

namespace refhost {
namespace {

using nchost::TConfigValue;
using nchost::TXmlSubConfig;

TJson NodeToJson(const TXmlSubConfig& node, const std::string& path, const TConfigIssues& issues) {
  TJson object = TJson::object();
  for (const auto& p : node.Properties()) {
    std::string keyPath = KeyPath(path, p.Name);
    if (const bool* b = std::get_if<bool>(&p.Value)) {
      object[p.Name] = *b;
    } else if (const int32_t* i = std::get_if<int32_t>(&p.Value)) {
      object[p.Name] = *i;
    } else if (const double* d = std::get_if<double>(&p.Value)) {
      if (!std::isfinite(*d))
        issues.Warn(keyPath + " is " + ValueToText(p.Value) + ", which JSON cannot hold; saved as null");
      object[p.Name] = std::isfinite(*d) ? TJson(*d) : TJson(nullptr);
    } else {
      const auto& s = std::get<std::string>(p.Value);
      if (FindInvalidUtf8(s) != std::string::npos)
        issues.Warn(keyPath + " is not valid UTF-8; its bad bytes are saved as U+FFFD");
      object[p.Name] = s;
    }
  }
  for (const auto& sub : node.SubConfigs()) {
    std::string subPath = KeyPath(path, sub->NodeName());
    if (object.contains(sub->NodeName())) {
      issues.Warn("node " + subPath + " has the name of a key and is not saved");
      continue;
    }
    object[sub->NodeName()] = NodeToJson(*sub, subPath, issues);
  }
  return object;
}

// Converts `json` into a value of the type of `like`; false, with `why`, when it is of another type.
bool JsonToValue(const TJson& json, const TConfigValue& like, TConfigValue& value, std::string& why) {
  switch (like.index()) {
    case 0:
      if (json.is_boolean()) {
        value = json.get<bool>();
        return true;
      }
      break;
    case 1:
      if (json.is_number_unsigned()) {
        if (json.get<uint64_t>() <= static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) {
          value = static_cast<int32_t>(json.get<uint64_t>());
          return true;
        }
        why = json.dump() + " is outside the 32-bit integer range";
        return false;
      }
      if (json.is_number_integer()) {
        int64_t v = json.get<int64_t>();
        if (v >= std::numeric_limits<int32_t>::min() && v <= std::numeric_limits<int32_t>::max()) {
          value = static_cast<int32_t>(v);
          return true;
        }
        why = json.dump() + " is outside the 32-bit integer range";
        return false;
      }
      if (json.is_number_float() && JsonIsWholeNumber(json)) {
        // "6.0", "1e3", and integers beyond 64 bits (read as doubles) are whole numbers too.
        const double v = json.get<double>();
        if (v >= std::numeric_limits<int32_t>::min() && v <= std::numeric_limits<int32_t>::max()) {
          value = static_cast<int32_t>(v);
          return true;
        }
        why = "a whole number outside the 32-bit integer range";  // its digits were rounded on reading
        return false;
      }
      break;
    case 2:
      if (json.is_number()) {
        value = json.get<double>();
        return true;
      }
      break;
    default:
      if (json.is_string()) {
        value = json.get<std::string>();
        return true;
      }
      break;
  }
  why = std::string("expected ") + ExpectedKind(like) + ", found " + JsonKindName(json);
  return false;
}

void ApplyJson(TXmlSubConfig& node, const TJson& object, const std::string& path, const TConfigIssues& issues) {
  for (const auto& item : object.items()) {
    const std::string& name = item.key();
    const TJson& json = item.value();
    std::string keyPath = KeyPath(path, name);
    const TXmlSubConfig::TProperty* property = node.FindProperty(name);
    if (property == nullptr && json.is_object()) {
      if (TXmlSubConfig* sub = node.SubConfigForLoad(name))
        ApplyJson(*sub, json, keyPath, issues);
      else
        issues.Warn("unknown node " + keyPath + " ignored");
      continue;
    }
    if (property == nullptr && node.FindSubConfig(name) != nullptr) {
      issues.Warn(keyPath + " ignored: expected an object, found " + JsonKindName(json));
      continue;
    }
    if (property == nullptr) {
      issues.Warn("unknown key " + keyPath + " ignored");
      continue;
    }
    TConfigValue value;
    std::string why;
    if (JsonToValue(json, property->Value, value, why))
      node.SetProperty(name, value);
    else
      issues.Warn(keyPath + " ignored: " + why);
  }
}

}  // namespace

bool WriteJsonText(const TXmlSubConfig& node, std::string& text, const TConfigIssues& issues) {
  try {
    text = DumpJson(NodeToJson(node, "", issues), 2) + "\n";
    return true;
  } catch (const std::exception& e) {
    return issues.Refuse(std::string("cannot be written as JSON: ") + e.what());
  }
}

bool ApplyJsonText(TXmlSubConfig& node, const std::string& text, const TConfigIssues& issues) {
  TJson document;
  std::string error;
  if (!ParseJsonText(text, document, error, /*allowComments=*/true)) return issues.RefuseLoad(error);
  if (!document.is_object()) return issues.RefuseLoad("the top level is " + JsonKindName(document) + ", not an object");
  try {
    ApplyJson(node, document, "", issues);
  } catch (const std::exception& e) {
    return issues.Refuse(std::string("was loaded only in part: ") + e.what());
  }
  return true;
}

}  // namespace refhost
