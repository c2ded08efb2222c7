// An unbounded first-in-first-out queue with one lock for the producer end and one for the consumer end, so that
// one thread pushes while another pops without either waiting for the other.
//
// Every item has a node of its own; the items sit in blocks of 64 slots that consecutive nodes share until the
// block is full, and the nodes sit in the block beside their items. Items never move. The head node is a sentinel:
// the node of the item consumed last (at first an empty node without a block), whose successor holds the next item
// to pop. A block is freed when the node of its last slot (63) stops being the sentinel, because no node refers to
// the block any more.
//
// Several producers serialise on the tail lock, several consumers on the head lock. Empty() and the enumerator take
// no lock; enumerate only while no other thread pops.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

namespace devlaser {

template <class T>
class TFifo {
 public:
  static constexpr int32_t kBlockSlots = 64;
  static constexpr size_t kCacheLine = 64;

  struct TDataBlock;
  struct TNode {
    TDataBlock* DataBlock = nullptr;
    int32_t Index = -1;
    std::atomic<TNode*> Next{nullptr};
  };
  // 64 item slots, each with the node of its item beside it: a node is taken with its slot, so a push allocates once
  // per 64 items and touches one cache line, and a block goes with all its nodes when the node of slot 63 stops
  // being the sentinel.
  struct TSlot {
    T Item{};
    TNode Node;
  };
  struct TDataBlock {
    std::array<TSlot, kBlockSlots> Slots;
    T& operator[](int32_t index) { return Slots[static_cast<size_t>(index)].Item; }
    const T& operator[](int32_t index) const { return Slots[static_cast<size_t>(index)].Item; }
  };

  // Walks the queued items oldest first. An item in the last slot of its block reads as a null item (T{}), although
  // Pop and Peek return it normally: callers that enumerate rely on that quirk, so it stays.
  class TEnumerator {
   public:
    explicit TEnumerator(const TNode* node) : FNode(node) {}
    bool MoveNext() {
      const TNode* next = FNode->Next.load(std::memory_order_acquire);
      if (next == nullptr) return false;
      FNode = next;
      return true;
    }
    T GetCurrent() const {
      if (FNode->DataBlock != nullptr && FNode->Index >= 0 && FNode->Index < kBlockSlots - 1)
        return (*FNode->DataBlock)[FNode->Index];
      return T{};
    }
    T Current() const { return GetCurrent(); }

   private:
    const TNode* FNode;
  };

  TFifo() {
    TNode* sentinel = new TNode;
    FHead.store(sentinel, std::memory_order_relaxed);
    FTail.store(sentinel, std::memory_order_relaxed);
  }
  virtual ~TFifo() {
    Clear();
    FreeNode(FHead.load(std::memory_order_relaxed), true);
    FHead.store(nullptr, std::memory_order_relaxed);
    FTail.store(nullptr, std::memory_order_relaxed);
  }
  TFifo(const TFifo&) = delete;
  TFifo& operator=(const TFifo&) = delete;

  void Push(const T& item) {
    std::lock_guard lock(FCSTail);
    TNode* tail = FTail.load(std::memory_order_relaxed);
    TDataBlock* block = tail->DataBlock;
    int32_t index = tail->Index + 1;
    if (block == nullptr || index >= kBlockSlots) {
      block = new TDataBlock;
      index = 0;
      FBlocks.fetch_add(1, std::memory_order_relaxed);
    }
    TSlot& slot = block->Slots[static_cast<size_t>(index)];
    TNode* node = &slot.Node;
    node->DataBlock = block;
    node->Index = index;
    node->Next.store(nullptr, std::memory_order_relaxed);
    slot.Item = item;
    // Publishes the item: a consumer that sees the link also sees the slot.
    tail->Next.store(node, std::memory_order_release);
    FTail.store(node, std::memory_order_release);
  }
  void Enqueue(const T& item) { Push(item); }

  // Removes the oldest item; false (and `item` untouched) when the queue is empty.
  bool Pop(T& item) {
    std::lock_guard lock(FCSHead);
    return PopLocked(item);
  }
  bool Dequeue(T& item) { return Pop(item); }

  // Reads the oldest item without removing it; false (and `item` untouched) when the queue is empty.
  bool Peek(T& item) {
    std::lock_guard lock(FCSHead);
    const TNode* next = FHead.load(std::memory_order_relaxed)->Next.load(std::memory_order_acquire);
    if (next == nullptr) return false;
    item = (*next->DataBlock)[next->Index];
    return true;
  }

  // True when every pushed item has been popped. Compares the two ends without following either, so that it is
  // safe from any thread while others push and pop; a push or pop under way may or may not be seen.
  bool Empty() const { return FHead.load(std::memory_order_acquire) == FTail.load(std::memory_order_acquire); }

  // Pops every item and hands each to NotifyDelete. Holds both locks, the tail's first.
  void Clear() {
    std::lock_guard tailLock(FCSTail);
    std::lock_guard headLock(FCSHead);
    T item{};
    while (PopLocked(item)) NotifyDelete(item);
  }
  // The flag means nothing; the overload exists for callers that pass one.
  void Clear(bool /*flag*/) { Clear(); }

  TEnumerator GetEnumerator() const { return TEnumerator(FHead.load(std::memory_order_acquire)); }

  // Blocks allocated and not yet freed.
  int32_t AllocatedBlocks() const { return FBlocks.load(std::memory_order_relaxed); }

 protected:
  // Called for every item that Clear discards.
  virtual void NotifyDelete(const T& /*item*/) {}

 private:
  bool PopLocked(T& item) {
    TNode* old = FHead.load(std::memory_order_relaxed);
    TNode* next = old->Next.load(std::memory_order_acquire);
    if (next == nullptr) return false;
    FHead.store(next, std::memory_order_release);
    item = (*next->DataBlock)[next->Index];
    // The old sentinel is done with; its block goes once the node of the last slot is.
    FreeNode(old, old->Index >= kBlockSlots - 1);
    return true;
  }
  // Frees the first sentinel (which has no block), or `node`'s block when `lastOfBlock`.
  void FreeNode(TNode* node, bool lastOfBlock) {
    if (node->DataBlock == nullptr) {
      delete node;
    } else if (lastOfBlock) {
      delete node->DataBlock;
      FBlocks.fetch_sub(1, std::memory_order_relaxed);
    }
  }

  // The consumer's and the producer's ends on cache lines of their own, so that neither invalidates the other's.
  alignas(kCacheLine) std::mutex FCSHead;
  std::atomic<TNode*> FHead{nullptr};
  alignas(kCacheLine) std::mutex FCSTail;
  std::atomic<TNode*> FTail{nullptr};
  alignas(kCacheLine) std::atomic<int32_t> FBlocks{0};
};

// A queue of object pointers that can own them: with AOwnsObjects, the objects that Clear discards (also when the
// queue is destroyed) are deleted. Popped objects belong to whoever popped them.
template <class T>
class TObjectFifo : public TFifo<T*> {
 public:
  explicit TObjectFifo(bool AOwnsObjects = true) : FOwnsObjects(AOwnsObjects) {}
  // The base destructor's Clear can no longer reach NotifyDelete of this class: clear here.
  ~TObjectFifo() override { this->Clear(); }

  bool OwnsObjects() const { return FOwnsObjects; }

 protected:
  void NotifyDelete(T* const& item) override {
    if (FOwnsObjects) delete item;
  }

 private:
  const bool FOwnsObjects;
};

}  // namespace devlaser
