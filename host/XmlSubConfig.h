// A node of the host's configuration tree: named, typed keys (the node's published properties, in declaration
// order) and named sub-nodes. The host persists whole trees as XML or JSON; a node class declares its keys with
// their defaults and so tells the persistence which keys exist and of which type they are.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "HostDefs.h"

namespace nchost {

using TConfigValue = std::variant<bool, int32_t, double, std::string>;

class NCHOST_API TXmlSubConfig {
 public:
  struct TProperty {
    std::string Name;
    TConfigValue Value;
    bool XmlAttribute = false;  // stored as an attribute of the node's element in the XML form
  };

  TXmlSubConfig(TXmlSubConfig* parent, std::string nodeName) : FParent(parent), FNodeName(std::move(nodeName)) {}
  virtual ~TXmlSubConfig() = default;
  TXmlSubConfig(const TXmlSubConfig&) = delete;
  TXmlSubConfig& operator=(const TXmlSubConfig&) = delete;

  const std::string& NodeName() const { return FNodeName; }
  TXmlSubConfig* Parent() const { return FParent; }

  // Keys --------------------------------------------------------------------------------------------------------
  const std::vector<TProperty>& Properties() const { return FProperties; }
  const TProperty* FindProperty(const std::string& name) const {
    for (const auto& p : FProperties)
      if (p.Name == name) return &p;
    return nullptr;
  }
  // Stores `value` under an existing key of the same type; false (and nothing stored) for an unknown key or a
  // value of another type.
  bool SetProperty(const std::string& name, const TConfigValue& value) {
    for (auto& p : FProperties)
      if (p.Name == name) {
        if (p.Value.index() != value.index()) return false;
        p.Value = value;
        return true;
      }
    return false;
  }

  bool GetBool(const std::string& name) const { return Get<bool>(name); }
  int32_t GetInteger(const std::string& name) const { return Get<int32_t>(name); }
  double GetDouble(const std::string& name) const { return Get<double>(name); }
  std::string GetString(const std::string& name) const { return Get<std::string>(name); }
  void SetBool(const std::string& name, bool v) { Set(name, TConfigValue(v)); }
  void SetInteger(const std::string& name, int32_t v) { Set(name, TConfigValue(v)); }
  void SetDouble(const std::string& name, double v) { Set(name, TConfigValue(v)); }
  void SetString(const std::string& name, const std::string& v) { Set(name, TConfigValue(v)); }

  // Sub-nodes ---------------------------------------------------------------------------------------------------
  template <class T>
  T* AddSubConfig(const std::string& name) {
    auto node = std::make_unique<T>(this, name);
    T* raw = node.get();
    FSubConfigs.push_back(std::move(node));
    return raw;
  }
  const std::vector<std::unique_ptr<TXmlSubConfig>>& SubConfigs() const { return FSubConfigs; }
  TXmlSubConfig* FindSubConfig(const std::string& name) const {
    for (const auto& n : FSubConfigs)
      if (n->NodeName() == name) return n.get();
    return nullptr;
  }
  // The sub-node that a loaded file's node `name` goes into; node classes whose sub-nodes are created on first
  // use override it to create them. Null: the file's node is unknown here.
  virtual TXmlSubConfig* SubConfigForLoad(const std::string& name) { return FindSubConfig(name); }

 protected:
  // Declares a key with its default (or resets an existing key to it).
  void Define(const std::string& name, TConfigValue def, bool xmlAttribute = false) {
    for (auto& p : FProperties)
      if (p.Name == name) {
        p.Value = std::move(def);
        return;
      }
    FProperties.push_back({name, std::move(def), xmlAttribute});
  }

 private:
  template <class V>
  V Get(const std::string& name) const {
    const TProperty* p = FindProperty(name);
    if (p == nullptr) return V{};
    if (const V* v = std::get_if<V>(&p->Value)) return *v;
    return V{};
  }
  void Set(const std::string& name, const TConfigValue& v) {
    if (!SetProperty(name, v)) Define(name, v);
  }

  TXmlSubConfig* FParent;
  std::string FNodeName;
  std::vector<TProperty> FProperties;
  std::vector<std::unique_ptr<TXmlSubConfig>> FSubConfigs;
};

}  // namespace nchost
