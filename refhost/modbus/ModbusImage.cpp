#include "refhost/modbus/ModbusImage.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace refhost {

TModbusImage::TModbusImage(TModbusMap map) : FMap(std::move(map)), FSlots(FMap.Points.size()) {
  for (auto& byRole : FIndex) byRole.fill(-1);
  for (size_t i = 0; i < FMap.Points.size(); ++i) {
    const TModbusPoint& p = FMap.Points[i];
    FIndex[static_cast<size_t>(p.Role)][p.Port] = static_cast<int>(i);
  }
}

double TModbusImage::ToValue(size_t point, uint16_t raw) const {
  const TModbusPoint& p = FMap.Points[point];
  if (IsBitTable(p.Table)) return raw != 0 ? 1.0 : 0.0;
  return raw / p.Scale;
}

double TModbusImage::Read(TIORole role, uint8_t port) const {
  const int point = Find(role, port);
  if (point < 0) return 0.0;
  uint16_t raw = 0;
  {
    std::lock_guard lock(FMutex);
    raw = FSlots[static_cast<size_t>(point)].Raw;
  }
  return ToValue(static_cast<size_t>(point), raw);
}

TModbusImage::TWriteOutcome TModbusImage::Write(TIORole role, uint8_t port, double value) {
  TWriteOutcome outcome;
  const int point = Find(role, port);
  if (point < 0) return outcome;
  const TModbusPoint& p = FMap.Points[static_cast<size_t>(point)];
  if (IsBitTable(p.Table)) {
    outcome.Raw = value != 0.0 ? 1 : 0;
  } else {
    const double scaled = std::isfinite(value) ? std::round(value * p.Scale) : 0.0;
    const double limited = std::clamp(scaled, 0.0, 65535.0);
    outcome.Clamped = limited != scaled || !std::isfinite(value);
    outcome.Raw = static_cast<uint16_t>(limited);
  }
  {
    std::lock_guard lock(FMutex);
    if (FClosed) {
      outcome.Result = TImageWrite::Closed;
      return outcome;
    }
    if (!FConnected) {
      outcome.Result = TImageWrite::Disconnected;
      outcome.DroppedSinceLoss = ++FDropped;
      return outcome;
    }
    TSlot& slot = FSlots[static_cast<size_t>(point)];
    slot.Raw = outcome.Raw;
    slot.Dirty = true;
    FAnyDirty = true;
  }
  outcome.Result = TImageWrite::Queued;
  return outcome;
}

TImageWrite TModbusImage::AllOutputsOff() {
  {
    std::lock_guard lock(FMutex);
    if (FClosed) return TImageWrite::Closed;
    if (!FConnected) {
      ++FDropped;
      return TImageWrite::Disconnected;
    }
    for (size_t i = 0; i < FSlots.size(); ++i) {
      if (FMap.Points[i].Role != TIORole::Output) continue;
      FSlots[i].Raw = 0;
      FSlots[i].Dirty = true;
      FAnyDirty = true;
    }
  }
  return TImageWrite::Queued;
}

std::vector<TPendingWrite> TModbusImage::TakePendingWrites() {
  std::vector<TPendingWrite> writes;
  std::lock_guard lock(FMutex);
  if (!FAnyDirty) return writes;
  for (size_t i = 0; i < FSlots.size(); ++i) {
    if (!FSlots[i].Dirty) continue;
    FSlots[i].Dirty = false;
    writes.push_back({i, FSlots[i].Raw});
  }
  FAnyDirty = false;
  return writes;
}

void TModbusImage::WriteDone(const TPendingWrite& write, bool accepted) {
  std::lock_guard lock(FMutex);
  TSlot& slot = FSlots[write.Point];
  if (accepted)
    slot.Sent = write.Raw;
  else if (!slot.Dirty && slot.Raw == write.Raw)
    slot.Raw = slot.Sent;
}

void TModbusImage::StoreRead(size_t point, uint16_t raw) {
  std::lock_guard lock(FMutex);
  if (FConnected) FSlots[point].Raw = raw;
}

std::vector<TPendingWrite> TModbusImage::SafeStateWrites() const {
  std::vector<TPendingWrite> writes;
  for (size_t i = 0; i < FMap.Points.size(); ++i) {
    const TIORole role = FMap.Points[i].Role;
    if (role == TIORole::Output || role == TIORole::PwmEnable || role == TIORole::DA) writes.push_back({i, 0});
  }
  return writes;
}

int TModbusImage::LinkUp() {
  std::lock_guard lock(FMutex);
  FConnected = true;
  return std::exchange(FDropped, 0);
}

void TModbusImage::LinkDown() {
  std::lock_guard lock(FMutex);
  FConnected = false;
  FAnyDirty = false;
  for (auto& slot : FSlots) slot = TSlot{};
}

bool TModbusImage::Connected() const {
  std::lock_guard lock(FMutex);
  return FConnected;
}

void TModbusImage::Close() {
  std::lock_guard lock(FMutex);
  FClosed = true;
}

}  // namespace refhost
