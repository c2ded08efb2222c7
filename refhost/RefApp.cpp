#include "refhost/RefApp.h"

#include <pthread.h>

#include <filesystem>
#include <system_error>
#include <vector>

#include "refhost/JsonObject.h"
#include "refhost/TextSinks.h"

namespace refhost {
namespace {

constexpr const char* kHostCategory = "Host";
constexpr size_t kMaxThreadNameBytes = 15;

std::string WithoutTrailingSeparators(std::string dir) {
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  if (dir == "/") dir.clear();  // callers append "/file"
  return dir;
}

// Cuts `name` to at most `limit` bytes without splitting a UTF-8 sequence.
std::string CutAtCharBoundary(const std::string& name, size_t limit) {
  if (name.size() <= limit) return name;
  size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) --end;
  return name.substr(0, end);
}

}  // namespace

TRefApp::TRefApp(std::shared_ptr<TMessageSink> sink)
    : FSink(std::make_shared<TSinkSlot>(sink ? std::move(sink) : std::make_shared<TStderrSink>())),
      FHostLogger(kHostCategory, FSink),
      FExeDir(ExecutableDir()) {}

std::string TRefApp::ExecutableDir() {
  std::error_code ec;
  auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  return WithoutTrailingSeparators(exe.parent_path().string());
}

void TRefApp::SetSink(std::shared_ptr<TMessageSink> sink) { FSink->Set(std::move(sink)); }

void TRefApp::SetLocale(std::shared_ptr<const nchost::TVqLocaleResource> locale) {
  {
    std::lock_guard lock(FMutex);
    FLocale = std::move(locale);
  }
  RunLocaleProcs();
}

void TRefApp::RunLocaleProcs() {
  // Run on a copy, without the lock, so that a procedure may register, unregister or read the locale.
  std::vector<std::function<void()>> procs;
  {
    std::lock_guard lock(FMutex);
    for (const auto& [handle, proc] : FLocaleProcs) procs.push_back(proc);
  }
  for (const auto& proc : procs) {
    try {
      proc();
    } catch (const std::exception& e) {
      LogMsg(std::string("a locale procedure failed: ") + e.what(), nchost::msgtype::kError, kHostCategory);
    } catch (...) {
      LogMsg("a locale procedure failed", nchost::msgtype::kError, kHostCategory);
    }
  }
}

size_t TRefApp::LocaleProcCount() const {
  std::lock_guard lock(FMutex);
  return FLocaleProcs.size();
}

void TRefApp::SetExeDir(std::string dir) {
  std::lock_guard lock(FMutex);
  FExeDir = WithoutTrailingSeparators(std::move(dir));
}

void TRefApp::SetTrustCachedLaserStates(bool trust) {
  std::lock_guard lock(FMutex);
  FTrustCachedLaserStates = trust;
}

void TRefApp::SetTransports(std::shared_ptr<ITransportFactory> transports) {
  std::lock_guard lock(FMutex);
  FTransports = std::move(transports);
}

void TRefApp::SetEcatSystem(std::shared_ptr<nchost::IEcatSystem> ecat) {
  std::lock_guard lock(FMutex);
  FEcat = std::move(ecat);
}

void TRefApp::ShowMsg(const std::string& msg, int msgType, uint32_t color) {
  FSink->Write(TMessageEntry{TEntryKind::Message, msgType, {}, msg, color});
}

void TRefApp::LogMsg(const std::string& msg, int msgType, const std::string& category) {
  FSink->Write(TMessageEntry{TEntryKind::Log, msgType, category, msg, 0});
}

int TRefApp::RegisterLocaleProc(std::function<void()> proc) {
  std::lock_guard lock(FMutex);
  int handle = FNextLocaleHandle++;
  FLocaleProcs.emplace(handle, std::move(proc));
  return handle;
}

void TRefApp::UnregisterLocaleProc(int handle) {
  std::lock_guard lock(FMutex);
  FLocaleProcs.erase(handle);
}

const nchost::TVqLocaleResource* TRefApp::Locale() const {
  std::lock_guard lock(FMutex);
  return FLocale.get();
}

std::string TRefApp::ExeDir() const {
  std::lock_guard lock(FMutex);
  return FExeDir;
}

bool TRefApp::TrustCachedLaserStates() const {
  std::lock_guard lock(FMutex);
  return FTrustCachedLaserStates;
}

void TRefApp::SetThreadName(const std::string& name) {
  pthread_setname_np(pthread_self(), CutAtCharBoundary(name, kMaxThreadNameBytes).c_str());
}

std::unique_ptr<nchost::TCodeSiteLogger> TRefApp::CreateLogger(const std::string& category) {
  return std::make_unique<TRefLogger>(category, FSink);
}

uint8_t TRefApp::DeviceToPort(int32_t index, int32_t kind) {
  (void)kind;  // every kind counts its devices the same way
  if (index < 0 || index > 254) return 0;
  return static_cast<uint8_t>(index + 1);
}

std::string TRefApp::PortToStr(uint8_t port) { return std::to_string(port); }

std::shared_ptr<ITransportFactory> TRefApp::Transports(const char* client) {
  std::shared_ptr<ITransportFactory> transports;
  {
    std::lock_guard lock(FMutex);
    transports = FTransports;
  }
  if (!transports)
    LogMsg(std::string("no ") + client + " client: this host has no communication transports",
           nchost::msgtype::kWarning, kHostCategory);
  return transports;
}

std::unique_ptr<nchost::TCommCtrl> TRefApp::CreateCommCtrl() {
  auto transports = Transports("serial port");
  return transports ? transports->CreateCommCtrl() : nullptr;
}

std::unique_ptr<nchost::TVqTcpClient> TRefApp::CreateTcpClient() {
  auto transports = Transports("TCP");
  return transports ? transports->CreateTcpClient() : nullptr;
}

std::unique_ptr<nchost::TUDPClient> TRefApp::CreateUdpClient() {
  auto transports = Transports("UDP");
  return transports ? transports->CreateUdpClient() : nullptr;
}

std::unique_ptr<nchost::TIcmpClient> TRefApp::CreateIcmpClient() {
  auto transports = Transports("ICMP");
  return transports ? transports->CreateIcmpClient() : nullptr;
}

std::shared_ptr<nchost::ISuperObject> TRefApp::CreateJsonObject() { return refhost::CreateJsonObject(); }

std::shared_ptr<nchost::ISuperObject> TRefApp::ParseJson(const std::string& text, std::string& error) {
  return refhost::ParseJson(text, error);
}

nchost::IEcatSystem* TRefApp::EcatSystem() {
  std::lock_guard lock(FMutex);
  return FEcat.get();
}

}  // namespace refhost
