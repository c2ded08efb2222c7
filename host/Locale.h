// The host's locale resource: the texts of the user's language, by section and key.
#pragma once

#include <string>

#include "HostDefs.h"

namespace nchost {

class NCHOST_API TVqLocaleResource {
 public:
  virtual ~TVqLocaleResource() = default;
  virtual bool IsLoaded() const = 0;
  // Replaces `value` with the text of `key` in `section`; leaves it unchanged when the key is missing.
  virtual void ReadStr(const std::string& section, const std::string& key, std::string& value) const = 0;
};

}  // namespace nchost
