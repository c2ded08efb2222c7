// A folder of a test's own under the temporary folder, removed with everything in it.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace testsupport {

class TScratchDir {
 public:
  TScratchDir() : FPath((std::filesystem::temp_directory_path() / "devlaser-test-XXXXXX").string()) {
    if (::mkdtemp(FPath.data()) == nullptr) FPath.clear();
  }
  ~TScratchDir() {
    std::error_code ignored;
    if (!FPath.empty()) std::filesystem::remove_all(FPath, ignored);
  }
  TScratchDir(const TScratchDir&) = delete;
  TScratchDir& operator=(const TScratchDir&) = delete;

  const std::string& Path() const { return FPath; }
  std::string operator/(const std::string& name) const { return FPath + "/" + name; }
  // Writes `content` to the file `name` in the folder; returns its path.
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(*this / name, std::ios::binary) << content;
    return *this / name;
  }

 private:
  std::string FPath;
};

}  // namespace testsupport
