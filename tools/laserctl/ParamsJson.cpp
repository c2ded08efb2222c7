#include "ParamsJson.h"

#include <algorithm>
#include <limits>

#include "ParamFields.h"
#include "host/HostDefs.h"
#include "refhost/FileText.h"
#include "refhost/JsonParse.h"

namespace laserctl {
namespace {

using devlaser::TDataTransType;
using devlaser::TEnumLaserType;
using json = refhost::TJson;

template <class... F>
struct TOverload : F... {
  using F::operator()...;
};
// Spelled out for clang before 17, which does not deduce an aggregate's template arguments by itself.
template <class... F>
TOverload(F...) -> TOverload<F...>;

bool WholeNumberIn(const json& value, int64_t low, int64_t high, int64_t& out) {
  if (value.is_number_unsigned()) {
    const auto v = value.get<uint64_t>();
    if (v > static_cast<uint64_t>(high)) return false;
    out = static_cast<int64_t>(v);
    return true;
  }
  if (!value.is_number_integer()) return false;
  out = value.get<int64_t>();
  return out >= low && out <= high;
}

// An enumeration value by its name, or by its ordinal; `count` values, named by `name`.
template <class E>
bool EnumValue(const json& value, int count, const char* (*name)(E), E& out) {
  if (value.is_string()) {
    for (int i = 0; i < count; ++i)
      if (value.get<std::string>() == name(static_cast<E>(i))) {
        out = static_cast<E>(i);
        return true;
      }
    return false;
  }
  int64_t ordinal = 0;
  if (!WholeNumberIn(value, 0, count - 1, ordinal)) return false;
  out = static_cast<E>(ordinal);
  return true;
}

template <class E>
std::string EnumChoices(int count, const char* (*name)(E)) {
  std::string text;
  for (int i = 0; i < count; ++i) text += std::string(i ? ", " : "") + name(static_cast<E>(i));
  return text + " or their ordinals 0.." + std::to_string(count - 1);
}

// Stores `value` in the field; on a mismatch returns what the field takes instead.
std::string Apply(const TFieldRef& field, const json& value) {
  return std::visit(
      TOverload{
          [&](bool* f) -> std::string {
            if (!value.is_boolean()) return "true or false";
            *f = value.get<bool>();
            return {};
          },
          [&](int32_t* f) -> std::string {
            int64_t v = 0;
            if (!WholeNumberIn(value, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(), v))
              return "a whole number in the 32-bit range";
            *f = static_cast<int32_t>(v);
            return {};
          },
          [&](double* f) -> std::string {
            if (!value.is_number()) return "a number";
            *f = value.get<double>();
            return {};
          },
          [&](std::string* f) -> std::string {
            if (!value.is_string()) return "a text";
            *f = value.get<std::string>();
            return {};
          },
          [&](uint8_t* f) -> std::string {
            int64_t v = 0;
            if (!WholeNumberIn(value, 0, 255, v)) return "a whole number from 0 to 255";
            *f = static_cast<uint8_t>(v);
            return {};
          },
          [&](TEnumLaserType* f) -> std::string {
            if (!EnumValue(value, devlaser::kLaserTypeCount, devlaser::LaserTypeName, *f))
              return EnumChoices(devlaser::kLaserTypeCount, devlaser::LaserTypeName);
            return {};
          },
          [&](TDataTransType* f) -> std::string {
            if (!EnumValue(value, devlaser::kDataTransTypeCount, devlaser::DataTransTypeName, *f))
              return EnumChoices(devlaser::kDataTransTypeCount, devlaser::DataTransTypeName);
            return {};
          },
      },
      field);
}

void ApplyObject(const json& object, const std::string& prefix, const std::string& source,
                 devlaser::TLaserParams& params, const refhost::TConfigReport& report) {
  for (const auto& [key, value] : object.items()) {
    const std::string path = prefix.empty() ? key : prefix + "." + key;
    if (IsParamRecord(path)) {
      if (value.is_object())
        ApplyObject(value, path, source, params, report);
      else
        report(nchost::msgtype::kWarning, source + ": " + path + " is " + refhost::JsonKindName(value) +
                                              ", expected an object of fields; ignored");
      continue;
    }
    const TParamField* field = FindParamField(path);
    if (field == nullptr) {
      report(nchost::msgtype::kWarning, source + ": unknown field " + path + "; ignored");
      continue;
    }
    const std::string expected = Apply(field->Get(params), value);
    if (!expected.empty())
      report(nchost::msgtype::kWarning, source + ": " + path + " is " + refhost::JsonKindName(value) + ", expected " +
                                            expected + "; the field keeps its value");
  }
}

nlohmann::ordered_json FieldToJson(const TFieldRef& field) {
  using out = nlohmann::ordered_json;
  return std::visit(TOverload{
                        [](bool* f) { return out(*f); },
                        [](int32_t* f) { return out(*f); },
                        [](double* f) { return out(*f); },
                        [](std::string* f) { return out(*f); },
                        [](uint8_t* f) { return out(static_cast<int>(*f)); },
                        [](TEnumLaserType* f) { return out(devlaser::LaserTypeName(*f)); },
                        [](TDataTransType* f) { return out(devlaser::DataTransTypeName(*f)); },
                    },
                    field);
}

}  // namespace

bool LoadParamsJsonText(const std::string& text, const std::string& sourceName, devlaser::TLaserParams& params,
                        const refhost::TConfigReport& report) {
  const refhost::TConfigReport say = report ? report : [](int, const std::string&) {};
  json document;
  std::string error;
  if (!refhost::ParseJsonText(text, document, error, /*allowComments=*/true)) {
    say(nchost::msgtype::kError, sourceName + ", " + error + "; the parameter record is refused");
    return false;
  }
  if (!document.is_object()) {
    say(nchost::msgtype::kError, sourceName + ": the parameter record must be a JSON object, not " +
                                     refhost::JsonKindName(document) + "; refused");
    return false;
  }
  // Values are applied to a copy, so that the caller's record changes only once the whole file has been read.
  devlaser::TLaserParams result = params;
  ApplyObject(document, "", sourceName, result, say);
  params = std::move(result);
  return true;
}

bool LoadParamsJson(const std::string& path, devlaser::TLaserParams& params, const refhost::TConfigReport& report) {
  std::string text, error;
  if (!refhost::ReadTextFile(path, text, error)) {
    if (report) report(nchost::msgtype::kError, path + ": cannot read the parameter file: " + error);
    return false;
  }
  return LoadParamsJsonText(text, path, params, report);
}

std::string ParamsToJson(const devlaser::TLaserParams& params) {
  devlaser::TLaserParams copy = params;  // the field table hands out pointers into a record it may write
  nlohmann::ordered_json document = nlohmann::ordered_json::object();  // in declaration order, as a person reads it
  for (const auto& field : ParamFields()) {
    std::string pointer = "/" + std::string(field.Path);
    std::replace(pointer.begin(), pointer.end(), '.', '/');
    document[nlohmann::ordered_json::json_pointer(pointer)] = FieldToJson(field.Get(copy));
  }
  return refhost::DumpJson(document);
}

}  // namespace laserctl
