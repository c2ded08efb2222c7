// The host's information-source base: its status pages ask a source to fill a JSON object and show its keys.
#pragma once

#include <string>

#include "HostDefs.h"
#include "SuperObject.h"

namespace nchost {

class NCHOST_API TVkInfoSource {
 public:
  virtual ~TVkInfoSource() = default;
  virtual void ReadAllData(ISuperObject& obj) = 0;
  // Reads one key; by default the whole set, from which the page picks the key.
  virtual void ReadData(ISuperObject& obj, const std::string& key) {
    (void)key;
    ReadAllData(obj);
  }
  virtual void ReadDataItem(ISuperObject& obj, const std::string& item) {
    (void)item;
    ReadAllData(obj);
  }
  virtual void ReadSchema(ISuperObject& obj) { (void)obj; }
};

}  // namespace nchost
