// The host's JSON object: written by information sources, read by drivers that load JSON descriptions.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "HostDefs.h"

namespace nchost {

class NCHOST_API ISuperObject {
 public:
  enum class TKind { Null, Bool, Int, Double, String, Array, Object };

  virtual ~ISuperObject() = default;

  // Writers (on an object): text, floating point, 64-bit integer, boolean.
  virtual void S(const std::string& key, const std::string& value) = 0;
  virtual void D(const std::string& key, double value) = 0;
  virtual void I(const std::string& key, int64_t value) = 0;
  virtual void B(const std::string& key, bool value) = 0;

  // Readers.
  virtual TKind Kind() const = 0;
  virtual bool Has(const std::string& key) const = 0;
  virtual std::vector<std::string> Keys() const = 0;
  // The member `key` of an object, or the element `index` of an array; null when absent.
  virtual std::shared_ptr<ISuperObject> Get(const std::string& key) const = 0;
  virtual std::shared_ptr<ISuperObject> At(size_t index) const = 0;
  virtual size_t Length() const = 0;
  virtual std::string AsString() const = 0;
  virtual double AsDouble() const = 0;
  virtual int64_t AsInteger() const = 0;
  virtual bool AsBoolean() const = 0;

  // Compact JSON text.
  virtual std::string AsJson() const = 0;
};

}  // namespace nchost
