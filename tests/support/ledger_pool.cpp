#include "tests/support/ledger_pool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>

namespace Pavex {

namespace {

constexpr std::size_t kGuardBytes = 64;
constexpr unsigned char kGuard = 0xFD;
constexpr unsigned char kGivenBack = 0xDD;

bool AllBytesAre(void const* data, std::size_t bytes, unsigned char value) {
  auto const* const first = static_cast<unsigned char const*>(data);
  return std::all_of(first, first + bytes,
                     [value](unsigned char byte) { return byte == value; });
}

}  // namespace

bool operator==(PoolEvent const& a, PoolEvent const& b) {
  return a.kind == b.kind && a.bytes == b.bytes;
}

std::ostream& operator<<(std::ostream& stream, PoolEvent const& event) {
  char const* const kinds[] = {"took ", "gave back ", "refused "};
  return stream << kinds[event.kind] << event.bytes;
}

LedgerPool::~LedgerPool() {
  for (auto const& [block, bytes] : mOutstanding)
    ADD_FAILURE() << "a block of " << bytes << " bytes never came back";
}

PavexStatus LedgerPool::Allocate(void** block, std::size_t bytes) {
  bool const faulty = mFault.Due();
  if (faulty || bytes > kMaxBytes) {
    mEvents.push_back(Refused(bytes));
    return faulty ? mFault.Status() : STATUS_OUT_OF_MEMORY;
  }
  unsigned char* const raw = TakeRaw(bytes + 2 * kGuardBytes);
  if (raw == nullptr) {
    mEvents.push_back(Refused(bytes));
    return STATUS_OUT_OF_MEMORY;
  }
  std::memset(raw, kGuard, kGuardBytes);
  std::memset(raw + kGuardBytes, kFill, bytes);
  std::memset(raw + kGuardBytes + bytes, kGuard, kGuardBytes);
  *block = raw + kGuardBytes;
  mOutstanding[*block] = bytes;
  mEvents.push_back({PoolEvent::TOOK, bytes, *block});
  mBytes += bytes;
  mPeakBytes = std::max(mPeakBytes, mBytes);
  return STATUS_OK;
}

void LedgerPool::Deallocate(void* block, std::size_t bytes) {
  mEvents.push_back({PoolEvent::GAVE_BACK, bytes, block});
  auto const entry = mOutstanding.find(block);
  if (entry == mOutstanding.end()) {
    ADD_FAILURE() << "a block of " << bytes << " bytes came back that is not outstanding";
    return;
  }
  std::size_t const requested = entry->second;
  mOutstanding.erase(entry);
  mBytes -= requested;
  EXPECT_EQ(requested, bytes) << "a block came back with another size than was requested";

  auto* const raw = static_cast<unsigned char*>(block) - kGuardBytes;
  EXPECT_TRUE(AllBytesAre(raw, kGuardBytes, kGuard))
      << "bytes before a block of " << requested << " bytes were overwritten";
  EXPECT_TRUE(AllBytesAre(raw + kGuardBytes + requested, kGuardBytes, kGuard))
      << "bytes behind a block of " << requested << " bytes were overwritten";
  std::memset(block, kGivenBack, requested);
  GiveBackRaw(raw, requested + 2 * kGuardBytes);
}

unsigned char* LedgerPool::TakeRaw(std::size_t bytes) {
  void* raw = nullptr;
  if (mSource == nullptr) return static_cast<unsigned char*>(std::malloc(bytes));
  return mSource->Allocate(&raw, bytes) == STATUS_OK ? static_cast<unsigned char*>(raw)
                                                     : nullptr;
}

void LedgerPool::GiveBackRaw(unsigned char* raw, std::size_t bytes) {
  if (mSource == nullptr)
    std::free(raw);
  else
    mSource->Deallocate(raw, bytes);
}

std::size_t LedgerPool::SizeOf(void const* block) const {
  auto const entry = mOutstanding.find(block);
  return entry == mOutstanding.end() ? 0 : entry->second;
}

bool LedgerPool::Untouched(void const* data, std::size_t bytes) {
  return AllBytesAre(data, bytes, kFill);
}

}  // namespace Pavex
