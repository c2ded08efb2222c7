#include "refhost/SimEcatLaserSlave.h"

#include <algorithm>
#include <cstdio>

#include "host/HostDefs.h"

namespace refhost {

std::string TEcatInputWrite::Line() const {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "EcatInput: %u, 0x%04X", Index, Value);
  return buffer;
}

TSimEcatLaserSlave::TSimEcatLaserSlave(TSimEcatSlaveKind kind, std::chrono::milliseconds startTime)
    : FKind(kind), FStartTime(startTime) {}

void TSimEcatLaserSlave::SetPrintSink(std::shared_ptr<TMessageSink> sink, std::string category) {
  std::lock_guard lock(FMutex);
  FPrintSink = std::move(sink);
  FPrintCategory = std::move(category);
}

void TSimEcatLaserSlave::SetOutput(uint32_t index, uint32_t value) {
  std::lock_guard lock(FMutex);
  if (index < kImageSize) FOutputs[index] = value;
}

std::vector<TEcatInputWrite> TSimEcatLaserSlave::Writes() const {
  std::lock_guard lock(FMutex);
  return FWrites;
}

std::vector<TEcatInputWrite> TSimEcatLaserSlave::ControlWrites() const {
  std::vector<TEcatInputWrite> control;
  for (const auto& write : Writes())
    if (write.Index == kControlIndex) control.push_back(write);
  return control;
}

void TSimEcatLaserSlave::ClearWrites() {
  std::lock_guard lock(FMutex);
  FWrites.clear();
}

bool TSimEcatLaserSlave::WaitForWrite(const std::function<bool(const TEcatInputWrite&)>& matches,
                                      std::chrono::milliseconds timeout) const {
  return WaitForWrites(
      [&](const std::vector<TEcatInputWrite>& writes) { return std::any_of(writes.begin(), writes.end(), matches); },
      timeout);
}

bool TSimEcatLaserSlave::WaitForWrites(const std::function<bool(const std::vector<TEcatInputWrite>&)>& holds,
                                       std::chrono::milliseconds timeout) const {
  std::unique_lock lock(FMutex);
  return FWritten.wait_for(lock, timeout, [&] { return holds(FWrites); });
}

uint32_t TSimEcatLaserSlave::ReadOutput(uint32_t index) {
  std::lock_guard lock(FMutex);
  if (index >= kImageSize) return 0;
  if (FKind == TSimEcatSlaveKind::IpgLaser && index == kStatusIndex)
    return IpgStatusLocked(std::chrono::steady_clock::now());
  return FOutputs[index];
}

uint32_t TSimEcatLaserSlave::ReadInput(uint32_t index) {
  std::lock_guard lock(FMutex);
  return index < kImageSize ? FInputs[index] : 0;
}

void TSimEcatLaserSlave::WriteInput(uint32_t index, uint32_t value) {
  const auto now = std::chrono::steady_clock::now();
  {
    std::lock_guard lock(FMutex);
    if (index >= kImageSize) return;
    const uint32_t previous = FInputs[index];
    FInputs[index] = value;
    if (FKind == TSimEcatSlaveKind::IpgLaser && index == kControlIndex) ApplyIpgControlLocked(previous, value, now);
    TEcatInputWrite write{now, index, value};
    FWrites.push_back(write);
    // Printed under the lock so that printed lines keep the order of the write log.
    if (FPrintSink)
      FPrintSink->Write(TMessageEntry{TEntryKind::Log, nchost::msgtype::kInformation, FPrintCategory, write.Line(), 0});
  }
  FWritten.notify_all();
}

uint32_t TSimEcatLaserSlave::IpgStatusLocked(std::chrono::steady_clock::time_point now) const {
  const uint32_t control = FInputs[kControlIndex];
  uint32_t status = FOutputs[kStatusIndex];
  if (FStarting && now >= FStartedAt) {
    status |= kEnable | kStart;
    if (control & kEmission) status |= kEmission | kLaserOn;
  }
  if (control & kAiming) status |= kAiming;
  return status;
}

void TSimEcatLaserSlave::ApplyIpgControlLocked(uint32_t previous, uint32_t control,
                                               std::chrono::steady_clock::time_point now) {
  const bool startRaisedInOrder =
      (previous & kEnable) && !(previous & kStart) && (control & kEnable) && (control & kStart);
  if (startRaisedInOrder) {
    FStarting = true;
    FStartedAt = now + FStartTime;
  } else if (!(control & kEnable) || !(control & kStart)) {
    FStarting = false;
  }
  if ((control & kReset) && !(previous & kReset)) {
    FOutputs[kAlarmIndex] = 0;
    FOutputs[kStatusIndex] &= ~(kAlarmValid | kProgramInterrupted | kWarningValid);
  }
}

}  // namespace refhost
