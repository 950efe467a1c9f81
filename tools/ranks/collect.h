// Small exchanges between the ranks of a job. Collective; a failed one throws JobError.

#pragma once

#include "pavex/runtime/comm.h"
#include "tools/choice/job_error.h"

#include <string>
#include <type_traits>
#include <vector>

namespace Pavex::Tool {

// Throws JobError unless `status` is STATUS_OK; `what` is the step, as in "the gather".
inline void Require(PavexStatus status, std::string const& what, Comm const& comm) {
  if (status == STATUS_OK) return;
  throw JobError(what + " failed on rank " + std::to_string(comm.Rank()) + " with status " +
                 std::to_string(status) + ": " + PavexStatusStr(status));
}

// Collects the records of all ranks, by rank.
template <typename Record>
std::vector<Record> FromEveryRank(Comm const& comm, Record const& mine) {
  static_assert(std::is_trivially_copyable_v<Record>, "travels as bytes");
  constexpr int kBytes = sizeof(Record);
  std::vector<Record> all(static_cast<std::size_t>(comm.Size()));
  Require(comm.Allgather(&mine, kBytes, DATATYPE_BYTE, all.data(), kBytes, DATATYPE_BYTE),
          "the exchange of the ranks' records", comm);
  return all;
}

// The largest of all ranks' numbers.
inline double LargestOfAll(Comm const& comm, double mine) {
  double largest = 0;
  Require(comm.Allreduce(&mine, &largest, 1, DATATYPE_DOUBLE, REDUCE_MAX),
          "the exchange of the times", comm);
  return largest;
}

// The sum of all ranks' numbers.
inline long SumOfAll(Comm const& comm, long mine) {
  long sum = 0;
  Require(comm.Allreduce(&mine, &sum, 1, DATATYPE_LONG, REDUCE_SUM),
          "the exchange of the sizes", comm);
  return sum;
}

}  // namespace Pavex::Tool
