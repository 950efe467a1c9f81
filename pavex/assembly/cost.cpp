#include "pavex/aggregator/local_info.h"
#include "pavex/assembly/decisions.h"
#include "pavex/runtime/wrapping.h"

#include <algorithm>

namespace Pavex {

namespace {

// Adds `count` elements of `bytes` bytes to `sum`. What 64 bits do not count wraps.
void Pay(std::int64_t count, std::int64_t bytes, std::int64_t& sum) {
  sum = WrappingAdd(sum, WrappingMul(count, bytes));
}

// The calls that move `all` elements.
std::int64_t RoundsOf(std::int64_t all) {
  return std::max(std::int64_t{1}, all / kMostCounted + (all % kMostCounted != 0 ? 1 : 0));
}

// Adds up the cost of one process.
struct Payer {
  AssemblyCost mCost;
  std::int64_t mProcesses;
  bool mReceives;

  // Every process sends `bytes` bytes to all.
  void Exchange(std::size_t bytes) {
    ++mCost.mCalls;
    mCost.mBytesOut += static_cast<std::int64_t>(bytes);
    mCost.mBytesIn += static_cast<std::int64_t>(bytes) * mProcesses;
  }

  // It sends `own` elements of `bytes` bytes; a receiver gets `all`.
  void Gather(std::int64_t own, std::int64_t all, std::size_t bytes) {
    mCost.mCalls += RoundsOf(all);
    Pay(own, static_cast<std::int64_t>(bytes), mCost.mBytesOut);
    if (mReceives) Pay(all, static_cast<std::int64_t>(bytes), mCost.mBytesIn);
  }
};

// Rows of the contributions of all processes.
std::int64_t OwnRowsOf(Buffer<AssemblyRecord> const& records) {
  std::int64_t rows = 0;
  for (std::int64_t p = 0; p < records.mSize; ++p)
    rows = WrappingAdd(rows, records.mData[p].mOwnRows);
  return rows;
}

Payer PayerOf(Buffer<AssemblyRecord> const& records, int rank) {
  int const receiver = records.mData[rank].mReceiver;
  return {{}, records.mSize, receiver == kEverybody || receiver == rank};
}

// Over entries that a process does not send as they are, and over those that a receiver merges.
std::int64_t PassesOf(AssemblyPlan const& plan, bool receives, bool merges) {
  bool const adds = plan.mPath == AssemblyPath::MERGE && receives;
  return (merges ? 1 : 0) + (adds ? 1 : 0);
}

}  // namespace

AssemblyCost CostOfUpdate(AssemblyPlan const& plan, Buffer<AssemblyRecord> const& records,
                          int rank, std::size_t valueBytes, bool merges) {
  Payer payer = PayerOf(records, rank);
  if (records.mSize > 1) payer.Exchange(sizeof(AssemblyRecord));
  if (plan.mPath == AssemblyPath::NOTHING) return payer.mCost;
  if (records.mSize > 1) payer.Gather(records.mData[rank].mNnz, plan.mNnz, valueBytes);
  payer.mCost.mPasses = PassesOf(plan, payer.mReceives, merges);
  return payer.mCost;
}

AssemblyCost CostOfPattern(AssemblyPlan const& plan, Buffer<AssemblyRecord> const& records,
                           int rank, std::size_t indexBytes, bool merges) {
  Payer payer = PayerOf(records, rank);
  payer.mCost.mPasses = PassesOf(plan, payer.mReceives, merges);
  if (records.mSize == 1) return payer.mCost;
  AssemblyRecord const& record = records.mData[rank];
  payer.Exchange(sizeof(AssemblyRecord));
  if (plan.mListed > 0) payer.Gather(record.Listed(), plan.mListed, indexBytes);
  if (plan.mTouched > 0) payer.Gather(record.Touched(), plan.mTouched, indexBytes);
  if (plan.mPath == AssemblyPath::NOTHING) return payer.mCost;
  payer.Exchange(sizeof(MatrixLocalInfo));
  payer.Gather(std::max(record.mRows, std::int64_t{1}), plan.mRows, indexBytes);
  payer.Gather(record.mNnz, plan.mNnz, indexBytes);
  return payer.mCost;
}

// Where every process has the whole, each copies its own rows from it.
AssemblyCost CostOfScatter(Buffer<AssemblyRecord> const& records, int rank,
                           std::size_t valueBytes, std::int64_t columns) {
  Payer payer = PayerOf(records, rank);
  payer.mCost.mPasses = payer.mReceives ? 1 : 0;
  if (records.mSize == 1) return payer.mCost;
  payer.Exchange(sizeof(AssemblyRecord));
  AssemblyRecord const& record = records.mData[rank];
  if (record.mReceiver == kEverybody) return payer.mCost;
  std::int64_t const bytes = WrappingMul(columns, static_cast<std::int64_t>(valueBytes));
  ++payer.mCost.mCalls;
  if (payer.mReceives) Pay(OwnRowsOf(records), bytes, payer.mCost.mBytesOut);
  Pay(record.mOwnRows, bytes, payer.mCost.mBytesIn);
  return payer.mCost;
}

AssemblyCost CostOfCollect(Buffer<AssemblyRecord> const& records, int rank,
                           std::size_t valueBytes, std::int64_t columns) {
  Payer payer = PayerOf(records, rank);
  payer.mCost.mPasses = payer.mReceives ? 1 : 0;
  if (records.mSize == 1) return payer.mCost;
  payer.Exchange(sizeof(AssemblyRecord));
  payer.Gather(WrappingMul(records.mData[rank].mOwnRows, columns),
               WrappingMul(OwnRowsOf(records), columns), valueBytes);
  return payer.mCost;
}

}  // namespace Pavex
