// Assemblies of small matrices on the threads of LocalComm. Half of the inputs are cases of the
// property test, whose results are compared with a dense reference. In the others a process, or
// all of them, pass wrong numbers: all processes must return one known status, with one reason
// if they refuse, and a whole must be sound. Every pool must get its blocks back.
//
// The input: a byte for the number of ranks, a byte that says which half and which types, then
// the choices.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "tests/assembly/assembly_run.h"
#include "tests/fuzz/known_status.h"
#include "tests/fuzz/quiet.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/small_pool.h"
#include "tests/fuzz/spoiled_assembly.h"

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Pavex {
namespace {

constexpr int kMostRanks = 5;

// How the operations of one rank ended.
struct Outcome {
  PavexStatus gather = STATUS_OK;
  PavexStatus update = STATUS_OK;
  std::string reason;  // of a gather that was refused
};

template <typename T, typename I>
void RequireSound(MatrixCSR<T, I> const& whole, AssemblyRequest const& request) {
  I const* const offsets = whole.mRowPtr.mData;
  I const* const cols = whole.mColIdx.mData;
  I const base = static_cast<I>(request.mBase);
  Require(whole.mRowPtr.mSize == request.mRows + 1 && offsets[0] == base,
          "the offsets of a whole start at its base");
  Require(std::is_sorted(offsets, offsets + request.mRows + 1),
          "the offsets of a whole ascend");
  Require(offsets[request.mRows] - base == whole.mColIdx.mSize,
          "the offsets of a whole count its entries");
  Require(std::all_of(cols, cols + whole.mColIdx.mSize,
                      [&](I col) { return col >= base && col - base < request.mCols; }),
          "the columns of a whole are inside");
}

template <typename T, typename I>
Outcome RunSpoiled(Rng& rng, std::shared_ptr<Comm> const& comm) {
  auto const rank = static_cast<std::size_t>(comm->Rank());
  SpoiledAssembly<T, I> const spoiled(rng, comm->Size());
  auto const& piece = spoiled.pieces[rank];
  AssemblyRequest const& request = spoiled.requests[rank];
  SmallPool pool;
  Assembler<T, I> assembler(&pool);
  Outcome outcome;
  outcome.gather = assembler.Gather(comm, piece.Pass(spoiled.hasValues[rank]), request);
  outcome.reason = outcome.gather == STATUS_OK ? "" : assembler.Describe();
  if (outcome.gather == STATUS_OK && assembler.Whole() != nullptr)
    RequireSound(*assembler.Whole(), request);
  Require(outcome.gather == STATUS_OK || assembler.Whole() == nullptr,
          "no whole is there after a failure");
  if (IsOthersFailure(outcome.gather)) return outcome;  // others may be elsewhere
  outcome.update = assembler.Update(piece.Values(0), piece.Values(1));
  return outcome;
}

// Failures of a pool may stay on their process.
void RequireOneOutcome(std::vector<Outcome> const& outcomes) {
  bool others = false;
  for (Outcome const& outcome : outcomes) {
    Require(IsKnownStatus(outcome.gather), "the status of the gather is a known one");
    Require(IsKnownStatus(outcome.update), "the status of the update is a known one");
    others = others || IsOthersFailure(outcome.gather) || IsOthersFailure(outcome.update);
  }
  if (others) return;
  for (Outcome const& outcome : outcomes) {
    Require(outcome.gather == outcomes[0].gather, "all gathers end with one status");
    Require(outcome.reason == outcomes[0].reason, "all gathers are refused for one reason");
    Require(outcome.update == outcomes[0].update, "all updates end with one status");
  }
}

template <typename T, typename I>
void Run(bool fits, long number, int ranks, std::uint8_t const* choices, std::size_t size) {
  std::vector<Outcome> outcomes(static_cast<std::size_t>(ranks));
  LocalComm::Run(ranks, [&](std::shared_ptr<Comm> const& comm) {
    Rng rng(choices, size);  // the same choices on every rank
    if (!fits) {
      outcomes[static_cast<std::size_t>(comm->Rank())] = RunSpoiled<T, I>(rng, comm);
      return;
    }
    LedgerPool pool;
    std::string const difference = RunAssemblyCase<T, I>(rng, number, comm, pool);
    Require(difference.empty(), difference.c_str());
  });
  RequireOneOutcome(outcomes);
}

}  // namespace
}  // namespace Pavex

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace Pavex;
  [[maybe_unused]] static bool const quiet = BeQuiet();
  if (size < 2) return 0;
  int const ranks = 1 + data[0] % kMostRanks;
  bool const fits = data[1] % 2 == 0;
  long const number = data[1] / 4 % 2;  // odd: processes send offsets in place of lengths
  if (data[1] / 2 % 2 == 0)
    Run<float, int>(fits, number, ranks, data + 2, size - 2);
  else
    Run<std::complex<double>, long>(fits, number, ranks, data + 2, size - 2);
  return 0;
}
