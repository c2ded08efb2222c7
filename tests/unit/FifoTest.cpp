// The block queue: order across blocks, when a block is freed, the enumerator's last-slot quirk, ownership of
// discarded objects, and one producer against one consumer.
#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include "frame/Fifo.h"

namespace devlaser {
namespace {

TEST(FifoTest, AnEmptiedQueueLeavesTheOutArgumentAlone) {
  TFifo<intptr_t> fifo;
  intptr_t item = 0;
  fifo.Push(7);
  ASSERT_TRUE(fifo.Peek(item));
  ASSERT_TRUE(fifo.Dequeue(item));
  EXPECT_EQ(item, 7);
  // The last node stays as the sentinel, yet the queue reads empty.
  EXPECT_TRUE(fifo.Empty());
  item = 42;
  EXPECT_FALSE(fifo.Pop(item));
  EXPECT_FALSE(fifo.Peek(item));
  EXPECT_EQ(item, 42);
}

TEST(FifoTest, SixtyFiveItemsComeOutInOrderAndTheFirstBlockGoesAtTheLastPop) {
  TFifo<intptr_t> fifo;
  for (intptr_t i = 1; i <= 65; ++i) fifo.Enqueue(i);
  EXPECT_EQ(fifo.AllocatedBlocks(), 2);
  intptr_t item = 0;
  for (intptr_t i = 1; i <= 64; ++i) {
    ASSERT_TRUE(fifo.Pop(item));
    EXPECT_EQ(item, i);
  }
  // The 64th item's node (slot 63) is the sentinel now: its block is still referenced.
  EXPECT_EQ(fifo.AllocatedBlocks(), 2);
  ASSERT_TRUE(fifo.Pop(item));
  EXPECT_EQ(item, 65);
  EXPECT_EQ(fifo.AllocatedBlocks(), 1);
  EXPECT_TRUE(fifo.Empty());
}

TEST(FifoTest, EnumerationReadsTheLastSlotOfEveryBlockAsNull) {
  TFifo<intptr_t> fifo;
  for (intptr_t i = 1; i <= 130; ++i) fifo.Push(i);
  std::vector<intptr_t> seen;
  auto e = fifo.GetEnumerator();
  while (e.MoveNext()) seen.push_back(e.Current());
  ASSERT_EQ(seen.size(), 130u);
  for (size_t i = 0; i < seen.size(); ++i) {
    const bool lastSlot = i % 64 == 63;
    EXPECT_EQ(seen[i], lastSlot ? 0 : static_cast<intptr_t>(i + 1)) << "item " << i + 1;
  }
  // Pop still returns the item of slot 63.
  intptr_t item = 0;
  for (int i = 0; i < 64; ++i) fifo.Pop(item);
  EXPECT_EQ(item, 64);
}

struct TCounted {
  explicit TCounted(int& alive) : Alive(alive) { ++Alive; }
  ~TCounted() { --Alive; }
  int& Alive;
};

TEST(FifoTest, AnOwningQueueFreesWhatItDiscardsWhateverTheClearFlag) {
  for (bool owns : {true, false}) {
    SCOPED_TRACE(owns ? "owning" : "not owning");
    int alive = 0;
    std::vector<TCounted*> made;
    {
      TObjectFifo<TCounted> fifo(owns);
      auto push = [&](int count) {
        for (int i = 0; i < count; ++i) {
          made.push_back(new TCounted(alive));
          fifo.Push(made.back());
        }
      };
      push(70);
      fifo.Clear(false);
      EXPECT_TRUE(fifo.Empty());
      EXPECT_EQ(alive, owns ? 0 : 70);
      push(3);
      fifo.Clear(true);
      EXPECT_EQ(alive, owns ? 0 : 73);
      push(1);  // left queued: the destructor discards it
    }
    EXPECT_EQ(alive, owns ? 0 : 74);
    if (!owns)
      for (auto* object : made) delete object;
  }
}

TEST(FifoTest, OneProducerAndOneConsumerPassEveryItemInOrder) {
  constexpr intptr_t kItems = 200000;
  TFifo<intptr_t> fifo;
  std::thread producer([&] {
    for (intptr_t i = 1; i <= kItems; ++i) fifo.Push(i);
  });
  intptr_t expected = 1;
  bool inOrder = true;
  while (expected <= kItems) {
    intptr_t item = 0;
    if (fifo.Pop(item)) {
      inOrder = inOrder && item == expected;
      ++expected;
    } else {
      std::this_thread::yield();
    }
  }
  producer.join();
  EXPECT_TRUE(inOrder);
  EXPECT_TRUE(fifo.Empty());
  EXPECT_EQ(fifo.AllocatedBlocks(), 1);
}

}  // namespace
}  // namespace devlaser
