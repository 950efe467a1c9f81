// Measures what it costs to put a matrix together from pieces that an Aggregator does not take:
// bands with idle ranks and another receiver against the plain gather, and overlapping elements
// against a coordinate gather of the same entries with one pass over them, and against Eigen.
// Warm pools on both sides; ranks are threads.

#include "bench/runner.h"
#include "pavex/comm/local_comm.h"
#include "pavex/pavex.h"

#ifdef PAVEX_BENCH_EIGEN
#include <Eigen/SparseCore>
#endif

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace Pavex::Bench {
namespace {

using Whole = Assembler<double, int>;
using Plain = Aggregator<double, int>;
using Piece = Contribution<double, int>;

// Runs `body(comm)` on `ranks` threads; false if any failed.
bool OnRanks(int ranks, std::function<PavexStatus(std::shared_ptr<Comm> const&)> const& body) {
  std::vector<PavexStatus> statuses(static_cast<std::size_t>(ranks), STATUS_OK);
  LocalComm::Run(ranks, [&](std::shared_ptr<Comm> const& comm) {
    statuses[static_cast<std::size_t>(comm->Rank())] = body(comm);
  });
  return std::count(statuses.begin(), statuses.end(), STATUS_OK) == ranks;
}

// What each rank keeps from job to job, with its pool.
template <typename State>
struct Ranks {
  std::vector<std::unique_ptr<MemoryPool>> pools;
  std::vector<std::unique_ptr<State>> states;

  explicit Ranks(int ranks) {
    for (int r = 0; r < ranks; ++r) {
      pools.push_back(std::make_unique<MemoryPool>());
      states.push_back(std::make_unique<State>(pools.back().get()));
    }
  }
  int Count() const { return static_cast<int>(states.size()); }
  State& Of(Comm const& comm) { return *states[static_cast<std::size_t>(comm.Rank())]; }
};

// A row band of the 7-point operator on n x n x n points.
struct Band {
  long begin;
  std::vector<int> ptr{0};
  std::vector<int> col;
  std::vector<double> values;

  Band(int n, int part, int parts) {
    long const points = static_cast<long>(n) * n * n;
    begin = points * part / parts;
    long const end = points * (part + 1) / parts;
    long const steps[] = {-static_cast<long>(n) * n, -n, -1, 0, 1, n, static_cast<long>(n) * n};
    for (long i = begin; i < end; ++i) {
      for (long const step : steps) {
        if (i + step < 0 || i + step >= points) continue;
        col.push_back(static_cast<int>(i + step));
        values.push_back(static_cast<double>(step));
      }
      ptr.push_back(static_cast<int>(col.size()));
    }
  }
  long Rows() const { return static_cast<long>(ptr.size()) - 1; }
};

// One pass over columns, as the least that finding a wrong one takes.
long Pass(std::vector<int> const& cols) {
  int all = 0;
  for (int const col : cols)
    all |= col;
  return all;
}

// Four bands on ranks 0, 2, 3 and 5 of six, received by rank 3, against four on ranks 0 to 3.
void MeasureBands(Runner& runner, int n) {
  constexpr int kBands = 4;
  constexpr int kSeats[] = {0, -1, 1, 2, -1, 3};
  long const points = static_cast<long>(n) * n * n;
  std::vector<Band> bands;
  bands.reserve(kBands);
  for (int b = 0; b < kBands; ++b)
    bands.emplace_back(n, b, kBands);
  Ranks<Plain> plain(kBands);
  Ranks<Whole> whole(6);
  AssemblyRequest request;
  request.mRows = request.mCols = points;
  request.mReceiver = 3;
  bool ok = true;
  std::atomic<bool> inside{true};

  auto const pieceOf = [&](int rank) {
    Band& band = bands[static_cast<std::size_t>(rank)];
    auto piece = MatrixCSR<double, int>::Borrow(band.Rows(), points, band.ptr.data(),
                                                band.col.data(), band.values.data());
    piece.PlaceIn(points, points, MatrixPartition::RowWise(band.begin));
    return piece;
  };
  auto const bandOf = [&](int rank) {
    int const seat = kSeats[rank];
    return seat < 0 ? nullptr : &bands[static_cast<std::size_t>(seat)];
  };
  std::string const label = "bands of " + std::to_string(points) + " rows";
  runner.Compare("gather, " + label,
                 {"Aggregator",
                  [&] {
                    ok &= OnRanks(kBands, [&](auto const& comm) {
                      return plain.Of(*comm).Gather(comm, pieceOf(comm->Rank()), true);
                    });
                  }},
                 {{"and a pass",
                   [&] {
                     ok &= OnRanks(kBands, [&](auto const& comm) {
                       auto const& cols = bands[static_cast<std::size_t>(comm->Rank())].col;
                       if (Pass(cols) < 0) inside = false;
                       return plain.Of(*comm).Gather(comm, pieceOf(comm->Rank()), true);
                     });
                   }},
                  {"Assembler",
                   [&] {
                     ok &= OnRanks(6, [&](auto const& comm) {
                       Band const* const band = bandOf(comm->Rank());
                       Piece own;
                       if (band != nullptr)
                         own =
                             Piece::Band(band->begin, band->Rows())
                                 .Csr(band->ptr.data(), band->col.data(), band->values.data());
                       return whole.Of(*comm).Gather(comm, own, request);
                     });
                   },
                   1.1}});
  constexpr int kUpdates = 20;  // in a job, which starts its threads once
  runner.Compare(std::to_string(kUpdates) + " updates, " + label,
                 {"Aggregator",
                  [&] {
                    ok &= OnRanks(kBands, [&](auto const& comm) {
                      auto const piece = pieceOf(comm->Rank());
                      PavexStatus status = plain.Of(*comm).Gather(comm, piece, true);
                      for (int k = 0; k < kUpdates && status == STATUS_OK; ++k)
                        status = plain.Of(*comm).Update(piece);
                      return status;
                    });
                  }},
                 {{"Assembler",
                   [&] {
                     ok &= OnRanks(6, [&](auto const& comm) {
                       Band const* const band = bandOf(comm->Rank());
                       Piece own;
                       if (band != nullptr)
                         own =
                             Piece::Band(band->begin, band->Rows())
                                 .Csr(band->ptr.data(), band->col.data(), band->values.data());
                       PavexStatus status = whole.Of(*comm).Gather(comm, own, request);
                       for (int k = 0; k < kUpdates && status == STATUS_OK; ++k)
                         status = whole.Of(*comm).Update(own.Values(0));
                       return status;
                     });
                   },
                   1.1}});
  runner.Expect(ok && inside, "every operation of bands succeeds");
  runner.Expect(
      whole.states[3]->Whole() != nullptr && whole.states[3]->Path() == AssemblyPath::BANDS,
      "the bands arrive on rank 3");
}

// The numbers of the nodes of a mesh: along its sides, or drawn at random, as the worst that an
// unstructured mesh may have.
std::vector<int> NumberNodes(long nodes, bool random) {
  std::vector<int> numbers(static_cast<std::size_t>(nodes));
  std::iota(numbers.begin(), numbers.end(), 0);
  std::mt19937_64 engine(kSeed);
  if (random) std::shuffle(numbers.begin(), numbers.end(), engine);
  return numbers;
}

// The entries of some of the 8-node bricks of n x n x n elements, one element after the other.
struct Elements {
  std::vector<int> rows;
  std::vector<int> cols;
  std::vector<double> values;

  Elements(int n, int part, int parts, std::vector<int> const& numbers) {
    long const count = static_cast<long>(n) * n * n;
    for (long e = count * part / parts; e < count * (part + 1) / parts; ++e)
      Add(n + 1, static_cast<int>(e % n), static_cast<int>(e / n % n),
          static_cast<int>(e / n / n), numbers);
  }

  void Add(int side, int x, int y, int z, std::vector<int> const& numbers) {
    int nodes[8];
    for (int corner = 0; corner < 8; ++corner) {
      long const at[] = {x + (corner & 1), y + (corner >> 1 & 1), z + (corner >> 2)};
      nodes[corner] = numbers[static_cast<std::size_t>((at[2] * side + at[1]) * side + at[0])];
    }
    for (int i = 0; i < 8; ++i)
      for (int j = 0; j < 8; ++j) {
        rows.push_back(nodes[i]);
        cols.push_back(nodes[j]);
        values.push_back(i == j ? 7 : -1);
      }
  }
  long Count() const { return static_cast<long>(rows.size()); }
};

double Sum(double const* values, long count) {
  double sum = 0;
  for (long k = 0; k < count; ++k)
    sum += values[k];
  return sum;
}

// One pass over the gathered entries, as the least that an assembly of them takes.
long Pass(MatrixCOO<double, int> const& whole) {
  long rows = 0;
  long cols = 0;
  for (long k = 0; k < whole.mRowIdx.mSize; ++k) {
    rows += whole.mRowIdx.mData[k];
    cols += whole.mColIdx.mData[k];
  }
  return rows + cols + static_cast<long>(Sum(whole.mValues.mData, whole.mValues.mSize));
}

// The element job of each rank, gathered both ways.
struct ElementJob {
  static constexpr int kRanks = 4;
  static constexpr int kUpdates = 50;  // in a job, which starts its threads once
  long nodes;
  std::vector<Elements> elements;
  Ranks<Plain> plain{kRanks};
  Ranks<Whole> whole{kRanks};
  AssemblyRequest request;
  long volatile passed = 0;
  bool ok = true;

  ElementJob(int n, bool random) : nodes(static_cast<long>(n + 1) * (n + 1) * (n + 1)) {
    std::vector<int> const numbers = NumberNodes(nodes, random);
    for (int r = 0; r < kRanks; ++r)
      elements.emplace_back(n, r, kRanks, numbers);
    request.mRows = request.mCols = nodes;
  }

  void GatherPlain(int updates) {
    ok &= OnRanks(kRanks, [&](auto const& comm) {
      Elements& own = elements[static_cast<std::size_t>(comm->Rank())];
      auto piece = MatrixCOO<double, int>::Borrow(nodes, nodes, own.Count(), own.rows.data(),
                                                  own.cols.data(), own.values.data());
      piece.PlaceIn(nodes, nodes, MatrixPartition::NonzeroWise());
      Plain& aggregator = plain.Of(*comm);
      PavexStatus status = aggregator.Gather(comm, piece, true);
      auto* const all = aggregator.template TargetAs<MatrixCOO<double, int>>();
      if (all != nullptr && status == STATUS_OK) passed = Pass(*all);
      for (int k = 0; k < updates && status == STATUS_OK; ++k) {
        status = aggregator.Update(piece);
        if (all != nullptr)
          passed = static_cast<long>(Sum(all->mValues.mData, all->mValues.mSize));
      }
      return status;
    });
  }

  void Assemble(int updates) {
    ok &= OnRanks(kRanks, [&](auto const& comm) {
      Elements const& own = elements[static_cast<std::size_t>(comm->Rank())];
      Piece const piece =
          Piece().Coo(own.Count(), own.rows.data(), own.cols.data(), own.values.data());
      Whole& assembler = whole.Of(*comm);
      PavexStatus status = assembler.Gather(comm, piece, request);
      for (int k = 0; k < updates && status == STATUS_OK; ++k)
        status = assembler.Update(own.values.data());
      return status;
    });
  }

  void CheckResult(Runner& runner) {
    MatrixCSR<double, int> const* const result = whole.states[0]->Whole();
    runner.Expect(ok && result != nullptr, "every operation of elements succeeds");
    if (result == nullptr) return;
    double expected = 0;
    for (Elements const& own : elements)
      expected += Sum(own.values.data(), own.Count());
    runner.Expect(Sum(result->mValues.mData, result->mValues.mSize) == expected,
                  "the values of all elements are in the whole");
  }
};

void MeasureElements(Runner& runner, int n) {
  ElementJob job(n, false);
  std::string const label = std::to_string(n) + "^3 bricks";
  runner.Compare("gather, " + label, {"COO and a pass", [&] { job.GatherPlain(0); }},
                 {{"Assembler", [&] { job.Assemble(0); }, 2.0}});
  runner.Compare("gather and " + std::to_string(ElementJob::kUpdates) + " updates, " + label,
                 {"COO and a pass", [&] { job.GatherPlain(ElementJob::kUpdates); }},
                 {{"Assembler", [&] { job.Assemble(ElementJob::kUpdates); }, 1.3}});
  job.CheckResult(runner);
#ifdef PAVEX_BENCH_EIGEN
  std::vector<Eigen::Triplet<double, int>> triplets;
  for (Elements const& own : job.elements)
    for (std::size_t k = 0; k < own.rows.size(); ++k)
      triplets.emplace_back(own.rows[k], own.cols[k], own.values[k]);
  Eigen::SparseMatrix<double, Eigen::RowMajor, int> eigen(static_cast<int>(job.nodes),
                                                          static_cast<int>(job.nodes));
  runner.Compare(
      "assembly, " + label,
      {"setFromTriplets", [&] { eigen.setFromTriplets(triplets.begin(), triplets.end()); }},
      {{"Assembler", [&] { job.Assemble(0); }, 0.5}});
  runner.Expect(eigen.nonZeros() == job.whole.states[0]->Whole()->NNZ(),
                "Eigen finds as many entries");
#endif
}

// Most rows have the columns of the row before, shifted, in a mesh that is numbered along its
// sides. Here none has.
void MeasureRandomNumbers(Runner& runner, int n) {
  ElementJob job(n, true);
  runner.Compare("gather, " + std::to_string(n) + "^3 bricks, nodes at random",
                 {"COO and a pass", [&] { job.GatherPlain(0); }},
                 {{"Assembler", [&] { job.Assemble(0); }}});
  job.CheckResult(runner);
}

int Main(int argc, char const* const* argv) {
  Runner runner("assembly", "Putting a matrix together from pieces of any ownership");
  std::int64_t points = 96;
  std::int64_t bricks = 40;
  runner.Option("points", points, "points on each side of the operator");
  runner.Option("bricks", bricks, "elements on each side of the cube");
  runner.Parse(argc, argv);
  MeasureBands(runner, static_cast<int>(points));
  MeasureElements(runner, static_cast<int>(bricks));
  MeasureRandomNumbers(runner, static_cast<int>(bricks));
  return runner.Finish();
}

}  // namespace
}  // namespace Pavex::Bench

int main(int argc, char** argv) {
  return Pavex::Bench::Main(argc, argv);
}
