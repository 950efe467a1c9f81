// Gathers Eigen matrices without a copy. Three ranks hold columns of a sparse matrix and rows
// of a right-hand side as Eigen objects. Rank 0 views both whole as Eigen objects and solves.
// The solution returns into the vector of each rank. Needs Eigen 3.3 or later.
// Run: build/openmpi/examples/eigen_matrix (no arguments, no MPI)
#include <Eigen/SparseLU>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include <pavex/comm/local_comm.h>
#include <pavex/interop/eigen.h>
#include <pavex/pavex.h>

constexpr int kSize = 50;
using Sparse = Eigen::SparseMatrix<double>;  // column-major: a MatrixCSC for Pavex

// LocalComm ends all ranks when one throws, and main receives the exception.
void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

// Columns `begin` to `end` - 1 of a matrix with 4 on the diagonal, -1 below it and -2 above it.
Sparse Columns(int begin, int end) {
  std::vector<Eigen::Triplet<double>> entries;
  for (int j = begin; j < end; ++j) {
    entries.emplace_back(j, j - begin, 4.0);
    if (j > 0) entries.emplace_back(j - 1, j - begin, -2.0);
    if (j + 1 < kSize) entries.emplace_back(j + 1, j - begin, -1.0);
  }
  Sparse columns(kSize, end - begin);
  columns.setFromTriplets(entries.begin(), entries.end());
  return columns;  // setFromTriplets compresses, and pieces must be compressed
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  int const begin = kSize * comm->Rank() / comm->Size();
  int const end = kSize * (comm->Rank() + 1) / comm->Size();
  Sparse const columns = Columns(begin, end);
  Eigen::VectorXd share = Eigen::VectorXd::Ones(end - begin);

  auto matrix = Pavex::BorrowEigenSparse(columns);
  matrix.PlaceIn(kSize, kSize, Pavex::MatrixPartition::ColumnWise(begin));
  auto vector = Pavex::BorrowEigenDense(share);
  vector.PlaceIn(kSize, 1, Pavex::MatrixPartition::RowWise(begin));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> system(&pool), solution(&pool);
  Check(system.Gather(comm, matrix, true));
  Check(solution.Gather(comm, vector, true));
  if (comm->Rank() == 0) {
    auto const a = Pavex::ViewAsEigen<Sparse>(*system.Target());
    auto x = Pavex::ViewAsEigen<Eigen::VectorXd>(*solution.Target());
    Eigen::VectorXd const b = x;
    Eigen::SparseLU<Sparse> lu(a);  // copies the matrix
    x = lu.solve(b);                // writes into the gathered matrix
    double const residual = (a * x - b).norm() / b.norm();
    std::printf("%ld x %ld, %ld entries, residual below 1e-14: %s\n", a.rows(), a.cols(),
                a.nonZeros(), residual < 1e-14 ? "yes" : "no");
    if (!(residual < 1e-14)) throw std::runtime_error("the residual is too large");
  }
  Check(solution.Scatter(vector));

  // Each rank's columns times its share of the solution add up to the right-hand side.
  Eigen::VectorXd const part = columns * share;
  Eigen::VectorXd sum(kSize);
  Check(comm->Allreduce(part.data(), sum.data(), kSize, Pavex::DATATYPE_DOUBLE,
                        Pavex::REDUCE_SUM));
  if (!sum.isOnes(1e-12)) throw std::runtime_error("the scattered solution is wrong");
}

int main() {
  try {
    Pavex::LocalComm::Run(3, Work);
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
