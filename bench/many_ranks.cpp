// Measures a small gather and a small update between the ranks of one process, from 2 ranks to
// far more than there are processors. There is almost no data, so the time is that of the
// meeting of the ranks and of the exchange of their records.

#include "bench/runner.h"
#include "pavex/comm/local_comm.h"
#include "pavex/pavex.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

namespace Pavex::Bench {
namespace {

// The times of one operation of all ranks, measured on rank 0.
struct Times {
  double barrier = 0;
  double gather = 0;
  double update = 0;
};

// Measures operations that every rank repeats so many times. Every rank holds 4 entries of a
// sparse matrix.
Times TimesOf(Runner& runner, int ranks, int repetitions) {
  Times times;
  std::atomic<int> failed{0};
  LocalComm::Run(ranks, [&](std::shared_ptr<Comm> const& comm) {
    int index[] = {0, 1, 2, 3};
    double values[] = {1, 2, 3, 4};
    auto piece = MatrixCOO<double, int>::Borrow(8, 8, 4, index, index, values);
    piece.PlaceIn(8, 8, MatrixPartition::NonzeroWise());
    MemoryPool pool;
    Aggregator<double, int> aggregator(&pool);
    auto const median = [&](std::function<PavexStatus()> const& operation) {
      return MedianSeconds(repetitions, [&] { failed += operation() != STATUS_OK; });
    };
    double const barrier = median([&] { return comm->Barrier(); });
    double const gather = median([&] { return aggregator.Gather(comm, piece, true); });
    double const update = median([&] { return aggregator.Update(piece); });
    if (comm->Rank() != 0) return;
    times = {barrier, gather, update};
    failed += aggregator.Target()->NNZ() != 4L * ranks;
  });
  runner.Expect(failed == 0, "every operation succeeds");
  return times;
}

void Measure(Runner& runner, int ranks, int repetitions, std::string const& limit) {
  Times const times = TimesOf(runner, ranks, repetitions);
  std::string const label = " of 4 entries each, " + std::to_string(ranks) + " ranks, median";
  runner.Report("barrier, " + std::to_string(ranks) + " ranks, median", times.barrier * 1e6,
                "us");
  runner.Report("gather" + label + limit, times.gather * 1e6, "us");
  runner.Report("update" + label, times.update * 1e6, "us");
}

}  // namespace
}  // namespace Pavex::Bench

int main(int argc, char** argv) {
  using namespace Pavex::Bench;
  Runner runner("many_ranks", "Small operations between many ranks of one process (LocalComm)");
  runner.Parse(argc, argv);

  Measure(runner, 2, 20000, "");
  Measure(runner, 4, 5000, "");
  Measure(runner, 8, 2000, "");
  Measure(runner, 300, 20, "");
  Measure(runner, 1000, 10, " (at most 150000)");
  return runner.Finish();
}
