// Measures a gather between the ranks of one process: bandwidth against memcpy by as many
// threads, latency, peak memory, and the cases that copy nothing. Warm buffers on both sides.

#include "bench/runner.h"
#include "bench/seven_point.h"
#include "pavex/comm/local_comm.h"
#include "pavex/pavex.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace Pavex::Bench {
namespace {

// One rank's row band in both sparse formats.
struct Band : SevenPointBand {
  std::vector<int> row;
  MatrixCOO<double, int> coo;

  Band(int n, int rank, int ranks) : SevenPointBand(n, rank, ranks) {
    for (std::size_t i = 0; i + 1 < ptr.size(); ++i)
      row.insert(row.end(), static_cast<std::size_t>(ptr[i + 1] - ptr[i]),
                 static_cast<int>(begin) + static_cast<int>(i));
    coo = MatrixCOO<double, int>::Borrow(csr.mRows, points, csr.NNZ(), row.data(), col.data(),
                                         values.data());
    coo.PlaceIn(points, points, MatrixPartition::RowWise(begin));
  }
};

// The ranks of a job with their pieces, pools and aggregators, which stay warm between the
// runs.
struct Job {
  std::vector<Band> bands;
  std::vector<MemoryPool> pools;
  std::vector<std::unique_ptr<Aggregator<double, int>>> aggregators;

  Job(int n, int ranks) : pools(static_cast<std::size_t>(ranks)) {
    bands.reserve(pools.size());
    for (int rank = 0; rank < ranks; ++rank) {
      bands.emplace_back(n, rank, ranks);
      aggregators.push_back(
          std::make_unique<Aggregator<double, int>>(&pools[static_cast<std::size_t>(rank)]));
    }
  }

  int Ranks() const { return static_cast<int>(bands.size()); }

  long Entries() const {
    long entries = 0;
    for (Band const& band : bands)
      entries += band.coo.NNZ();
    return entries;
  }

  // Runs `operation(comm, aggregator, band)` on every rank; false if any failed.
  template <typename Operation>
  bool Run(Operation operation) {
    std::vector<PavexStatus> statuses(bands.size(), STATUS_OK);
    LocalComm::Run(Ranks(), [&](std::shared_ptr<Comm> const& comm) {
      auto const rank = static_cast<std::size_t>(comm->Rank());
      statuses[rank] = operation(comm, *aggregators[rank], bands[rank]);
    });
    return std::all_of(statuses.begin(), statuses.end(),
                       [](PavexStatus status) { return status == STATUS_OK; });
  }
};

// The baseline: each of as many threads as ranks copies its share of the same arrays into warm
// memory.
class PlainCopy {
 public:
  explicit PlainCopy(Job const& job) : mJob(job), mTo(job.bands.size()) {}

  void Run(bool offsets, bool rows, bool cols, bool values) {
    std::vector<std::thread> threads;
    for (std::size_t rank = 0; rank < mTo.size(); ++rank) {
      threads.emplace_back([=] {
        Band const& band = mJob.bands[rank];
        Arrays& to = mTo[rank];
        if (offsets) Copy(band.ptr, to.ptr);
        if (rows) Copy(band.row, to.row);
        if (cols) Copy(band.col, to.col);
        if (values) Copy(band.values, to.values);
      });
    }
    for (std::thread& thread : threads)
      thread.join();
  }

 private:
  struct Arrays {
    std::vector<int> ptr;
    std::vector<int> row;
    std::vector<int> col;
    std::vector<double> values;
  };

  template <typename E>
  static void Copy(std::vector<E> const& from, std::vector<E>& to) {
    to.resize(from.size());
    std::memcpy(to.data(), from.data(), from.size() * sizeof(E));
  }

  Job const& mJob;
  std::vector<Arrays> mTo;
};

void MeasureBandwidth(Runner& runner, int n) {
  Job job(n, 4);
  PlainCopy copy(job);
  bool ok = true;
  std::string const label = "4 ranks, " + std::to_string(job.Entries()) + " entries";

  runner.Compare("COO gather, " + label, {"memcpy", [&] { copy.Run(false, true, true, true); }},
                 {{"Pavex",
                   [&] {
                     ok &= job.Run([](auto const& comm, auto& aggregator, Band& band) {
                       return aggregator.Gather(comm, band.coo, true);
                     });
                   },
                   1 / 0.8}});
  auto const peak = static_cast<long>(job.pools[0].PeakBytesInUse());
  long const needed = job.Entries() * 16 + 4L * 72 + 2L * 4 * 4;
  runner.Report("COO gather, receiver's peak over arrays, records and counts",
                static_cast<double>(peak - needed), "bytes");
  runner.Expect(peak == needed, "COO gather takes no byte more than it delivers and records");

  runner.Compare("CSR gather, " + label, {"memcpy", [&] { copy.Run(true, false, true, true); }},
                 {{"Pavex",
                   [&] {
                     ok &= job.Run([](auto const& comm, auto& aggregator, Band& band) {
                       return aggregator.Gather(comm, band.csr, true);
                     });
                   },
                   1 / 0.75}});
  runner.Compare("CSR update, " + label,
                 {"memcpy", [&] { copy.Run(false, false, false, true); }},
                 {{"Pavex",
                   [&] {
                     ok &= job.Run([](auto const& comm, auto& aggregator, Band& band) {
                       aggregator.SetComm(comm);
                       return aggregator.Update(band.csr);
                     });
                   },
                   1 / 0.85}});
  runner.Expect(ok, "every operation succeeds");
}

// Bands of a column-major matrix with 32 columns, one for each rank, and the whole. All arrays
// stay warm.
struct DenseJob {
  static constexpr long kCols = 32;

  std::vector<std::vector<double>> values;
  std::vector<std::vector<double>> copies;
  std::vector<MatrixDense<double, int>> bands;
  std::vector<MemoryPool> pools;
  std::vector<std::unique_ptr<Aggregator<double, int>>> aggregators;

  DenseJob(long rows, int ranks) : pools(static_cast<std::size_t>(ranks)) {
    for (int rank = 0; rank < ranks; ++rank) {
      long const begin = rows * rank / ranks;
      long const own = rows * (rank + 1) / ranks - begin;
      values.emplace_back(static_cast<std::size_t>(own * kCols), rank + 1.0);
      bands.push_back(
          MatrixDense<double, int>::Borrow(own, kCols, false, own, values.back().data()));
      bands.back().PlaceIn(rows, kCols, MatrixPartition::RowWise(begin));
      aggregators.push_back(
          std::make_unique<Aggregator<double, int>>(&pools[static_cast<std::size_t>(rank)]));
    }
    copies = values;
  }

  // Runs `operation(comm, rank)` on every rank; false if any failed.
  template <typename Operation>
  bool Run(Operation operation) {
    std::atomic<int> failed{0};
    LocalComm::Run(static_cast<int>(values.size()), [&](std::shared_ptr<Comm> const& comm) {
      failed += operation(comm, static_cast<std::size_t>(comm->Rank())) != STATUS_OK;
    });
    return failed == 0;
  }
};

// Compares bands that go to their places in columns, and back, with as many copies of the same
// bytes in one piece, with a barrier before and after each.
void MeasureDense(Runner& runner, long rows) {
  DenseJob job(rows, 2);
  long const count = std::max(1L, (1L << 21) / (rows * DenseJob::kCols));
  bool ok = job.Run([&](auto const& comm, std::size_t rank) {
    return job.aggregators[rank]->Gather(comm, job.bands[rank], true);
  });
  auto const copy = [&] {
    ok &= job.Run([&](auto const& comm, std::size_t rank) {
      PavexStatus status = STATUS_OK;
      for (long i = 0; i < count && status == STATUS_OK; ++i) {
        status = comm->Barrier();
        std::memcpy(job.copies[rank].data(), job.values[rank].data(),
                    job.values[rank].size() * sizeof(double));
        if (status == STATUS_OK) status = comm->Barrier();
      }
      return status;
    });
  };
  auto const repeat = [&](auto const& operation) {
    ok &= job.Run([&](auto const& comm, std::size_t rank) {
      auto& aggregator = *job.aggregators[rank];
      aggregator.SetComm(comm);
      PavexStatus status = STATUS_OK;
      for (long i = 0; i < count && status == STATUS_OK; ++i)
        status = operation(comm, aggregator, job.bands[rank]);
      return status;
    });
  };
  std::string const label = std::to_string(rows) + " x 32, " + std::to_string(count) + " x";
  runner.Compare("dense gather, " + label, {"memcpy", copy},
                 {{"Pavex", [&] {
                     repeat([](auto const& comm, auto& aggregator, auto& band) {
                       return aggregator.Gather(comm, band, true);
                     });
                   }}});
  runner.Compare("dense update, " + label, {"memcpy", copy},
                 {{"Pavex", [&] {
                     repeat([](auto const&, auto& aggregator, auto& band) {
                       return aggregator.Update(band);
                     });
                   }}});
  runner.Compare("dense scatter, " + label, {"memcpy", copy},
                 {{"Pavex", [&] {
                     repeat([](auto const&, auto& aggregator, auto& band) {
                       return aggregator.Scatter(band);
                     });
                   }}});
  runner.Expect(ok, "every dense operation succeeds");
}

// The repeated operations: gathers, updates of one gathered matrix, or both in turn.
struct Kind {
  char const* name;
  bool gathers;
  bool updates;
};
constexpr Kind kKinds[] = {
    {"gathers", true, false}, {"updates", false, true}, {"gather, update", true, true}};

constexpr int kEdges[] = {8, 12, 16, 24, 32, 48, 64, 96, 160};

// The greatest allowed ratio of a repetition.
double Limit(int n) {
  if (n <= 8) return 1.25;
  return n < 64 ? 1.15 : 1.05;
}

// Does the same work by hand, into arrays that stay warm: by plain copies with barriers, or by
// the calls of the communicator that a careful program would make.
class ByHand {
 public:
  explicit ByHand(Job& job)
      : mJob(job),
        mRecords(job.bands.size()),
        mPtr(static_cast<std::size_t>(job.bands[0].points + 1)),
        mCol(static_cast<std::size_t>(job.Entries())),
        mValues(mCol.size()) {
    for (Band const& band : job.bands) {
      mRows.push_back(static_cast<int>(band.csr.mRows));
      mBegins.push_back(static_cast<int>(band.begin));
      mCounts.push_back(static_cast<int>(band.col.size()));
      mDispls.push_back(mDispls.empty() ? 0 : mDispls.back() + mCounts[mDispls.size() - 1]);
    }
  }

  // Copies with a barrier before and after each operation, and in a gather one more around the
  // sums of the rows' lengths.
  bool Copy(Kind const& kind, long times) {
    return Run([&](Comm const& comm, std::size_t rank) {
      for (long i = 0; i < times; ++i) {
        if (kind.gathers) CopyPattern(comm, rank);
        if (kind.gathers) CopyValues(comm, rank);
        if (kind.updates) CopyValues(comm, rank);
      }
    });
  }

  // An exchange of the records and one Gatherv to rank 0 for each array.
  bool Call(Kind const& kind, long times) {
    return Run([&](Comm const& comm, std::size_t rank) {
      std::vector<int> lengths(mJob.bands[rank].ptr.size() - 1);
      std::vector<MatrixLocalInfo> records(mRecords.size());
      for (long i = 0; i < times; ++i) {
        if (kind.gathers) GatherPattern(comm, rank, lengths, records);
        if (kind.gathers) GatherValues(comm, rank);
        if (kind.updates) GatherValues(comm, rank);
      }
    });
  }

 private:
  template <typename Work>
  bool Run(Work const& work) {
    LocalComm::Run(mJob.Ranks(), [&](std::shared_ptr<Comm> const& comm) {
      work(*comm, static_cast<std::size_t>(comm->Rank()));
    });
    return !mFailed;
  }

  void Expect(PavexStatus status) {
    if (status != STATUS_OK) mFailed = true;
  }

  void CopyPattern(Comm const& comm, std::size_t rank) {
    Band const& band = mJob.bands[rank];
    Expect(comm.Barrier());
    mRecords[rank].nnz = band.csr.NNZ();
    Expect(comm.Barrier());
    Lengths(band, mPtr.data() + band.begin);
    Expect(comm.Barrier());
    if (rank == 0) SumLengths();
    Expect(comm.Barrier());
    std::memcpy(mCol.data() + mDispls[rank], band.col.data(), band.col.size() * sizeof(int));
  }

  void CopyValues(Comm const& comm, std::size_t rank) {
    Band const& band = mJob.bands[rank];
    Expect(comm.Barrier());
    std::memcpy(mValues.data() + mDispls[rank], band.values.data(),
                band.values.size() * sizeof(double));
    Expect(comm.Barrier());
  }

  void GatherPattern(Comm const& comm, std::size_t rank, std::vector<int>& lengths,
                     std::vector<MatrixLocalInfo>& records) {
    Band const& band = mJob.bands[rank];
    records[rank].nnz = band.csr.NNZ();
    constexpr int kBytes = sizeof(MatrixLocalInfo);
    Expect(comm.Allgather(&Comm::IN_PLACE_OBJ, kBytes, DATATYPE_BYTE, records.data(), kBytes,
                          DATATYPE_BYTE));
    Lengths(band, lengths.data());
    Expect(comm.Gatherv(lengths.data(), mRows[rank], DATATYPE_INT, mPtr.data(), mRows.data(),
                        mBegins.data(), DATATYPE_INT, 0));
    if (rank == 0) SumLengths();
    Expect(comm.Gatherv(band.col.data(), mCounts[rank], DATATYPE_INT, mCol.data(),
                        mCounts.data(), mDispls.data(), DATATYPE_INT, 0));
  }

  void GatherValues(Comm const& comm, std::size_t rank) {
    Expect(comm.Gatherv(mJob.bands[rank].values.data(), mCounts[rank], DATATYPE_DOUBLE,
                        mValues.data(), mCounts.data(), mDispls.data(), DATATYPE_DOUBLE, 0));
  }

  static void Lengths(Band const& band, int* lengths) {
    for (std::size_t i = 0; i + 1 < band.ptr.size(); ++i)
      lengths[i] = band.ptr[i + 1] - band.ptr[i];
  }

  void SumLengths() { std::exclusive_scan(mPtr.begin(), mPtr.end(), mPtr.begin(), 0); }

  Job& mJob;
  std::vector<MatrixLocalInfo> mRecords;
  std::vector<int> mRows;
  std::vector<int> mBegins;
  std::vector<int> mCounts;
  std::vector<int> mDispls;
  std::vector<int> mPtr;
  std::vector<int> mCol;
  std::vector<double> mValues;
  std::atomic<bool> mFailed{false};
};

// Compares repeated operations of 2 ranks with copies of the same bytes by as many threads, and
// shows what the same calls of the communicator cost by hand.
void MeasureRepeated(Runner& runner, int n, Kind const& kind) {
  Job job(n, 2);
  ByHand hand(job);
  long const count = std::max(1L, 1000000 / (static_cast<long>(n) * n * n));
  auto const repeat = [&](Kind const& what, long times) {
    return job.Run([&](auto const& comm, auto& aggregator, Band& band) {
      aggregator.SetComm(comm);
      PavexStatus status = STATUS_OK;
      for (long i = 0; i < times && status == STATUS_OK; ++i) {
        if (what.gathers) status = aggregator.Gather(comm, band.csr, true);
        if (what.updates && status == STATUS_OK) status = aggregator.Update(band.csr);
      }
      return status;
    });
  };
  bool ok = repeat(kKinds[0], 1);
  char label[64];
  std::snprintf(label, sizeof label, "n = %d, %.3g MB, %ld x", n,
                static_cast<double>(job.Entries()) * 12e-6, count);
  runner.Compare(label,
                 {std::string("memcpy, ") + kind.name, [&] { ok &= hand.Copy(kind, count); }},
                 {{"same calls by hand", [&] { ok &= hand.Call(kind, count); }},
                  {"Pavex", [&] { ok &= repeat(kind, count); }, Limit(n)}});
  runner.Expect(ok, "every repeated operation succeeds");
}

void MeasureLatency(Runner& runner) {
  double median = 0;
  bool ok = true;
  LocalComm::Run(2, [&](std::shared_ptr<Comm> const& comm) {
    int index[] = {0, 1, 2, 3};
    double values[] = {1, 2, 3, 4};
    auto piece = MatrixCOO<double, int>::Borrow(8, 8, 4, index, index, values);
    piece.PlaceIn(8, 8, MatrixPartition::NonzeroWise());
    MemoryPool pool;
    Aggregator<double, int> aggregator(&pool);
    bool mine = true;
    double const time = MedianSeconds(
        20000, [&] { mine &= aggregator.Gather(comm, piece, true) == STATUS_OK; });
    if (comm->Rank() != 0) return;
    median = time * 1e6;
    ok = mine && aggregator.Target()->NNZ() == 8;
  });
  runner.Expect(ok, "gather of 8 entries succeeds");
  runner.Report("gather of 8 entries, 2 ranks, median (at most 15)", median, "us");
}

// Counts what a pool hands out.
class CountingPool : public MemoryPool {
 public:
  PavexStatus Allocate(void** block, std::size_t bytes) override {
    mBytes += bytes;
    return MemoryPool::Allocate(block, bytes);
  }
  std::size_t mBytes = 0;
};

void MeasureSingle(Runner& runner, int n) {
  Band band(n, 0, 1);
  auto const comm = std::make_shared<SelfComm>();
  CountingPool pool;
  Aggregator<double, int> aggregator(&pool);
  bool ok = aggregator.Gather(comm, band.csr, true) == STATUS_OK;
  runner.Expect(ok && pool.mBytes == sizeof(MatrixLocalInfo),
                "one process: nothing but its record is allocated");
  double const time =
      MedianSeconds(10000, [&] { ok &= aggregator.Gather(comm, band.csr, true) == STATUS_OK; });
  auto& whole = dynamic_cast<MatrixCSR<double, int>&>(*aggregator.Target());
  runner.Expect(ok && whole.mValues.mData == band.values.data(),
                "one process: nothing is copied");
  runner.Report(
      "gather of " + std::to_string(whole.NNZ()) + " entries, one process, median (at most 5)",
      time * 1e6, "us");
}

// Checks that a dense matrix that every rank holds whole is gathered to all and scattered back
// without a copy.
void CheckScatterInPlace(Runner& runner) {
  bool ok[2] = {};
  LocalComm::Run(2, [&](std::shared_ptr<Comm> const& comm) {
    std::vector<double> values(1 << 16, 1.0);
    auto whole = MatrixDense<double, int>::Borrow(256, 256, true, 256, values.data());
    CountingPool pool;
    Aggregator<double, int> aggregator(&pool);
    bool const done = aggregator.Allgather(comm, whole, true) == STATUS_OK &&
                      aggregator.Scatter(whole) == STATUS_OK;
    ok[comm->Rank()] = done && pool.mBytes == 2 * sizeof(MatrixLocalInfo);
  });
  runner.Expect(ok[0] && ok[1],
                "allgather then scatter of the whole allocates its records only");
}

}  // namespace
}  // namespace Pavex::Bench

int main(int argc, char** argv) {
  using namespace Pavex::Bench;
  std::int64_t n = 163;
  Runner runner("local_gather", "Gathers between the ranks of one process (LocalComm)");
  runner.Option("n", n, "points along each edge of the 7-point operator");
  runner.Parse(argc, argv);

  MeasureBandwidth(runner, static_cast<int>(n));
  for (Kind const& kind : kKinds)
    for (int const edge : kEdges)
      if (edge <= n) MeasureRepeated(runner, edge, kind);
  for (long const rows : {512L, 16384L, 262144L})
    MeasureDense(runner, rows);
  MeasureLatency(runner);
  MeasureSingle(runner, static_cast<int>(std::min<std::int64_t>(n, 64)));
  CheckScatterInPlace(runner);
  return runner.Finish();
}
