// Solves with MUMPS, which takes the whole matrix on rank 0 and works on all processes. The
// gathered arrays of entries that count from 1 are those that it wants, without a copy. Later
// steps bring values only. The system is u / dt - u'' = f on a line, with f such that u = 1.
// Run: mpirun -n 4 build/openmpi/examples/mumps_solve
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <dmumps_c.h>
#include <memory>
#include <vector>

#include <pavex/comm/mpi_comm.h>
#include <pavex/pavex.h>

constexpr int kPoints = 500;
constexpr int kSteps = 3;

using Coo = Pavex::MatrixCOO<double, int>;
using Dense = Pavex::MatrixDense<double, int>;

void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) MPI_Abort(MPI_COMM_WORLD, 1);
}

struct Entries {
  std::vector<int> row, col;          // of the whole, counted from 1
  std::vector<double> values, right;  // and this process's share of the right-hand side
};

Entries MakePattern(int begin, int end) {
  Entries entries;
  for (int i = begin; i < end; ++i) {
    for (int j = std::max(i - 1, 0); j < std::min(i + 2, kPoints); ++j) {
      entries.row.push_back(i + 1);
      entries.col.push_back(j + 1);
    }
  }
  entries.values.resize(entries.row.size());
  entries.right.resize(static_cast<std::size_t>(end - begin));
  return entries;
}

void Assemble(Entries& entries, int begin, double dt) {
  entries.right.assign(entries.right.size(), 0);
  for (std::size_t k = 0; k < entries.values.size(); ++k) {
    entries.values[k] = entries.row[k] == entries.col[k] ? 2 + 1 / dt : -1;
    entries.right[static_cast<std::size_t>(entries.row[k] - 1 - begin)] += entries.values[k];
  }
}

// Every job of MUMPS is collective.
class Mumps {
 public:
  Mumps() {
    mData.par = 1;  // rank 0 works too
    mData.comm_fortran = static_cast<MUMPS_INT>(MPI_Comm_c2f(MPI_COMM_WORLD));
    Run(-1);
    std::fill_n(mData.icntl, 4, 0);  // no output
  }
  ~Mumps() { Run(-2); }

  // The gathered matrix and right-hand side, later the solution; null except on rank 0.
  void Use(Coo* matrix, Dense* vector) {
    if (matrix == nullptr) return;
    mData.n = static_cast<MUMPS_INT>(matrix->mRows);
    mData.nnz = matrix->NNZ();
    mData.irn = matrix->mRowIdx.mData;
    mData.jcn = matrix->mColIdx.mData;
    mData.a = matrix->mValues.mData;  // another array after each update
    mData.rhs = vector->mValues.mData;
  }

  void Run(int job) {
    mData.job = job;
    dmumps_c(&mData);
    if (mData.infog[0] < 0) MPI_Abort(MPI_COMM_WORLD, 1);
  }

 private:
  DMUMPS_STRUC_C mData = {};
};

void Work() {
  auto const comm = std::make_shared<Pavex::MpiComm>(MPI_COMM_WORLD);
  int const begin = kPoints * comm->Rank() / comm->Size();
  int const end = kPoints * (comm->Rank() + 1) / comm->Size();
  Entries own = MakePattern(begin, end);
  auto piece = Coo::Borrow(kPoints, kPoints, static_cast<long>(own.values.size()),
                           own.row.data(), own.col.data(), own.values.data());
  piece.PlaceIn(kPoints, kPoints, Pavex::MatrixPartition::NonzeroWise());
  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> system(&pool);
  Mumps mumps;
  for (int step = 0; step < kSteps; ++step) {
    Assemble(own, begin, 1.0 / (1 + step));
    Check(step == 0 ? system.Gather(comm, piece, true) : system.Update(piece));
    auto share = Dense::Borrow(end - begin, 1, false, end - begin, own.right.data());
    share.PlaceIn(kPoints, 1, Pavex::MatrixPartition::RowWise(begin));
    Pavex::Aggregator<double, int> solution(&pool);
    Check(solution.Gather(comm, share, true));

    mumps.Use(system.TargetAs<Coo>(), solution.TargetAs<Dense>());
    mumps.Run(step == 0 ? 6 : 5);  // 6: analyse, factor, solve; 5: factor, solve
    Check(solution.Scatter(share));

    double error = 0, worst = 0;
    for (double const u : own.right)
      error = std::fmax(error, std::fabs(u - 1));
    Check(comm->Allreduce(&error, &worst, 1, Pavex::DATATYPE_DOUBLE, Pavex::REDUCE_MAX));
    char const* const good = worst < 1e-12 ? "yes" : "no";
    if (comm->Rank() == 0) std::printf("step %d: largest error below 1e-12: %s\n", step, good);
  }
}

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  Work();  // everything that uses MPI is gone before MPI_Finalize
  MPI_Finalize();
}
