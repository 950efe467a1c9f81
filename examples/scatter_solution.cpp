// Runs the cycle of a solver. Four ranks hold the rows of a tridiagonal system and their share
// of its right-hand side. Rank 0 gathers both and solves. Scatter brings each rank its share of
// the solution, in the array of its right-hand side. The system is -u'' = 2 on the unit
// interval with u = 0 at both ends; its discrete solution is exactly u = x (1 - x).
// Run: build/openmpi/examples/scatter_solution (no arguments, no MPI)
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

constexpr int kPoints = 99;
constexpr double kSpacing = 1.0 / (kPoints + 1);

using Sparse = Pavex::MatrixCSR<double, int>;
using Dense = Pavex::MatrixDense<double, int>;

// LocalComm ends all ranks when one throws, and main receives the exception.
void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

// Solves in place by elimination without pivoting, for a tridiagonal matrix with full
// diagonals.
void Solve(Sparse const& matrix, double* x) {
  int const* const ptr = matrix.mRowPtr.mData;
  double const* const values = matrix.mValues.mData;
  int const last = kPoints - 1;
  auto const diagonal = [&](int i) { return values[ptr[i] + (i > 0 ? 1 : 0)]; };
  auto const upper = [&](int i) { return i < last ? values[ptr[i + 1] - 1] : 0; };

  std::vector<double> ratios(kPoints);
  double* const ratio = ratios.data();
  for (int i = 0; i <= last; ++i) {
    double const lower = i > 0 ? values[ptr[i]] : 0;
    double const pivot = diagonal(i) - (i > 0 ? lower * ratio[i - 1] : 0);
    ratio[i] = upper(i) / pivot;
    x[i] = (x[i] - (i > 0 ? lower * x[i - 1] : 0)) / pivot;
  }
  for (int i = last; i-- > 0;)
    x[i] -= ratio[i] * x[i + 1];
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  int const begin = kPoints * comm->Rank() / comm->Size();
  int const end = kPoints * (comm->Rank() + 1) / comm->Size();
  std::vector<int> ptr{0}, col;
  std::vector<double> values;
  std::vector<double> share;  // first of the right-hand side, later of the solution
  for (int i = begin; i < end; ++i) {
    for (int j = i - 1; j <= i + 1; ++j) {
      if (j < 0 || j >= kPoints) continue;
      col.push_back(j);
      values.push_back((j == i ? 2 : -1) / (kSpacing * kSpacing));
    }
    ptr.push_back(static_cast<int>(col.size()));
    share.push_back(2);
  }

  auto const band = Pavex::MatrixPartition::RowWise(begin);
  auto matrix = Sparse::Borrow(end - begin, kPoints, ptr.data(), col.data(), values.data());
  matrix.PlaceIn(kPoints, kPoints, band);
  auto vector = Dense::Borrow(end - begin, 1, false, end - begin, share.data());
  vector.PlaceIn(kPoints, 1, band);

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> system(&pool), solution(&pool);
  Check(system.Gather(comm, matrix, true));
  Check(solution.Gather(comm, vector, true));
  if (comm->Rank() == 0) {
    Solve(*system.TargetAs<Sparse>(), solution.TargetAs<Dense>()->mValues.mData);
  }
  Check(solution.Scatter(vector));

  double error = 0, x = begin * kSpacing;
  for (double const u : share) {
    x += kSpacing;
    error = std::fmax(error, std::fabs(u - x * (1 - x)));
  }
  double worst = 0;
  Check(comm->Allreduce(&error, &worst, 1, Pavex::DATATYPE_DOUBLE, Pavex::REDUCE_MAX));
  if (!(worst < 1e-12)) throw std::runtime_error("the solution is wrong");
  if (comm->Rank() == 0) std::printf("every rank has its share, none off by 1e-12\n");
}

int main() {
  try {
    Pavex::LocalComm::Run(4, Work);
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
