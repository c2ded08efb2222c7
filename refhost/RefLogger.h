// The reference host's logger: four levels, a category and an enabled flag; lines go to the application's sink.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "host/Logger.h"
#include "refhost/MessageSink.h"

namespace refhost {

// Levels map to message types: Send is a trace (3), SendMsg information (2), SendWarning a warning (5),
// SendError an error (7). A disabled logger drops its lines. Safe to call from several threads.
class TRefLogger : public nchost::TCodeSiteLogger {
 public:
  TRefLogger(std::string category, std::shared_ptr<const TSinkSlot> sink, bool enabled = true)
      : FCategory(std::move(category)), FSink(std::move(sink)), FEnabled(enabled) {}

  void Send(const std::string& msg) override;
  void SendMsg(const std::string& msg) override;
  void SendWarning(const std::string& msg) override;
  void SendError(const std::string& msg) override;
  std::string Category() const override { return FCategory; }
  bool Enabled() const override { return FEnabled.load(std::memory_order_relaxed); }
  void SetEnabled(bool enabled) override { FEnabled.store(enabled, std::memory_order_relaxed); }

 private:
  void Write(int msgType, const std::string& msg);

  const std::string FCategory;
  const std::shared_ptr<const TSinkSlot> FSink;
  std::atomic<bool> FEnabled;
};

}  // namespace refhost
