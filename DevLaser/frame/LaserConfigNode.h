// The base of every laser configuration node: typed access to the node's keys, which live in the host's
// configuration storage so that persistence sees every key.
//
// Each node class lists its keys once, as rows of a key-list macro `KEYS(K)` with `K(Type, Name, Default)`.
// DEVLASER_CONFIG_ACCESSORS expands the list into typed accessors (`Type Name() const`, `void SetName(Type)`),
// DEVLASER_CONFIG_DEFINES into the declarations with their defaults, in the listed order (which is the order in
// which the host saves them).
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

#include "host/XmlSubConfig.h"

namespace devlaser {

class TLaserConfigNode : public nchost::TXmlSubConfig {
 public:
  TLaserConfigNode(nchost::TXmlSubConfig* parent, std::string nodeName)
      : nchost::TXmlSubConfig(parent, std::move(nodeName)) {}

  // Puts every key of the node back to its default.
  virtual void Initialize() {}

 protected:
  template <class T>
  T Value(const char* name) const {
    if constexpr (std::is_same_v<T, bool>)
      return GetBool(name);
    else if constexpr (std::is_same_v<T, int32_t>)
      return GetInteger(name);
    else if constexpr (std::is_same_v<T, double>)
      return GetDouble(name);
    else {
      static_assert(std::is_same_v<T, std::string>, "configuration keys are bool, int32, double or string");
      return GetString(name);
    }
  }

  template <class T>
  void SetValue(const char* name, const T& value) {
    SetProperty(name, nchost::TConfigValue(value));
  }

  template <class T>
  void DefineKey(const char* name, const T& def, bool xmlAttribute = false) {
    Define(name, nchost::TConfigValue(def), xmlAttribute);
  }
};

}  // namespace devlaser

#define DEVLASER_CONFIG_ACCESSOR(Type, Name, Default) \
  Type Name() const { return Value<Type>(#Name); }    \
  void Set##Name(const Type& value) { SetValue<Type>(#Name, value); }
#define DEVLASER_CONFIG_DEFINE(Type, Name, Default) DefineKey<Type>(#Name, Default);

#define DEVLASER_CONFIG_ACCESSORS(KEYS) KEYS(DEVLASER_CONFIG_ACCESSOR)
#define DEVLASER_CONFIG_DEFINES(KEYS) KEYS(DEVLASER_CONFIG_DEFINE)
