// The steps with one rank that both kinds of fault runs share.

#pragma once

#include "tests/faults/faulty_rank.h"
#include "tests/support/instances.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace Pavex {

// Bytes of the first `count` calls that the aggregator keeps after any later call.
inline std::size_t KeptBytes(std::vector<Step> const& steps, std::size_t count) {
  std::size_t bytes = 0;
  for (std::size_t k = 0; k < count; ++k)
    bytes += steps[k].IsKept() ? steps[k].bytes : 0;
  return bytes;
}

// One operation on one rank of a round, with everything that is known about it in advance.
template <typename T, typename I>
struct FaultRun {
  FaultRun(Round const& round, int rank, Operation op)
      : operation(op),
        steps(StepsOf(round, rank, op, FaultyRank<T, I>::kBytes)),
        gatherSteps(StepsOf(round, rank, Operation::GATHER, FaultyRank<T, I>::kBytes)) {}

  // The bytes that the aggregator keeps if the operation succeeds, or fails at `step`.
  std::size_t KeptAtSuccess() const { return KeptBytes(gatherSteps, gatherSteps.size()); }
  std::size_t KeptAtFailure(std::size_t step) const {
    return operation == Operation::GATHER ? KeptBytes(steps, step) : KeptAtSuccess();
  }

  // Checks the rank on which `injection` was planned. Returns what is wrong; empty if nothing
  // is.
  std::string CheckInjected(FaultyRank<T, I>& rank, Injection const& injection,
                            PavexStatus status) const {
    Differences is;
    is.Equal("whether the fault has struck", rank.FaultStruck(), true);
    is.Equal("status", status, injection.status);
    if (!is.First().empty()) return is.First();
    // A failed transfer of an update in place may leave any values. That of a scatter leaves
    // the earlier values if its first call does not happen.
    bool const arrives =
        operation == Operation::UPDATE_IN_PLACE
            ? !injection.isPool
            : injection.mode == TraceComm::AFTERWARDS || CallsBefore(injection.step) != 0;
    bool const inPlace = arrives && rank.ReceivesInPlace(operation);
    std::string difference = rank.CheckFailure(operation, inPlace);
    if (difference.empty())
      difference = rank.CheckCalls(steps, injection.step + 1, injection.isPool);
    if (difference.empty()) difference = rank.CheckMemory(KeptAtFailure(injection.step));
    return difference;
  }

  // Checks a rank on which nothing was planned: it succeeds with the right result, or fails
  // because its partner is gone. `moves`: a call of the communicator that fails so may have
  // moved some elements.
  std::string CheckPeer(FaultyRank<T, I>& rank, PavexStatus status, bool moves = false) const {
    if (status == STATUS_OK) return CheckDone(rank, operation, status);
    if (status != STATUS_COMM_FAILED) return "status is " + std::to_string(status);
    std::size_t const made = rank.MadeCalls();
    bool const arrives =
        operation == Operation::UPDATE_IN_PLACE ||
        (operation == Operation::SCATTER && CallsBefore(made) > (moves ? 0 : 1));
    bool const inPlace = arrives && rank.ReceivesInPlace(operation);
    std::string difference = rank.CheckFailure(operation, inPlace);
    if (difference.empty()) difference = rank.CheckCalls(steps, made, false);
    return difference.empty() ? rank.CheckMemory(KeptAtFailure(made)) : difference;
  }

  // Checks a rank on which `done`, this operation or another gather, had to succeed.
  std::string CheckDone(FaultyRank<T, I>& rank, Operation done, PavexStatus status) const {
    Differences is;
    is.Equal("status", status, STATUS_OK);
    if (!is.First().empty()) return is.First();
    std::string difference = rank.CheckSuccess(done);
    bool const again = done == Operation::GATHER;
    std::vector<Step> const& made = again ? gatherSteps : steps;
    if (difference.empty()) difference = rank.CheckCalls(made, made.size(), false);
    if (difference.empty()) difference = rank.CheckMemory(KeptAtSuccess());
    return difference;
  }

  // How many calls of the communicator come before a step.
  long CallsBefore(std::size_t step) const {
    return std::count_if(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(step),
                         [](Step const& made) { return !made.isPool; });
  }

  Operation const operation;
  std::vector<Step> const steps;
  std::vector<Step> const gatherSteps;
};

// The allocation of the records alone fails in four ways, in a first and in a second gather.
constexpr long kLeastFaultsPerKind = 8;

// The instances for which faults are injected.
using TwoFaultInstances =
    ::testing::Types<Instance<double, int>, Instance<std::complex<float>, long>>;
#ifdef PAVEX_TESTS_ALL
using FaultInstances = AllInstances;
#else
using FaultInstances = TwoFaultInstances;
#endif

}  // namespace Pavex
