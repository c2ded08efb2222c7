// Common definitions shared by every host interface header.
#pragma once

#include <cstdint>
#include <string_view>

// Host interface classes keep default visibility so that a host and a plug-in built with hidden symbols still
// agree on their type information.
#define NCHOST_API __attribute__((visibility("default")))

namespace nchost {

// Version of the host interfaces. A host refuses a plug-in that reports another version: the class layouts in
// these headers are the binary contract between them.
inline constexpr int32_t kHostInterfaceVersion = 2;

// Message types of the host's message and log services.
namespace msgtype {
inline constexpr int kInformation = 2;
inline constexpr int kTrace = 3;
inline constexpr int kWarning = 5;
inline constexpr int kCommLog = 6;
inline constexpr int kError = 7;
inline constexpr int kLaserLog = 8;
}  // namespace msgtype

// Base of the host's reference-counted interfaces: lets an object be asked for another interface by identifier.
class NCHOST_API IInterface {
 public:
  virtual ~IInterface() = default;
  // Returns a pointer to the interface with identifier `iid`, or null when the object does not offer it.
  virtual void* QueryInterface(std::string_view iid) {
    (void)iid;
    return nullptr;
  }
};

}  // namespace nchost
