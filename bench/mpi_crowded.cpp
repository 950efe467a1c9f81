// Measures NodeComm in multiples of MpiComm where more processes run than there are cores. Run
// it under the launcher, see run.sh.

#include "bench/mpi_team.h"
#include "bench/runner.h"
#include "bench/seven_point.h"

#include <string>

namespace Pavex::Bench {
namespace {

enum class Kind { GATHER, UPDATE, ALLGATHER };

char const* NameOf(Kind kind) {
  if (kind == Kind::GATHER) return "CSR to rank 0";
  return kind == Kind::UPDATE ? "CSR update to rank 0" : "CSR to all";
}

// Runs `count` operations of the kind, one behind the other, on the band of the operator on
// n x n x n points.
void Measure(Runner* runner, long n, Kind kind, long count, double limit) {
  SevenPointBand const band(n, Rank(), Size());
  MpiGatherer overMpi;
  NodeGatherer overNode;
  overMpi.Gather(band.csr);
  overNode.Gather(band.csr);
  auto const repeat = [&](auto& gatherer) {
    for (long i = 0; i < count; ++i) {
      if (kind == Kind::UPDATE)
        gatherer.Update(band.csr);
      else
        gatherer.Gather(band.csr, kind == Kind::ALLGATHER);
    }
  };
  Team team;
  auto const byMpi = team.Add([&] { repeat(overMpi); });
  auto const byNode = team.Add([&] { repeat(overNode); });

  if (runner == nullptr) {
    team.Follow();
    return;
  }
  std::string const label = NameOf(kind) + std::string(", n = ") + std::to_string(n) + ", " +
                            std::to_string(count) + " x";
  runner->Compare(label, {"MpiComm", byMpi}, {{"NodeComm", byNode, AtMost(limit)}});
  Team::Dismiss();
  runner->Expect(overMpi.correct && overNode.correct, "every operation succeeds, " + label);
}

int Main(int argc, char** argv) {
  Runner runner(FileName("mpi_crowded_" + std::to_string(Size())),
                "Gathers over " + MpiName() + " on " + std::to_string(Size()) + " processes");
  if (Rank() == 0) runner.Parse(argc, argv);
  Runner* const mine = Rank() == 0 ? &runner : nullptr;
  for (Kind const kind : {Kind::GATHER, Kind::UPDATE})
    Measure(mine, 64, kind, 5, 0.6);
  // Processes of MPICH keep their core while they wait, so each message takes as long as the
  // turns of the others: a gather to all takes seconds, a tiny one as long as many over Open
  // MPI.
  if (kIsOpenMpi) Measure(mine, 64, Kind::ALLGATHER, 5, 0.6);
  // The pieces are so small that little but the meeting of the processes is measured. A
  // repetition is long enough for the system to move them between the cores several times.
  Measure(mine, 2, Kind::GATHER, kIsOpenMpi ? 2000 : 20, 1.1);
  return Rank() == 0 ? runner.Finish() : 0;
}

}  // namespace
}  // namespace Pavex::Bench

int main(int argc, char** argv) {
  return Pavex::Bench::RunOverMpi(argc, argv, Pavex::Bench::Main);
}
