// Gathers a matrix whose rows were dealt out by where their points lie, as recursive bisection
// does it: each of four ranks has a quarter of a square, in an order of its own. Afterwards
// each rank gets its rows of a vector back, in that order. Run:
// build/openmpi/examples/assemble_any_rows (no arguments, no MPI)
#include <cstdio>
#include <stdexcept>
#include <vector>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

using Dense = Pavex::MatrixDense<double, int>;

constexpr int kSide = 6;
constexpr int kPoints = kSide * kSide;

// The rows of a quarter of the square, last first, of the 5-point operator.
struct Quarter {
  std::vector<int> rows, offsets{0}, cols;
  std::vector<double> values;

  explicit Quarter(int rank) {
    int const half = kSide / 2;
    for (int y = half - 1; y >= 0; --y)
      for (int x = half - 1; x >= 0; --x)
        AddRow(rank % 2 * half + x, rank / 2 * half + y);
  }

  void AddRow(int x, int y) {
    rows.push_back(y * kSide + x);
    Add(x, y - 1, -1);
    Add(x - 1, y, -1);
    Add(x, y, 4);
    Add(x + 1, y, -1);
    Add(x, y + 1, -1);
    offsets.push_back(static_cast<int>(cols.size()));
  }

  void Add(int x, int y, double value) {
    if (x < 0 || x >= kSide || y < 0 || y >= kSide) return;
    cols.push_back(y * kSide + x);
    values.push_back(value);
  }

  int Count() const { return static_cast<int>(rows.size()); }
};

void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  Quarter const quarter(comm->Rank());
  Pavex::AssemblyRequest request;
  request.mRows = request.mCols = kPoints;
  auto const own = Pavex::Contribution<double, int>::Rows(quarter.Count(), quarter.rows.data())
                       .Csr(quarter.offsets.data(), quarter.cols.data(), quarter.values.data());
  Pavex::MemoryPool pool;
  Pavex::Assembler<double, int> assembler(&pool);
  Check(assembler.Gather(comm, own, request));

  std::vector<double> sums(kPoints);  // the receiver's; the other ranks' is not used
  auto const* const whole = assembler.Whole();
  if (whole != nullptr) {
    std::printf("%s\n", assembler.Describe().c_str());
    for (std::size_t i = 0; i < kPoints; ++i)
      for (int k = whole->mRowPtr.mData[i]; k < whole->mRowPtr.mData[i + 1]; ++k)
        sums[i] += whole->mValues.mData[k];
  }

  std::vector<double> ownSums(quarter.rows.size());
  auto const from = Dense::Borrow(kPoints, 1, false, kPoints, sums.data());
  auto to = Dense::Borrow(quarter.Count(), 1, false, quarter.Count(), ownSums.data());
  Check(assembler.Scatter(from, to));
  for (std::size_t i = 0; i < ownSums.size(); ++i) {
    int const x = quarter.rows[i] % kSide;
    int const y = quarter.rows[i] / kSide;
    int const sides = (x == 0) + (x == kSide - 1) + (y == 0) + (y == kSide - 1);
    if (ownSums[i] != sides) throw std::runtime_error("a row sum is wrong");
  }
  if (comm->Rank() == 3) std::printf("every rank has the sums of its rows\n");
}

int main() {
  Pavex::LocalComm::Run(4, Work);
  return 0;
}
