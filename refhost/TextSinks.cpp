#include "refhost/TextSinks.h"

#include <cerrno>
#include <cstring>

namespace refhost {

void TStderrSink::Write(const TMessageEntry& entry) {
  std::string line = FormatLine(entry, FFormat);
  line += '\n';
  std::lock_guard lock(FMutex);
  std::fwrite(line.data(), 1, line.size(), stderr);
}

std::unique_ptr<TFileSink> TFileSink::Open(const std::string& path, TLineFormat format, std::string& error) {
  std::FILE* file = std::fopen(path.c_str(), "ae");
  if (file == nullptr) {
    error = "cannot open log file '" + path + "': " + std::strerror(errno);
    return nullptr;
  }
  return std::unique_ptr<TFileSink>(new TFileSink(file, path, format));
}

TFileSink::~TFileSink() { std::fclose(FFile); }

void TFileSink::Write(const TMessageEntry& entry) {
  std::string line = FormatLine(entry, FFormat);
  line += '\n';
  std::lock_guard lock(FMutex);
  std::fwrite(line.data(), 1, line.size(), FFile);
  std::fflush(FFile);
}

}  // namespace refhost
