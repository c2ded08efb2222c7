#include "refhost/JsonObject.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <variant>
#include <vector>

#include "refhost/JsonParse.h"

namespace refhost {
namespace {

using TStep = std::variant<std::string, size_t>;  // an object member or an array element

class TJsonObject : public nchost::ISuperObject {
 public:
  explicit TJsonObject(std::shared_ptr<TJson> root, std::vector<TStep> path = {})
      : FRoot(std::move(root)), FPath(std::move(path)) {}

  void S(const std::string& key, const std::string& value) override { Write(key, TJson(value)); }
  void D(const std::string& key, double value) override { Write(key, TJson(value)); }
  void I(const std::string& key, int64_t value) override { Write(key, TJson(value)); }
  void B(const std::string& key, bool value) override { Write(key, TJson(value)); }

  TKind Kind() const override {
    const TJson* node = Node();
    if (node == nullptr) return TKind::Null;
    switch (node->type()) {
      case TJson::value_t::boolean:
        return TKind::Bool;
      case TJson::value_t::number_integer:
      case TJson::value_t::number_unsigned:
        return TKind::Int;
      case TJson::value_t::number_float:
        return TKind::Double;
      case TJson::value_t::string:
        return TKind::String;
      case TJson::value_t::array:
        return TKind::Array;
      case TJson::value_t::object:
        return TKind::Object;
      default:
        return TKind::Null;
    }
  }

  bool Has(const std::string& key) const override {
    const TJson* node = Node();
    return node != nullptr && node->is_object() && node->contains(key);
  }

  std::vector<std::string> Keys() const override {
    std::vector<std::string> keys;
    const TJson* node = Node();
    if (node != nullptr && node->is_object())
      for (const auto& item : node->items()) keys.push_back(item.key());
    return keys;
  }

  std::shared_ptr<nchost::ISuperObject> Get(const std::string& key) const override {
    if (!Has(key)) return nullptr;
    return Child(TStep(key));
  }

  std::shared_ptr<nchost::ISuperObject> At(size_t index) const override {
    const TJson* node = Node();
    if (node == nullptr || !node->is_array() || index >= node->size()) return nullptr;
    return Child(TStep(index));
  }

  size_t Length() const override {
    const TJson* node = Node();
    return node != nullptr && (node->is_array() || node->is_object()) ? node->size() : 0;
  }

  std::string AsString() const override {
    const TJson* node = Node();
    if (node == nullptr || node->is_null()) return {};
    if (node->is_string()) return node->get_ref<const std::string&>();
    return DumpJson(*node);
  }

  double AsDouble() const override {
    const TJson* node = Node();
    if (node == nullptr) return 0.0;
    if (node->is_number()) return node->get<double>();
    if (node->is_boolean()) return node->get<bool>() ? 1.0 : 0.0;
    if (node->is_string()) {
      const auto& s = node->get_ref<const std::string&>();
      double v = 0.0;
      auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
      return ec == std::errc() && end == s.data() + s.size() ? v : 0.0;
    }
    return 0.0;
  }

  int64_t AsInteger() const override {
    const TJson* node = Node();
    if (node == nullptr) return 0;
    if (node->is_number_integer() && !node->is_number_unsigned()) return node->get<int64_t>();
    if (node->is_number_unsigned()) {
      uint64_t v = node->get<uint64_t>();
      return v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) ? std::numeric_limits<int64_t>::max()
                                                                            : static_cast<int64_t>(v);
    }
    if (node->is_number_float()) return Saturate(node->get<double>());
    if (node->is_boolean()) return node->get<bool>() ? 1 : 0;
    if (node->is_string()) {
      const auto& s = node->get_ref<const std::string&>();
      int64_t v = 0;
      auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
      if (ec == std::errc() && end == s.data() + s.size()) return v;
      return Saturate(AsDouble());
    }
    return 0;
  }

  bool AsBoolean() const override {
    const TJson* node = Node();
    if (node == nullptr) return false;
    if (node->is_boolean()) return node->get<bool>();
    if (node->is_number()) return node->get<double>() != 0.0;
    if (node->is_string()) {
      const auto& s = node->get_ref<const std::string&>();
      return s == "true" || s == "True" || s == "TRUE" || s == "1";
    }
    return false;
  }

  std::string AsJson() const override {
    const TJson* node = Node();
    return node == nullptr ? "null" : DumpJson(*node);
  }

 private:
  // Truncates towards zero and clamps to the 64-bit range; NaN reads as 0.
  static int64_t Saturate(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 9.2233720368547758e18) return std::numeric_limits<int64_t>::max();
    if (v <= -9.2233720368547758e18) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(v);
  }

  std::shared_ptr<nchost::ISuperObject> Child(TStep step) const {
    std::vector<TStep> path = FPath;
    path.push_back(std::move(step));
    return std::make_shared<TJsonObject>(FRoot, std::move(path));
  }

  // The node at this view's path, or null when the path no longer leads anywhere.
  TJson* Node() const {
    TJson* node = FRoot.get();
    for (const auto& step : FPath) {
      if (const auto* key = std::get_if<std::string>(&step)) {
        if (!node->is_object()) return nullptr;
        auto it = node->find(*key);
        if (it == node->end()) return nullptr;
        node = &*it;
      } else {
        size_t index = std::get<size_t>(step);
        if (!node->is_array() || index >= node->size()) return nullptr;
        node = &(*node)[index];
      }
    }
    return node;
  }

  // Writers turn a null node into an object; on any other kind of value, or a vanished node, they do nothing.
  void Write(const std::string& key, TJson value) {
    TJson* node = Node();
    if (node == nullptr) return;
    if (node->is_null()) *node = TJson::object();
    if (node->is_object()) (*node)[key] = std::move(value);
  }

  std::shared_ptr<TJson> FRoot;
  std::vector<TStep> FPath;
};

}  // namespace

std::shared_ptr<nchost::ISuperObject> CreateJsonObject() {
  return std::make_shared<TJsonObject>(std::make_shared<TJson>(TJson::object()));
}

std::shared_ptr<nchost::ISuperObject> ParseJson(const std::string& text, std::string& error) {
  auto document = std::make_shared<TJson>();
  if (!ParseJsonText(text, *document, error)) return nullptr;
  return std::make_shared<TJsonObject>(std::move(document));
}

}  // namespace refhost
