// The reply queue of the simulators' slow and choppy lines: what goes out when, in which pieces, and in which order.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "sim/common/ReplyQueue.h"

namespace lasersim {
namespace {

using namespace std::chrono_literals;
using Clock = TReplyQueue::Clock;

struct TStep {
  std::chrono::milliseconds At;  // since the start
  std::string Expected;          // what TakeDue gives then
};

struct TCase {
  const char* Name;
  TReplyShape Shape;
  std::vector<std::string> Replies;  // added at the start, in order
  std::vector<TStep> Steps;
};

class ReplyQueueCases : public ::testing::TestWithParam<TCase> {};

TEST_P(ReplyQueueCases, SendsWhatIsDueInOrder) {
  const TCase& c = GetParam();
  const auto start = Clock::now();
  TReplyQueue queue;
  for (const auto& reply : c.Replies) queue.Add(reply, c.Shape, start);
  for (const auto& step : c.Steps) EXPECT_EQ(queue.TakeDue(start + step.At), step.Expected) << step.At.count() << " ms";
  EXPECT_TRUE(queue.Empty());
  EXPECT_EQ(queue.NextDueMs(start), -1);
}

TReplyShape Shape(std::chrono::milliseconds delay, size_t piece, std::chrono::milliseconds gap = 1ms) {
  TReplyShape shape;
  shape.FirstByteDelay = delay;
  shape.PieceBytes = piece;
  shape.PieceGap = gap;
  return shape;
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ReplyQueueCases,
    ::testing::Values(
        TCase{"Unshaped", {}, {"STA: 4\r", "SDC: 40.0\r"}, {{0ms, "STA: 4\rSDC: 40.0\r"}}},
        TCase{"HeldBack", Shape(250ms, 0), {"STA: 4\r"}, {{0ms, ""}, {249ms, ""}, {250ms, "STA: 4\r"}}},
        // Pieces leave one per call, a gap apart; the next reply follows the last piece of the one before in a
        // write of its own.
        TCase{"BytePieces", Shape(0ms, 1, 5ms), {"AB", "C"}, {{0ms, "A"}, {1ms, ""}, {5ms, "B"}, {5ms, "C"}}},
        TCase{"LateAndInPieces",
              Shape(100ms, 2, 10ms),
              {"abcde"},
              {{99ms, ""}, {100ms, "ab"}, {110ms, "cd"}, {120ms, "e"}}},
        TCase{"EmptyRepliesAreNotQueued", Shape(10ms, 0), {"", ""}, {}}),
    [](const ::testing::TestParamInfo<TCase>& param) { return std::string(param.param.Name); });

TEST(ReplyQueue, AReplyNeverOvertakesAnEarlierOne) {
  const auto start = Clock::now();
  TReplyQueue queue;
  queue.Add("slow\r", Shape(200ms, 0), start);
  queue.Add("quick\r", Shape(0ms, 0), start + 10ms);
  EXPECT_EQ(queue.NextDueMs(start), 200);
  EXPECT_EQ(queue.TakeDue(start + 50ms), "");
  EXPECT_EQ(queue.TakeDue(start + 200ms), "slow\rquick\r");
}

}  // namespace
}  // namespace lasersim
