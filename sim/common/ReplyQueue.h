// How a simulated laser's replies travel when a test makes the line slow or choppy: each reply held back before its
// first byte, and sent in pieces of a few bytes some time apart, as a laser whose controller answers late or a
// line that delivers byte by byte would. A TReplyQueue holds one stream's replies until they are due.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>

namespace lasersim {

struct TReplyShape {
  std::chrono::milliseconds FirstByteDelay{0};  // every reply starts this long after its command arrived
  size_t PieceBytes = 0;                        // > 0: replies go out in pieces of this many bytes ...
  std::chrono::milliseconds PieceGap{1};        // ... this far apart
  bool Shaped() const { return FirstByteDelay.count() > 0 || PieceBytes > 0; }
};

// The replies of one stream waiting to go out, in order: a reply never overtakes an earlier one, and nothing is
// sent into the middle of a reply. Used by the stream's serving thread only.
class TReplyQueue {
 public:
  using Clock = std::chrono::steady_clock;

  void Add(std::string bytes, const TReplyShape& shape, Clock::time_point now);
  bool Empty() const { return FItems.empty(); }
  void Clear() { FItems.clear(); }
  // Milliseconds until the next piece is due (0 when due now), -1 when nothing waits: a poll() time-out.
  int NextDueMs(Clock::time_point now) const;
  // The bytes due at `now`: whole replies, or the next piece of one. Empty when nothing is due.
  std::string TakeDue(Clock::time_point now);

 private:
  struct TItem {
    Clock::time_point Due;
    std::string Bytes;
    size_t Sent = 0;
    size_t PieceBytes = 0;
    std::chrono::milliseconds PieceGap{0};
  };
  std::deque<TItem> FItems;
};

}  // namespace lasersim
