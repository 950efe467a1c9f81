// Measures the moves between the communication and the global layout of a dense matrix, in
// multiples of one memcpy of the same bytes. A plain walk, piece by piece and run by run, is
// measured too. One thread, warm buffers.

#include "pavex/aggregator/dense_reorder.h"

#include "bench/runner.h"

#include <cstring>
#include <string>
#include <vector>

namespace Pavex::Bench {
namespace {

// `pieces` equal pieces of a row-major matrix, cut by columns.
class Shape {
 public:
  Shape(int pieces, long length, long bytes)
      : mPieces(pieces),
        mLength(length),
        mRuns(bytes / (Ld() * static_cast<long>(sizeof(double)))),
        mRecords(static_cast<std::size_t>(pieces)) {
    for (MatrixLocalInfo& record : mRecords) {
      record.rows = mRuns;
      record.cols = mLength;
    }
    mInfos.Borrow(mRecords.data(), pieces);
  }

  std::string Label() const {
    return std::to_string(mPieces) + " pieces, runs of " + std::to_string(mLength);
  }
  std::size_t Bytes() const { return static_cast<std::size_t>(Ld() * mRuns) * sizeof(double); }

  void Gather(double const* comm, double* global) const {
    CommToGlobal(sizeof(double), mInfos, mPieces, true, Ld(), comm, global);
  }
  void Scatter(double const* global, double* comm) const {
    GlobalToComm(sizeof(double), mInfos, mPieces, true, Ld(), global, comm);
  }
  void GatherPlainly(double const* comm, double* global) const {
    ForEachRun(
        [&](long c, long g, std::size_t bytes) { std::memcpy(global + g, comm + c, bytes); });
  }
  void ScatterPlainly(double const* global, double* comm) const {
    ForEachRun(
        [&](long c, long g, std::size_t bytes) { std::memcpy(comm + c, global + g, bytes); });
  }

 private:
  long Ld() const { return mPieces * mLength; }

  template <typename Move>
  void ForEachRun(Move move) const {
    std::size_t const bytes = static_cast<std::size_t>(mLength) * sizeof(double);
    for (long p = 0; p < mPieces; ++p)
      for (long k = 0; k < mRuns; ++k)
        move((p * mRuns + k) * mLength, p * mLength + k * Ld(), bytes);
  }

  int mPieces;
  long mLength;
  long mRuns;
  std::vector<MatrixLocalInfo> mRecords;
  Buffer<MatrixLocalInfo> mInfos;
};

struct Arrays {
  explicit Arrays(std::size_t size) : source(size), moved(size), expected(size) {
    for (std::size_t i = 0; i < size; ++i)
      source[i] = static_cast<double>(i);
  }
  std::vector<double> source;
  std::vector<double> moved;
  std::vector<double> expected;
};

double GatherLimit(int pieces, long length) {
  if (length >= 4096) return 1.3;
  if (length >= 64) return 1.8;
  return pieces <= 4 ? 2.5 : 4;
}

void Measure(Runner& runner, Shape const& shape, Arrays& arrays, double gatherLimit) {
  double const* const source = arrays.source.data();
  double* const moved = arrays.moved.data();
  double* const expected = arrays.expected.data();
  auto const check = [&](std::string const& label, Subject const& ours) {
    ours.run();  // memcpy may have written there last
    runner.Expect(std::memcmp(moved, expected, shape.Bytes()) == 0, label);
  };
  Subject const copy{"memcpy", [&] { std::memcpy(moved, source, shape.Bytes()); }};

  std::string const gatherLabel = "gather,  " + shape.Label();
  Subject const gather{"Pavex", [&] { shape.Gather(source, moved); }, gatherLimit};
  runner.Compare(gatherLabel, copy,
                 {{"plain walk", [&] { shape.GatherPlainly(source, expected); }}, gather});
  check(gatherLabel, gather);

  std::string const scatterLabel = "scatter, " + shape.Label();
  Subject const scatter{"Pavex", [&] { shape.Scatter(source, moved); }};
  runner.Compare(scatterLabel, copy,
                 {{"plain walk", [&] { shape.ScatterPlainly(source, expected); }}, scatter});
  check(scatterLabel, scatter);
}

}  // namespace
}  // namespace Pavex::Bench

int main(int argc, char** argv) {
  using namespace Pavex::Bench;
  std::int64_t mebibytes = 256;
  Runner runner("dense_reorder", "Dense reordering of doubles, in multiples of one memcpy");
  runner.Option("mib", mebibytes, "MiB of each array");
  runner.Parse(argc, argv);

  long const bytes = mebibytes << 20;
  Arrays arrays(static_cast<std::size_t>(bytes) / sizeof(double));
  for (int const pieces : {2, 4, 64, 512})
    for (long const length : {1, 2, 4, 8, 64, 4096})
      Measure(runner, Shape(pieces, length, bytes), arrays, GatherLimit(pieces, length));
  return runner.Finish();
}
