// Repeated operations request nothing from the system from the third repetition on.

#include "pavex/aggregator/aggregator.h"
#include "pavex/comm/local_comm.h"
#include "pavex/runtime/memory_pool.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace Pavex {
namespace {

constexpr int kRanks = 2;
constexpr std::size_t kSlack = std::size_t{4} << 20;

// Blocks that are not kept cause the same page faults in every run. Other faults happen once,
// for code that runs for the first time, such as waiting for a slower rank, and for pages that
// the system moves. So the tests repeat a run.
constexpr int kRuns = 3;

// Counts the calls in which the pool takes a block from the system or gives memory back to it.
// Only then the number of its blocks or bytes changes. An exchange of a block for another one
// of the same size would not count, but the pool would use that block instead.
class TrafficPool : public MemoryPool {
 public:
  PavexStatus Allocate(void** block, std::size_t bytes) override {
    return Watch(bytes, [&] { return MemoryPool::Allocate(block, bytes); });
  }
  void Deallocate(void* block, std::size_t bytes) override {
    Watch(bytes, [&] {
      MemoryPool::Deallocate(block, bytes);
      return STATUS_OK;
    });
  }

  long Traffic() const { return mTraffic; }
  bool ExceededItsLimit() const { return mExceeded; }

 private:
  template <typename Call>
  PavexStatus Watch(std::size_t bytes, Call const& call) {
    std::size_t const blocks = BlocksInUse() + BlocksCached();
    std::size_t const held = BytesInUse() + BytesCached();
    PavexStatus const status = call();
    if (bytes > 0 &&
        (BlocksInUse() + BlocksCached() != blocks || BytesInUse() + BytesCached() != held))
      ++mTraffic;
    std::size_t const peak = PeakBytesInUse();
    mExceeded |= BytesInUse() + BytesCached() > peak + peak / 2 + kSlack;
    return status;
  }

  long mTraffic = 0;
  bool mExceeded = false;
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PAVEX_FAULTS_OF_OTHERS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PAVEX_FAULTS_OF_OTHERS 1
#endif
#endif

// AddressSanitizer keeps freed memory, so each repetition faults in other pages of the heap.
// ThreadSanitizer writes the actions of each thread into its own pages. With these sanitizers
// only the traffic of the pool counts.
long PageFaultsOfThisThread() {
#ifdef PAVEX_FAULTS_OF_OTHERS
  return 0;
#else
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_minflt + usage.ru_majflt;
#endif
}

enum Format { DENSE, COO, CSR, CSC };

// One rank's half of a full matrix of 16 columns: a band of rows or, in compressed columns, a
// band of columns.
struct Piece {
  std::vector<int> ptr;
  std::vector<int> row;
  std::vector<int> col;
  std::vector<double> values;
  std::unique_ptr<MatrixBase> matrix;

  Piece(Format format, long rows, int rank) {
    constexpr long kCols = 16;
    bool const byRows = format != CSC;
    long const mine = (byRows ? rows : kCols) / kRanks;
    long const run = byRows ? kCols : rows;
    auto const entries = static_cast<std::size_t>(mine * run);
    for (long i = 0; i <= mine; ++i)
      ptr.push_back(static_cast<int>(i * run));
    row.resize(entries);
    col.resize(entries);
    values.assign(entries, 1.0);
    long const r = byRows ? mine : rows;
    long const c = byRows ? kCols : mine;
    matrix = Borrow(format, r, c);
    matrix->PlaceIn(rows / kRanks * kRanks, kCols,
                    byRows ? MatrixPartition::RowWise(mine * rank)
                           : MatrixPartition::ColumnWise(mine * rank));
  }

  std::unique_ptr<MatrixBase> Borrow(Format format, long rows, long cols) {
    auto const entries = static_cast<long>(values.size());
    switch (format) {
      case DENSE:  // column-major bands of rows, whose values a receiver reorders
        return std::make_unique<MatrixDense<double, int>>(
            MatrixDense<double, int>::Borrow(rows, cols, false, rows, values.data()));
      case COO:
        return std::make_unique<MatrixCOO<double, int>>(MatrixCOO<double, int>::Borrow(
            rows, cols, entries, row.data(), col.data(), values.data()));
      case CSR:
        return std::make_unique<MatrixCSR<double, int>>(
            MatrixCSR<double, int>::Borrow(rows, cols, ptr.data(), col.data(), values.data()));
      case CSC:
        break;
    }
    return std::make_unique<MatrixCSC<double, int>>(
        MatrixCSC<double, int>::Borrow(rows, cols, ptr.data(), row.data(), values.data()));
  }
};

struct Matrix {
  Format format;
  long rows;
};

enum Operation { GATHER, UPDATE, SCATTER, GATHER_TO_ALL };

// The ranks of a job whose aggregators, one for each matrix, share the pool of their rank.
class Job {
 public:
  explicit Job(std::vector<Matrix> const& matrices) : mMatrices(matrices) {}

  // Runs the operations in a random order that starts with a gather of each matrix. Counts
  // faults and traffic from the third repetition of each operation on.
  void Run(std::vector<Operation> const& operations, unsigned seed) {
    LocalComm::Run(kRanks, [&](std::shared_ptr<Comm> const& comm) {
      TrafficPool pool;
      std::vector<std::unique_ptr<Piece>> pieces;
      std::vector<std::unique_ptr<Aggregator<double, int>>> aggregators;
      for (Matrix const& matrix : mMatrices) {
        pieces.push_back(std::make_unique<Piece>(matrix.format, matrix.rows, comm->Rank()));
        aggregators.push_back(std::make_unique<Aggregator<double, int>>(&pool));
      }
      std::vector<int> done(operations.size() * mMatrices.size());
      std::mt19937 random(seed);
      for (std::size_t step = 0; step < 12 * done.size(); ++step) {
        std::size_t const which = step < mMatrices.size() ? step : random() % mMatrices.size();
        std::size_t const what = step < mMatrices.size() ? 0 : random() % operations.size();
        Operation const operation = operations[what];
        if (operation == SCATTER && mMatrices[which].format != DENSE) continue;
        long const traffic = pool.Traffic();
        long const faults = PageFaultsOfThisThread();
        PavexStatus const status =
            Perform(operation, comm, *aggregators[which], *pieces[which]->matrix);
        long const newFaults = PageFaultsOfThisThread() - faults;
        if (status != STATUS_OK) ++mFailures;
        if (++done[which * operations.size() + what] < 3) continue;
        ++mCounted;
        mFaults += newFaults;
        mTraffic += pool.Traffic() - traffic;
      }
      if (pool.ExceededItsLimit()) ++mFailures;
    });
  }

  static PavexStatus Perform(Operation operation, std::shared_ptr<Comm> const& comm,
                             Aggregator<double, int>& aggregator, MatrixBase& local) {
    switch (operation) {
      case GATHER:
        return aggregator.Gather(comm, local, true);
      case UPDATE:
        return aggregator.Update(local);
      case SCATTER:
        return aggregator.Scatter(local);
      case GATHER_TO_ALL:
        break;
    }
    return aggregator.Allgather(comm, local, true);
  }

  long Counted() const { return mCounted; }
  long Failures() const { return mFailures; }
  long Faults() const { return mFaults; }
  long Traffic() const { return mTraffic; }

 private:
  std::vector<Matrix> mMatrices;
  std::atomic<long> mCounted{0};
  std::atomic<long> mFailures{0};
  std::atomic<long> mFaults{0};
  std::atomic<long> mTraffic{0};
};

void ExpectQuiet(std::vector<Matrix> const& matrices, std::vector<Operation> const& operations,
                 unsigned seed) {
  std::string label = "seed " + std::to_string(seed);
  for (Matrix const& matrix : matrices)
    label += ", format " + std::to_string(matrix.format) + " with " +
             std::to_string(matrix.rows) + " rows";
  long faults = 1;

  for (int run = 0; run < kRuns && faults > 0; ++run) {
    Job job(matrices);
    job.Run(operations, seed);
    faults = job.Faults();

    EXPECT_GT(job.Counted(), 0) << label;
    EXPECT_EQ(job.Failures(), 0) << label;
    EXPECT_EQ(job.Traffic(), 0) << label;
  }

  EXPECT_EQ(faults, 0) << label;
}

// Each row has 128 bytes of values, so the values are 4 KB to 25 MB.
constexpr long kRows[] = {32, 512, 2048, 4100, 8192, 20000, 33000, 70000, 200000};
constexpr Format kFormats[] = {DENSE, COO, CSR, CSC};

TEST(RepeatedGather, AsksNothingOfTheSystem) {
  for (Format const format : kFormats)
    for (long const rows : kRows)
      ExpectQuiet({{format, rows}}, {GATHER}, 1);
}

TEST(RepeatedGatherAndUpdate, AsksNothingOfTheSystem) {
  for (Format const format : kFormats)
    for (long const rows : kRows)
      ExpectQuiet({{format, rows}}, {GATHER, UPDATE}, 1);
}

TEST(RepeatedScatter, AsksNothingOfTheSystemBetweenGathersAndUpdates) {
  for (long const rows : kRows)
    ExpectQuiet({{DENSE, rows}}, {GATHER, UPDATE, SCATTER}, 1);
}

TEST(RepeatedGatherToAll, AsksNothingOfTheSystemBetweenOthers) {
  for (Format const format : kFormats)
    for (long const rows : {512L, 20000L, 70000L})
      ExpectQuiet({{format, rows}}, {GATHER, UPDATE, GATHER_TO_ALL}, 1);
}

// The second matrix has another size, so that none of its blocks is one of the first.
TEST(AggregatorsThatShareAPool, AskNothingOfTheSystem) {
  for (Format const format : {DENSE, CSR})
    for (long const rows : {2048L, 20000L, 70000L})
      for (long const percent : {99L, 70L, 40L})
        ExpectQuiet({{format, rows}, {format, rows * percent / 100}}, {GATHER, UPDATE, SCATTER},
                    1);
}

// The rank that only sends holds one packed piece at a time, so its limit is less than two
// pieces.
TEST(AggregatorsThatShareAPool, LendLargerBlocksWhereTheLimitLeavesNoRoomForNewOnes) {
  ExpectQuiet({{DENSE, 240000}, {DENSE, 230000}}, {GATHER, UPDATE, SCATTER}, 1);
}

TEST(AggregatorsThatShareAPool, AskNothingOfTheSystemForSeveralFormats) {
  for (unsigned seed = 1; seed < 5; ++seed)
    ExpectQuiet({{DENSE, 40000}, {CSC, 33000}}, {GATHER, UPDATE, SCATTER}, seed);
}

}  // namespace
}  // namespace Pavex
