#include "tests/fuzz/rounds_of_records.h"

#include "pavex/aggregator/plan.h"
#include "tests/support/round_check.h"

#include <algorithm>
#include <complex>
#include <cstdint>

namespace Pavex {

namespace {

// Records may announce 2^59 entries, which take 2^28 rounds.
constexpr long kMostRounds = 200;

// The end of the round after which at most kMostRounds rounds of the entries are left.
TransferPoint NearTheEnd(Buffer<MatrixLocalInfo> const& records, long entries, long most) {
  long skipped = std::max((entries + most - 1) / most - kMostRounds, 0L) * most;
  TransferPoint point;
  for (; skipped > 0 && skipped >= records.mData[point.process].nnz; ++point.process) {
    point.before += records.mData[point.process].nnz;
    skipped -= records.mData[point.process].nnz;
  }
  point.taken = skipped;
  return point;
}

std::string CheckWith(Buffer<MatrixLocalInfo> const& records, GatherPlan const& plan,
                      long most) {
  std::string problem = CheckRounds(records, Moved::ENTRIES, most, {}, kMostRounds);
  if (problem.empty())
    problem = CheckRounds(records, Moved::ENTRIES, most, NearTheEnd(records, plan.mNnz, most));
  if (!problem.empty()) return "entries, " + problem;
  bool const byRows = plan.mKind == StoreKind::CSR;
  if (!byRows && plan.mKind != StoreKind::CSC) return "";
  problem = CheckRounds(records, byRows ? Moved::ROWS : Moved::COLS, most, {}, kMostRounds);
  return problem.empty() ? "" : "lengths, " + problem;
}

}  // namespace

std::string CheckRoundsOf(Records records) {
  Buffer<MatrixLocalInfo> view;
  view.Borrow(records.data(), static_cast<std::int64_t>(records.size()));
  GatherPlan const plan = PlanGather(view, sizeof(std::complex<double>), sizeof(long));
  if (plan.Refused() || plan.mMode != DISTRIBUTED) return "";
  for (long const most : {1L, 7L, 1000L, kMostPerCall}) {
    std::string const problem = CheckWith(view, plan, most);
    if (!problem.empty()) return "at most " + std::to_string(most) + ": " + problem;
  }
  return "";
}

}  // namespace Pavex
