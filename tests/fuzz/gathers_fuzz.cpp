// Whole gathers of small matrices on the threads of LocalComm, each followed by an update and a
// scatter. Half of the inputs are cases of the property test, of which every element is known.
// The others are pieces that may not fit together: every operation must end with a known
// status, and every pool must get its blocks back.
//
// The input: a byte for the number of ranks, a byte that says which half and whether dense
// pieces are moved in runs, then the choices.

#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/local_comm.h"
#include "tests/fuzz/known_status.h"
#include "tests/fuzz/quiet.h"
#include "tests/fuzz/require.h"
#include "tests/fuzz/small_pool.h"
#include "tests/fuzz/spoiled_round.h"
#include "tests/property/local_matrix.h"
#include "tests/property/property.h"
#include "tests/support/plain_comm.h"

#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <typeinfo>

namespace Pavex {
namespace {

constexpr int kMostRanks = 5;

void RunFitting(Rng& rng, std::shared_ptr<Comm> const& comm) {
  std::string const difference = RunCase(rng, comm);
  Require(difference.empty(), difference.c_str());
}

template <typename T, typename I>
void RunSpoiled(Rng& rng, std::shared_ptr<Comm> const& comm) {
  SpoiledRound spoiled = MakeSpoiledRound(rng, comm->Size());
  int const rank = comm->Rank();
  spoiled.round.format = spoiled.FormatOf(rank);
  Piece const& piece = spoiled.round.PieceOf(rank);
  LocalMatrix<T, I> local(spoiled.round, rank, GATHERED, piece.hasValues, 1);

  SmallPool pool;
  Aggregator<T, I> aggregator(&pool);
  try {
    PavexStatus const status =
        spoiled.round.toAll ? aggregator.Allgather(comm, local.Matrix(), piece.withValues)
                            : aggregator.Gather(comm, local.Matrix(), piece.withValues);
    Require(IsGatherStatus(status), "the status of the gather is one of a gather");
    Require(status == STATUS_OK || aggregator.Target() == nullptr,
            "no matrix is there after a failure");
    Require(IsKnownStatus(aggregator.Update(local.Matrix())),
            "the status of the update is a known one");
    Require(IsKnownStatus(aggregator.Scatter(local.Matrix())),
            "the status of the scatter is a known one");
  } catch (std::bad_cast const&) {
    Require(spoiled.oddRank >= 0, "only a matrix of another class makes the library throw");
  }
}

}  // namespace
}  // namespace Pavex

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace Pavex;
  [[maybe_unused]] static bool const quiet = BeQuiet();
  if (size < 2) return 0;
  int const ranks = 1 + data[0] % kMostRanks;
  std::uint8_t const kind = data[1] % 4U;
  bool const movesRuns = data[1] / 4 % 2 != 0;
  LocalComm::Run(ranks, [&](std::shared_ptr<Comm> const& local) {
    std::shared_ptr<Comm> const comm = movesRuns ? local : std::make_shared<PlainComm>(local);
    Rng rng(data + 2, size - 2);  // the same choices on every rank
    if (kind < 2)
      RunFitting(rng, comm);
    else if (kind == 2)
      RunSpoiled<float, int>(rng, comm);
    else
      RunSpoiled<std::complex<double>, long>(rng, comm);
  });
  return 0;
}
