// A pool that records every block, for tests.

#pragma once

#include "pavex/runtime/memory_pool.h"
#include "tests/support/fault.h"

#include <cstddef>
#include <iosfwd>
#include <map>
#include <vector>

namespace Pavex {

// One call of a LedgerPool, in the order of the calls. Events compare by kind and bytes:
//   EXPECT_EQ(pool.Events(), (std::vector<PoolEvent>{Took(72), Took(8), GaveBack(72)}));
struct PoolEvent {
  enum Kind { TOOK, GAVE_BACK, REFUSED };

  Kind kind;
  std::size_t bytes;
  void* block = nullptr;  // null for a refused request; not compared
};

inline PoolEvent Took(std::size_t bytes) {
  return {PoolEvent::TOOK, bytes};
}
inline PoolEvent GaveBack(std::size_t bytes) {
  return {PoolEvent::GAVE_BACK, bytes};
}
inline PoolEvent Refused(std::size_t bytes) {
  return {PoolEvent::REFUSED, bytes};
}
bool operator==(PoolEvent const& a, PoolEvent const& b);
std::ostream& operator<<(std::ostream& stream, PoolEvent const& event);

// Takes each block from the heap, between two guards, and fills it with kFill. Adds a failure
// to the running test if a returned block is not outstanding, has another size than was
// requested, or was written outside its bounds. Its destructor adds a failure for every block
// that was not returned. A request of 0 bytes gets a block of its own. Requests above kMaxBytes
// are refused with STATUS_OUT_OF_MEMORY. Not shared between threads.
class LedgerPool : public MemoryPool {
 public:
  static constexpr unsigned char kFill = 0xA5;
  static constexpr std::size_t kMaxBytes = std::size_t{1} << 40;

  // `source`: takes its blocks from there instead of the heap; it outlives the pool.
  explicit LedgerPool(MemoryPool* source = nullptr) : mSource(source) {}
  ~LedgerPool() override;
  void Deallocate(void* block, std::size_t bytes) override;
  PavexStatus Allocate(void** block, std::size_t bytes) override;

  // Decides which of the allocations from now on fail.
  void Fail(Fault const& fault) { mFault = fault; }

  // Whether a planned fault has occurred.
  bool FaultStruck() const { return mFault.Struck(); }

  // All calls since the start or the last ForgetEvents.
  std::vector<PoolEvent> const& Events() const { return mEvents; }
  void ForgetEvents() { mEvents.clear(); }

  // Blocks and bytes that are taken and not yet returned, and the most bytes that were taken at
  // once.
  std::size_t OutstandingBlocks() const { return mOutstanding.size(); }
  std::size_t OutstandingBytes() const { return mBytes; }
  std::size_t PeakBytes() const { return mPeakBytes; }

  // Sets the peak to what is outstanding now.
  void RestartPeak() { mPeakBytes = mBytes; }

  // Whether `block` is outstanding, and its requested size (0 if it is not).
  bool Owns(void const* block) const { return mOutstanding.count(block) != 0; }
  std::size_t SizeOf(void const* block) const;

  // Whether the `bytes` bytes at `data` are as the pool handed them out.
  static bool Untouched(void const* data, std::size_t bytes);

 private:
  unsigned char* TakeRaw(std::size_t bytes);
  void GiveBackRaw(unsigned char* raw, std::size_t bytes);

  MemoryPool* mSource;
  std::map<void const*, std::size_t> mOutstanding;  // requested bytes by block
  std::vector<PoolEvent> mEvents;
  Fault mFault;
  std::size_t mBytes = 0;
  std::size_t mPeakBytes = 0;
};

}  // namespace Pavex
