// Measures a gather over MPI, in multiples of hand-written MPI calls that move the same bytes
// and build the same lengths, offsets and counts. Run it under the launcher, see run.sh.

#include "bench/mpi_team.h"
#include "bench/runner.h"
#include "bench/seven_point.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <vector>

namespace Pavex::Bench {
namespace {

// The hand-written gather of a band to rank 0 or to all. Its arrays stay warm.
class HandWritten {
 public:
  HandWritten(SevenPointBand const& band, bool toAll)
      : mBand(band), mToAll(toAll), mReceives(toAll || Rank() == 0) {}

  void Gather() {
    ExchangeRecords();
    GatherOffsets();
    Reserve(mCol, mEntries);
    GatherArray(mBand.col.data(), mBand.col.size(), mCol.get(), MPI_INT);
    Reserve(mValues, mEntries);
    GatherArray(mBand.values.data(), mBand.values.size(), mValues.get(), MPI_DOUBLE);
  }

  void Update() {
    GatherArray(mBand.values.data(), mBand.values.size(), mValues.get(), MPI_DOUBLE);
  }

 private:
  template <typename E>
  void Reserve(std::unique_ptr<E[]>& array, long size) {
    if (mReceives && !array) array.reset(new E[static_cast<std::size_t>(size)]);
  }

  void ExchangeRecords() {
    mRecords.resize(static_cast<std::size_t>(Size()));
    MatrixLocalInfo& mine = mRecords[static_cast<std::size_t>(Rank())];
    mine.rows = static_cast<long>(mBand.ptr.size()) - 1;
    mine.partition.begin = mBand.begin;
    mine.nnz = static_cast<long>(mBand.col.size());
    MPI_Allgather(MPI_IN_PLACE, 0, MPI_BYTE, mRecords.data(), sizeof(MatrixLocalInfo), MPI_BYTE,
                  MPI_COMM_WORLD);
    mCounts.clear();
    mDispls.clear();
    mEntries = 0;
    for (MatrixLocalInfo const& record : mRecords) {
      mCounts.push_back(static_cast<int>(record.nnz));
      mDispls.push_back(static_cast<int>(mEntries));
      mEntries += record.nnz;
    }
  }

  void GatherOffsets() {
    mRows.clear();
    mBegins.clear();
    for (MatrixLocalInfo const& record : mRecords) {
      mRows.push_back(static_cast<int>(record.rows));
      mBegins.push_back(static_cast<int>(record.partition.begin));
    }
    mLengths.resize(mBand.ptr.size() - 1);
    for (std::size_t i = 0; i < mLengths.size(); ++i)
      mLengths[i] = mBand.ptr[i + 1] - mBand.ptr[i];
    Reserve(mPtr, mBand.points + 1);
    GatherTo(mLengths.data(), mLengths.size(), mPtr.get(), mRows.data(), mBegins.data(),
             MPI_INT);
    if (!mReceives) return;
    int sum = 0;
    for (long i = 0; i < mBand.points; ++i) {
      int const length = mPtr[static_cast<std::size_t>(i)];
      mPtr[static_cast<std::size_t>(i)] = sum;
      sum += length;
    }
    mPtr[static_cast<std::size_t>(mBand.points)] = sum;
  }

  void GatherArray(void const* from, std::size_t count, void* to, MPI_Datatype type) {
    GatherTo(from, count, to, mCounts.data(), mDispls.data(), type);
  }

  void GatherTo(void const* from, std::size_t count, void* to, int const* counts,
                int const* displs, MPI_Datatype type) {
    int const sent = static_cast<int>(count);
    if (mToAll) {
      MPI_Allgatherv(from, sent, type, to, counts, displs, type, MPI_COMM_WORLD);
    } else {
      MPI_Gatherv(from, sent, type, to, counts, displs, type, 0, MPI_COMM_WORLD);
    }
  }

  SevenPointBand const& mBand;
  bool mToAll;
  bool mReceives;
  std::vector<MatrixLocalInfo> mRecords;
  std::vector<int> mCounts;
  std::vector<int> mDispls;
  std::vector<int> mRows;
  std::vector<int> mBegins;
  std::vector<int> mLengths;
  long mEntries = 0;
  std::unique_ptr<int[]> mPtr;
  std::unique_ptr<int[]> mCol;
  std::unique_ptr<double[]> mValues;
};

// The repeated operations: gathers, updates of one gathered matrix, or both in turn.
struct Kind {
  char const* name;
  bool gathers;
  bool updates;
  bool toAll;
};
constexpr Kind kKinds[] = {{"gathers", true, false, false},
                           {"updates", false, true, false},
                           {"gather, update", true, true, false},
                           {"gathers to all", true, false, true},
                           {"updates to all", false, true, true}};

// The greatest allowed ratios over shared memory, by the column of kKinds: below 16, from 16
// on, from 64 on, from 160 on.
constexpr double kNodeLimits[][4] = {{0.60, 0.65, 0.55, 0.40},
                                     {0.40, 0.50, 0.50, 0.38},
                                     {0.60, 0.65, 0.55, 0.40},
                                     {0.50, 0.80, 0.60, 0.42},
                                     {0.40, 0.50, 0.50, 0.38}};

double NodeLimit(long n, Kind const& kind) {
  double const* const limits = kNodeLimits[&kind - kKinds];
  if (n < 16) return limits[0];
  if (n < 64) return limits[1];
  return limits[n < 160 ? 2 : 3];
}

constexpr long kEdges[] = {8, 12, 16, 24, 32, 48, 64, 96, 160};

// The greatest allowed ratio of a repetition.
double Limit(long n) {
  if (n <= 8) return 1.25;
  return n < 64 ? 1.15 : 1.05;
}

void MeasureOperator(Runner* runner, long n, Kind const& kind) {
  SevenPointBand const band(n, Rank(), Size());
  MpiGatherer overMpi;
  NodeGatherer overNode;
  HandWritten hand(band, kind.toAll);
  auto const gather = [&](auto& gatherer) { gatherer.Gather(band.csr, kind.toAll); };
  gather(overMpi);
  gather(overNode);
  hand.Gather();

  // A small gather takes microseconds: many of them make one repetition.
  long const count = std::max(1L, 1000000 / (n * n * n));
  Team team;
  auto const byHand = team.Add([&] {
    for (long i = 0; i < count; ++i) {
      if (kind.gathers) hand.Gather();
      if (kind.updates) hand.Update();
    }
  });
  auto const repeat = [&](auto& gatherer) {
    return team.Add([&] {
      for (long i = 0; i < count; ++i) {
        if (kind.gathers) gather(gatherer);
        if (kind.updates) gatherer.Update(band.csr);
      }
    });
  };
  auto const byMpi = repeat(overMpi);
  auto const byNode = repeat(overNode);

  if (runner == nullptr) {
    team.Follow();
    return;
  }
  char label[64];
  double const megabytes = static_cast<double>(7 * n * n * n) * 12e-6;
  std::snprintf(label, sizeof label, "n = %ld, %.3g MB, %ld x", n, megabytes, count);
  runner->Compare(
      label, {std::string("MPI ") + kind.name, byHand},
      {{"MpiComm", byMpi, AtMost(Limit(n))}, {"NodeComm", byNode, AtMost(NodeLimit(n, kind))}});
  Team::Dismiss();
  runner->Expect(overMpi.correct && overNode.correct,
                 "every operation succeeds, n = " + std::to_string(n));
}

// Lets the system make, and clear, huge pages for `bytes` bytes.
void MakePages(std::size_t bytes) {
  constexpr std::size_t kHuge = std::size_t{2} << 20;
  void* const mapped =
      mmap(nullptr, bytes + kHuge, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return;
  madvise(mapped, bytes + kHuge, MADV_HUGEPAGE);
  for (std::size_t at = 0; at < bytes; at += kHuge / 512)
    static_cast<unsigned char volatile*>(mapped)[at] = 1;
  munmap(mapped, bytes + kHuge);
}

// Measures the first gather of an application, into new arrays on both sides, and what memory
// alone takes: each process makes the pages of its piece, then a gather goes into warm arrays.
void MeasureFirst(Runner* runner, long n, bool toAll) {
  SevenPointBand const band(n, Rank(), Size());
  MpiGatherer overMpi;
  NodeGatherer overNode;
  HandWritten hand(band, toAll);
  hand.Gather();
  overMpi.Gather(band.csr, toAll);
  overNode.Gather(band.csr, toAll);
  std::size_t const bytes = 4 * band.ptr.size() + 12 * band.col.size();
  Team team;
  auto const handFresh = team.Add([&] { HandWritten(band, toAll).Gather(); });
  auto const first = team.Add([&] { overMpi.GatherFresh(band.csr, toAll); });
  auto const repeated = team.Add([&] { overMpi.Gather(band.csr, toAll); });
  auto const handWarm = team.Add([&] { hand.Gather(); });
  auto const nodeFirst = team.Add([&] { overNode.GatherFresh(band.csr, toAll); });
  auto const pagesAndGather = team.Add([&] {
    MakePages(bytes);
    overNode.Gather(band.csr, toAll);
  });

  if (runner == nullptr) {
    team.Follow();
    return;
  }
  std::string const label =
      std::string(toAll ? "CSR to all" : "CSR to rank 0") + ", n = " + std::to_string(n);
  runner->Compare(label, {"fresh arrays", handFresh},
                  {{"first", first, AtMost(0.6)}, {"repeated", repeated, AtMost(0.4)}});
  runner->Compare(
      label, {"warm MPI calls", handWarm},
      {{"first, NodeComm", nodeFirst, AtMost(1.0)}, {"pages, repeated", pagesAndGather}});
  Team::Dismiss();
  runner->Expect(overMpi.correct && overNode.correct, "every first gather succeeds");
}

// Measures how fast all processes together copy the bytes of an update, each its piece into an
// array of its own: what the memory of the machine allows.
void MeasureCopies(Runner* runner, long n) {
  SevenPointBand const band(n, Rank(), Size());
  NodeGatherer overNode;
  overNode.Gather(band.csr);
  HandWritten hand(band, false);
  hand.Gather();
  std::vector<double> copy(band.values.size());
  Team team;
  auto const byHand = team.Add([&] { hand.Update(); });
  auto const byNode = team.Add([&] { overNode.Update(band.csr); });
  auto const byCopies = team.Add([&] {
    std::memcpy(copy.data(), band.values.data(), copy.size() * sizeof(double));
    MPI_Barrier(MPI_COMM_WORLD);
  });

  if (runner == nullptr) {
    team.Follow();
    return;
  }
  runner->Compare("update to rank 0, n = " + std::to_string(n), {"MPI calls", byHand},
                  {{"NodeComm", byNode}, {"memcpy by all at once", byCopies}});
  Team::Dismiss();
  runner->Expect(overNode.correct, "every update succeeds");
}

// Measures the way of row bands of a column-major matrix to rank 0 and back. The baseline moves
// packed pieces by MPI and copies them into place run by run.
void MeasureDense(Runner* runner, long rows, long cols, double nodeLimit) {
  long const begin = rows * Rank() / Size();
  long const mine = rows * (Rank() + 1) / Size() - begin;
  std::vector<double> values(static_cast<std::size_t>(mine * cols), 1.0 + Rank());
  auto local = MatrixDense<double, int>::Borrow(mine, cols, false, mine, values.data());
  local.PlaceIn(rows, cols, MatrixPartition::RowWise(begin));

  MpiGatherer root;
  NodeGatherer node;
  std::vector<int> counts;
  std::vector<int> displs;
  for (int p = 0; p < Size(); ++p) {
    displs.push_back(static_cast<int>(rows * p / Size() * cols));
    counts.push_back(static_cast<int>((rows * (p + 1) / Size() - rows * p / Size()) * cols));
  }
  auto const whole = static_cast<std::size_t>(Rank() == 0 ? rows * cols : 0);
  std::vector<double> packed(whole);
  std::vector<double> global(whole);
  auto const forEachRun = [&](auto const& copy) {
    if (Rank() != 0) return;
    for (int p = 0; p < Size(); ++p) {
      long const from = rows * p / Size();
      long const length = rows * (p + 1) / Size() - from;
      for (long j = 0; j < cols; ++j)
        copy(global.data() + j * rows + from, packed.data() + from * cols + j * length,
             static_cast<std::size_t>(length) * sizeof(double));
    }
  };
  int const sent = static_cast<int>(values.size());

  Team team;
  auto const handGather = team.Add([&] {
    MPI_Gatherv(values.data(), sent, MPI_DOUBLE, packed.data(), counts.data(), displs.data(),
                MPI_DOUBLE, 0, MPI_COMM_WORLD);
    forEachRun([](double* to, double const* from, std::size_t n) { std::memcpy(to, from, n); });
  });
  auto const gather = team.Add([&] { root.Gather(local); });
  auto const nodeGather = team.Add([&] { node.Gather(local); });
  auto const handScatter = team.Add([&] {
    forEachRun([](double const* from, double* to, std::size_t n) { std::memcpy(to, from, n); });
    MPI_Scatterv(packed.data(), counts.data(), displs.data(), MPI_DOUBLE, values.data(), sent,
                 MPI_DOUBLE, 0, MPI_COMM_WORLD);
  });
  auto const scatter = team.Add([&] { root.Expect(root.aggregator.Scatter(local)); });
  auto const nodeScatter = team.Add([&] { node.Expect(node.aggregator.Scatter(local)); });

  if (runner == nullptr) {
    team.Follow();
    return;
  }
  std::string const label = std::to_string(rows) + " x " + std::to_string(cols);
  runner->Compare(
      "dense to rank 0, " + label, {"MPI calls", handGather},
      {{"MpiComm", gather, AtMost(1.0)}, {"NodeComm", nodeGather, AtMost(nodeLimit)}});
  runner->Compare(
      "dense back, " + label, {"MPI calls", handScatter},
      {{"MpiComm", scatter, AtMost(1.0)}, {"NodeComm", nodeScatter, AtMost(nodeLimit)}});
  Team::Dismiss();
  runner->Expect(root.correct && node.correct, "every dense operation succeeds");
}

int Main(int argc, char** argv) {
  std::int64_t n = 160;
  Runner runner(FileName("mpi_gather"),
                "Gathers over " + MpiName() + " on " + std::to_string(Size()) + " processes");
  runner.Option("n", n, "points along each edge of the 7-point operator, at most");
  if (Rank() == 0) runner.Parse(argc, argv);
  MPI_Bcast(&n, 1, MPI_INT64_T, 0, MPI_COMM_WORLD);

  Runner* const mine = Rank() == 0 ? &runner : nullptr;
  for (Kind const& kind : kKinds)
    for (long const edge : kEdges)
      if (edge <= n) MeasureOperator(mine, edge, kind);
  MeasureCopies(mine, n);
  MeasureFirst(mine, n, false);
  MeasureFirst(mine, n, true);
  MeasureDense(mine, 262144, 32, 0.35);
  MeasureDense(mine, 512, 4096, 0.5);
  return Rank() == 0 ? runner.Finish() : 0;
}

}  // namespace
}  // namespace Pavex::Bench

int main(int argc, char** argv) {
  return Pavex::Bench::RunOverMpi(argc, argv, Pavex::Bench::Main);
}
