// The host's device base. Every device the host drives derives from it.
#pragma once

#include <cstdint>
#include <string>

#include "HostDefs.h"

namespace nchost {

// Construction and destruction happen in two steps: the owner calls AfterConstruction once the object is fully
// built and BeforeDestruction before it frees it, so that both can use virtual operations.
class NCHOST_API TNcDevice {
 public:
  virtual ~TNcDevice() = default;
  TNcDevice() = default;
  TNcDevice(const TNcDevice&) = delete;
  TNcDevice& operator=(const TNcDevice&) = delete;

  virtual std::string GetDeviceDesc() { return {}; }
  virtual bool GetIsBusy() { return false; }
  // A command the host's service pages give by name (with an optional value); devices act on the names they know
  // and ignore the rest.
  virtual void ExecCmd(const std::string& name, double value) {
    (void)name;
    (void)value;
  }
  virtual void Stop(int32_t mode) { (void)mode; }
  virtual void AfterConstruction() {}
  virtual void BeforeDestruction() {}
};

}  // namespace nchost
