#include "frame/HostServices.h"

#include <atomic>

namespace devlaser {
namespace {
std::atomic<nchost::TAppSystem*> GHost{nullptr};
}

nchost::TAppSystem* Host() { return GHost.load(std::memory_order_acquire); }
void SetHost(nchost::TAppSystem* app) { GHost.store(app, std::memory_order_release); }

void ShowMsg(const std::string& msg, int msgType, uint32_t color) {
  if (auto* app = Host()) app->ShowMsg(msg, msgType, color);
}

void LogMsg(const std::string& msg, int msgType, const std::string& category) {
  if (auto* app = Host()) app->LogMsg(msg, msgType, category);
}

void NameThread(const std::string& name) {
  if (auto* app = Host()) app->SetThreadName(name);
}

}  // namespace devlaser
