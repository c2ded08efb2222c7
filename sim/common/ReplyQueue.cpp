#include "sim/common/ReplyQueue.h"

#include <algorithm>
#include <cstdint>

namespace lasersim {

void TReplyQueue::Add(std::string bytes, const TReplyShape& shape, Clock::time_point now) {
  if (bytes.empty()) return;
  Clock::time_point due = now + shape.FirstByteDelay;
  if (!FItems.empty()) due = std::max(due, FItems.back().Due);
  FItems.push_back({due, std::move(bytes), 0, shape.PieceBytes, shape.PieceGap});
}

int TReplyQueue::NextDueMs(Clock::time_point now) const {
  if (FItems.empty()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(FItems.front().Due - now).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, 60000));
}

std::string TReplyQueue::TakeDue(Clock::time_point now) {
  std::string out;
  while (!FItems.empty() && FItems.front().Due <= now) {
    TItem& item = FItems.front();
    const size_t left = item.Bytes.size() - item.Sent;
    const size_t count = item.PieceBytes > 0 ? std::min(item.PieceBytes, left) : left;
    out.append(item.Bytes, item.Sent, count);
    item.Sent += count;
    if (item.Sent < item.Bytes.size()) {
      item.Due = now + item.PieceGap;
      break;
    }
    const bool inPieces = item.PieceBytes > 0;
    FItems.pop_front();
    // A last piece just went out: the next reply waits for its own turn rather than joining it.
    if (inPieces) break;
  }
  return out;
}

}  // namespace lasersim
