// Replays a fuzz target's corpus without libFuzzer: every regular file of the folders (or the files) named on the
// command line goes once through LLVMFuzzerTestOneInput. A crash or a sanitizer report fails the test.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int Replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", file.c_str());
    return 1;
  }
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // A copy of exactly the input's size, so that a read past its end is an AddressSanitizer report.
  std::vector<uint8_t> exact(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(exact.empty() ? nullptr : exact.data(), exact.size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path arg(argv[i]);
    if (std::filesystem::is_directory(arg)) {
      for (const auto& entry : std::filesystem::directory_iterator(arg))
        if (entry.is_regular_file()) files.push_back(entry.path());
    } else {
      files.push_back(arg);
    }
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    std::fprintf(stderr, "no corpus input given\n");
    return 1;
  }
  int failures = 0;
  for (const auto& file : files) failures += Replay(file);
  std::printf("replayed %zu inputs\n", files.size());
  return failures == 0 ? 0 : 1;
}
