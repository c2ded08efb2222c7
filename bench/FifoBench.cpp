// One producer thread and one consumer thread passing integers through a queue: the library's two-lock block queue
// against std::mutex + std::deque and a lock-free single-producer single-consumer queue, in one run so that the
// ratios compare like with like. Run: build/release/bench/devlaser_bench --benchmark_filter=Fifo
#include <benchmark/benchmark.h>

#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include "frame/Fifo.h"

#if __has_include(<readerwriterqueue/readerwriterqueue.h>)
#include <readerwriterqueue/readerwriterqueue.h>
#define DEVLASER_HAVE_RWQ 1
#endif

namespace {

constexpr intptr_t kItemsPerRun = 1 << 20;
constexpr uint32_t kSpinsBeforeYield = 256;

struct TMutexDeque {
  std::mutex Lock;
  std::deque<intptr_t> Items;
  void Push(intptr_t v) {
    std::lock_guard guard(Lock);
    Items.push_back(v);
  }
  bool Pop(intptr_t& v) {
    std::lock_guard guard(Lock);
    if (Items.empty()) return false;
    v = Items.front();
    Items.pop_front();
    return true;
  }
};

struct TBlockFifo {
  devlaser::TFifo<intptr_t> Fifo;
  void Push(intptr_t v) { Fifo.Push(v); }
  bool Pop(intptr_t& v) { return Fifo.Pop(v); }
};

#ifdef DEVLASER_HAVE_RWQ
struct TLockFree {
  moodycamel::ReaderWriterQueue<intptr_t> Queue{1024};
  void Push(intptr_t v) { Queue.enqueue(v); }
  bool Pop(intptr_t& v) { return Queue.try_dequeue(v); }
};
#endif

// Items per second through the queue, producer and consumer on their own threads. The consumer checks the order,
// so that a queue that lost or reordered an item cannot post a figure.
template <class TQueue>
void BM_FifoOneProducerOneConsumer(benchmark::State& state) {
  for (auto _ : state) {
    TQueue queue;
    std::thread producer([&queue] {
      for (intptr_t i = 1; i <= kItemsPerRun; ++i) queue.Push(i);
    });
    intptr_t expected = 1;
    uint32_t misses = 0;
    while (expected <= kItemsPerRun) {
      intptr_t item = 0;
      if (!queue.Pop(item)) {
        // A short spin first: yielding at once on a busy machine hands the rest of the time slice to other
        // processes, and the figure would measure the scheduler instead of the queue.
        if (++misses % kSpinsBeforeYield == 0) std::this_thread::yield();
        continue;
      }
      if (item != expected) {
        state.SkipWithError("an item came out of order");
        break;
      }
      ++expected;
    }
    producer.join();
  }
  state.SetItemsProcessed(state.iterations() * kItemsPerRun);
}

BENCHMARK_TEMPLATE(BM_FifoOneProducerOneConsumer, TMutexDeque)
    ->Name("Fifo/MutexDeque")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_FifoOneProducerOneConsumer, TBlockFifo)
    ->Name("Fifo/TFifo")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
#ifdef DEVLASER_HAVE_RWQ
BENCHMARK_TEMPLATE(BM_FifoOneProducerOneConsumer, TLockFree)
    ->Name("Fifo/ReaderWriterQueue")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
#endif

}  // namespace
