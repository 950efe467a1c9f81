// The bytes that an assembler takes from its pool: never more than its header says, and not
// much less.

#include "pavex/assembly/assembler.h"
#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/support/ledger_pool.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace Pavex {
namespace {

constexpr long kRanks = 3;
constexpr long kIndex = sizeof(int);
constexpr long kValue = sizeof(double);
constexpr long kEach = 340 * kRanks;
constexpr long kKept = 330 * kRanks;

using Own = Contribution<double, int>;

// The arrays of one process.
struct Arrays {
  std::vector<int> rows;
  std::vector<int> offsets;
  std::vector<int> cols;
  std::vector<int> map;
  std::vector<double> values;
};

// What one rank saw.
struct Bytes {
  long gather = 0;  // the most during the gather
  long kept = 0;    // after it
  long update = 0;  // the most during an update
};

using Pass = std::function<Own(int rank, Arrays& arrays)>;

// Assembles onto rank 0 what `pass` makes for each rank.
std::vector<Bytes> Measure(AssemblyRequest const& request, Pass const& pass,
                           long ranks = kRanks) {
  std::vector<Bytes> bytes(static_cast<std::size_t>(ranks));
  LocalComm::Run(static_cast<int>(ranks), [&](std::shared_ptr<Comm> const& comm) {
    LedgerPool pool;
    Assembler<double, int> assembler(&pool);
    Arrays arrays;
    Own const own = pass(comm->Rank(), arrays);
    Bytes& mine = bytes[static_cast<std::size_t>(comm->Rank())];
    ASSERT_EQ(assembler.Gather(comm, own, request), STATUS_OK);
    mine.gather = static_cast<long>(pool.PeakBytes());
    mine.kept = static_cast<long>(pool.OutstandingBytes());
    pool.RestartPeak();
    ASSERT_EQ(assembler.Update(own.Values(0), own.Values(1)), STATUS_OK);
    mine.update = static_cast<long>(pool.PeakBytes());
  });
  return bytes;
}

void ExpectBelow(long bytes, long bound, char const* what) {
  EXPECT_LE(bytes, bound) << what;
  EXPECT_GE(bytes, bound - bound / 4) << what;
}

AssemblyRequest Shape(long rows, long cols, bool withValues) {
  AssemblyRequest request;
  request.mRows = rows;
  request.mCols = cols;
  request.mWithValues = withValues;
  return request;
}

TEST(AssemblerBytes, OfEntriesWithLocalRowsAndColumns) {
  // Every process has 20000 entries in the same 100 x 100 places.
  constexpr long n = 20000;
  constexpr long lines = 100;
  auto const pass = [](int /*rank*/, Arrays& a) {
    for (int k = 0; k < lines; ++k)
      a.map.push_back(k);
    for (int k = 0; k < n; ++k) {
      a.rows.push_back(k / 2 % static_cast<int>(lines));
      a.cols.push_back((k / 200 * 7 + k) % static_cast<int>(lines));
      a.values.push_back(1);
    }
    return Own::Rows(lines, a.map.data())
        .LocalCoo(n, a.rows.data(), a.cols.data(), a.values.data())
        .Columns(a.map.data(), lines);
  };
  std::vector<Bytes> const bytes = Measure(Shape(lines, lines, false), pass);

  long const sender = kEach + kIndex * lines + kIndex * (5 * n + 2 * lines);
  ExpectBelow(bytes[1].gather, sender, "gather on a sender");
  ExpectBelow(bytes[1].kept, kKept + kIndex * n, "kept on a sender");
}

TEST(AssemblerBytes, OfAReceiverThatAddsWhatAllHave) {
  // Every process has the same 400 rows of 100 entries as they are.
  constexpr long rows = 400;
  constexpr long each = 100;
  constexpr long N = rows * each;
  constexpr long M = kRanks * N;
  constexpr long Q = kRanks * rows;
  auto const pass = [](int /*rank*/, Arrays& a) {
    for (int row = 0; row <= rows; ++row)
      a.offsets.push_back(row * static_cast<int>(each));
    for (int k = 0; k < N; ++k)
      a.cols.push_back(k % static_cast<int>(each));
    a.values.assign(N, 1);
    return Own::Band(0, rows).Csr(a.offsets.data(), a.cols.data(), a.values.data());
  };
  std::vector<Bytes> const pattern = Measure(Shape(rows, each, false), pass);
  std::vector<Bytes> const values = Measure(Shape(rows, each, true), pass);

  long const whole = kIndex * (N + rows);
  ExpectBelow(
      pattern[0].gather,
      kEach + kIndex * rows + whole + kIndex * Q + kIndex * (3 * M + 2 * Q + 3 * rows + each),
      "gather of the pattern");
  ExpectBelow(values[0].kept,
              kKept + whole + kValue * N + kIndex * (M + 2 * Q + 2 * rows + N / 7), "kept");
  ExpectBelow(values[0].update,
              kKept + whole + kIndex * (M + 2 * Q + 2 * rows + N / 7) + kValue * (2 * N + M),
              "update");
  EXPECT_LE(values[1].gather, kEach + kIndex * rows) << "a sender";
}

TEST(AssemblerBytes, OfBandsWithRowsBetweenThem) {
  // Bands of 4000 rows with one entry in each, and 4000 rows between them.
  constexpr long rows = 4000;
  constexpr long R = 6 * rows;
  constexpr long Q = kRanks * rows;
  constexpr long N = Q;
  auto const pass = [](int rank, Arrays& a) {
    for (int row = 0; row <= rows; ++row)
      a.offsets.push_back(row);
    a.cols.assign(rows, 0);
    a.values.assign(rows, 1);
    return Own::Band(2L * rank * rows, rows)
        .Csr(a.offsets.data(), a.cols.data(), a.values.data());
  };
  std::vector<Bytes> const pattern = Measure(Shape(R, 1, false), pass);
  std::vector<Bytes> const values = Measure(Shape(R, 1, true), pass);

  ExpectBelow(pattern[0].gather, kEach + kIndex * rows + kIndex * (N + R + Q), "gather");
  ExpectBelow(values[0].kept, kKept + kIndex * (N + R) + kValue * N, "kept");
  ExpectBelow(values[0].update, kKept + kIndex * (N + R) + 2 * kValue * N, "update");
}

TEST(AssemblerBytes, OfAListThatRepeatsOneRow) {
  constexpr long rows = 5000;
  auto const pass = [](int rank, Arrays& a) {
    if (rank != 1) return Own();
    a.rows.assign(rows, 0);
    for (int row = 0; row <= rows; ++row)
      a.offsets.push_back(std::min(row, 1));
    a.cols = {0};
    a.values = {1};
    return Own::Rows(rows, a.rows.data()).Csr(a.offsets.data(), a.cols.data(), a.values.data());
  };
  std::vector<Bytes> const bytes = Measure(Shape(1, 1, true), pass);

  constexpr long Q = rows + 2;
  long const receiver = kEach + kIndex * 1 + kIndex * (1 + 1 + rows) + kValue;
  ExpectBelow(bytes[0].gather, receiver + kIndex * Q + kIndex * (3 + 2 * Q + 3 + 1),
              "gather on the receiver");
  ExpectBelow(bytes[0].kept, kKept + kIndex * (2 + rows) + kValue + kIndex * (2 + 2 * Q + 2),
              "kept");
  ExpectBelow(bytes[1].gather, kEach + kIndex * rows, "gather on the sender");
}

TEST(AssemblerBytes, OfEntriesThatTouchFewOfTheRowsBetweenThem) {
  // Each of 16 processes has an entry in 2 of 5 rows, the same ones on all.
  constexpr long ranks = 16;
  constexpr long n = 1200;
  constexpr long R = n / 2 * 5;
  auto const pass = [](int /*rank*/, Arrays& a) {
    for (int k = 0; k < n; ++k)
      a.rows.push_back(k / 2 * 5 + k % 2);
    a.cols.assign(n, 0);
    a.values.assign(n, 1);
    return Own().Coo(n, a.rows.data(), a.cols.data(), a.values.data());
  };
  std::vector<Bytes> const bytes = Measure(Shape(R, 1, false), pass, ranks);

  constexpr long all = ranks * n;  // entries, rows that are sent, and elements of all lists
  long const own = 340 * ranks + kIndex * R + kIndex * (5 * n + R + 1);
  ExpectBelow(bytes[1].gather, own, "gather on a sender");
  ExpectBelow(
      bytes[0].gather,
      own + kIndex * (n + R + all) + kIndex * all + kIndex * (3 * all + 2 * all + 3 * R + 1),
      "gather on the receiver");
}

// The most that one rank takes for a scatter and for a collect of `columns` columns of bands
// with `rows` rows. `gap`: elements behind each column of its own matrix.
struct DenseBytes {
  long scatter = 0;
  long collect = 0;
};

std::vector<DenseBytes> MeasureDense(int rows, long columns, long gap) {
  std::vector<DenseBytes> bytes(kRanks);
  LocalComm::Run(static_cast<int>(kRanks), [&](std::shared_ptr<Comm> const& comm) {
    using Dense = MatrixDense<double, int>;
    LedgerPool pool;
    Assembler<double, int> assembler(&pool);
    long const all = kRanks * rows;
    ASSERT_EQ(
        assembler.Gather(comm, Own::Band(comm->Rank() * rows, rows), Shape(all, 1, false)),
        STATUS_OK);
    std::vector<double> ownValues(static_cast<std::size_t>((rows + gap) * columns));
    std::vector<double> wholeValues(static_cast<std::size_t>((all + 1) * columns));
    Dense own = Dense::Borrow(rows, columns, false, rows + gap, ownValues.data());
    Dense whole = Dense::Borrow(all, columns, false, all + 1, wholeValues.data());
    auto const most = [&pool](auto const& run) {
      auto const before = pool.OutstandingBytes();
      pool.RestartPeak();
      EXPECT_EQ(run(), STATUS_OK);
      return static_cast<long>(pool.PeakBytes() - before);
    };
    DenseBytes& mine = bytes[static_cast<std::size_t>(comm->Rank())];
    mine.scatter = most([&] { return assembler.Scatter(whole, own); });
    mine.collect = most([&] { return assembler.Collect(own, Overlap::ADD, whole); });
  });
  return bytes;
}

TEST(AssemblerBytes, OfDenseMatrices) {
  constexpr long k = 5;
  constexpr long rows = 400;
  for (long const gap : {0, 1}) {
    std::vector<DenseBytes> const bytes = MeasureDense(rows, k, gap);

    long const own = gap == 0 ? 0 : kValue * k * rows;
    long const receiver = own + kValue * k * kRanks * rows + 8 * kRanks;
    ExpectBelow(bytes[0].scatter, receiver, "scatter on the receiver");
    ExpectBelow(bytes[0].collect, receiver, "collect on the receiver");
    ExpectBelow(bytes[1].scatter, own, "scatter elsewhere");
    ExpectBelow(bytes[1].collect, own, "collect elsewhere");
  }
}

TEST(AssemblerBytes, OfASingleProcessThatAddsItsOwnEntries) {
  constexpr long n = 10000;
  LedgerPool pool;
  Assembler<double, int> assembler(&pool);
  std::vector<int> const rows(n, 0);
  std::vector<double> const values(n, 1);
  auto const own = Own().Coo(n, rows.data(), rows.data(), values.data());
  ASSERT_EQ(assembler.Gather(std::make_shared<SelfComm>(), own, Shape(1, 1, true)), STATUS_OK);

  long const bytes = static_cast<long>(pool.OutstandingBytes());
  ExpectBelow(bytes, 330 + kIndex * (n + 2) + kValue, "kept");
}

}  // namespace
}  // namespace Pavex
