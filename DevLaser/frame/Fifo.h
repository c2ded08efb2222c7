// An unbounded first-in-first-out queue with one lock for the producer end and one for the consumer end, so that
// one thread pushes while another pops without either waiting for the other.
//
// Every item has a node of its own; the items themselves sit in blocks of 64 slots that consecutive nodes share
// until the block is full. Items never move. The head node is a sentinel: the node of the item consumed last (at
// first an empty node without a block), whose successor holds the next item to pop. A block is freed when the node
// of its last slot (63) stops being the sentinel, because no node refers to the block any more.
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
  using TDataBlock = std::array<T, kBlockSlots>;

  struct TNode {
    TDataBlock* DataBlock = nullptr;
    int32_t Index = -1;
    std::atomic<TNode*> Next{nullptr};
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
    TNode* head = FHead.load(std::memory_order_relaxed);
    FreeBlock(head->DataBlock);
    delete head;
    FHead.store(nullptr, std::memory_order_relaxed);
    FTail.store(nullptr, std::memory_order_relaxed);
  }
  TFifo(const TFifo&) = delete;
  TFifo& operator=(const TFifo&) = delete;

  void Push(const T& item) {
    std::lock_guard lock(FCSTail);
    TNode* tail = FTail.load(std::memory_order_relaxed);
    TNode* node = new TNode;
    node->DataBlock = tail->DataBlock;
    node->Index = tail->Index + 1;
    if (node->DataBlock == nullptr || node->Index >= kBlockSlots) {
      node->DataBlock = new TDataBlock{};
      node->Index = 0;
      FBlocks.fetch_add(1, std::memory_order_relaxed);
    }
    (*node->DataBlock)[node->Index] = item;
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
    if (old->Index >= kBlockSlots - 1) FreeBlock(old->DataBlock);
    delete old;
    return true;
  }
  void FreeBlock(TDataBlock* block) {
    if (block == nullptr) return;
    delete block;
    FBlocks.fetch_sub(1, std::memory_order_relaxed);
  }

  std::mutex FCSHead;
  std::mutex FCSTail;
  std::atomic<TNode*> FHead{nullptr};
  std::atomic<TNode*> FTail{nullptr};
  std::atomic<int32_t> FBlocks{0};
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
