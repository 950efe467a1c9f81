// Each process assembles its rows of a distributed operator; rank 0 gathers the whole matrix
// and later gets the values of another time step.
// Run: mpirun -n 4 build/openmpi/examples/mpi_quickstart
#include <cstdio>
#include <vector>

#include <pavex/comm/mpi_comm.h>
#include <pavex/pavex.h>

constexpr int kPoints = 1000;

// Rows of the operator u / dt - u'' on a line of kPoints points, in CSR with global columns.
struct Rows {
  std::vector<int> ptr{0};
  std::vector<int> col;
  std::vector<double> values;
};

Rows Assemble(int begin, int end, double dt) {
  Rows rows;
  for (int i = begin; i < end; ++i) {
    for (int j = i - 1; j <= i + 1; ++j) {
      if (j < 0 || j >= kPoints) continue;
      rows.col.push_back(j);
      rows.values.push_back(j == i ? 2.0 + 1.0 / dt : -1.0);
    }
    rows.ptr.push_back(static_cast<int>(rows.col.size()));
  }
  return rows;
}

// The library has logged what failed; one process alone cannot go on.
void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) MPI_Abort(MPI_COMM_WORLD, 1);
}

void Print(char const* when, Pavex::Aggregator<double, int> const& aggregator) {
  auto const* const whole = aggregator.TargetAs<Pavex::MatrixCSR<double, int>>();
  if (whole == nullptr) return;  // only rank 0 receives
  double sum = 0;
  for (long k = 0; k < whole->NNZ(); ++k)
    sum += whole->mValues.mData[k];
  std::printf("%s: %ld x %ld, %ld entries, sum %g\n", when, whole->mRows, whole->mCols,
              whole->NNZ(), sum);
}

void Work() {
  auto const comm = std::make_shared<Pavex::MpiComm>(MPI_COMM_WORLD);
  int const begin = kPoints * comm->Rank() / comm->Size();
  int const end = kPoints * (comm->Rank() + 1) / comm->Size();
  Rows rows = Assemble(begin, end, 0.5);
  auto piece = Pavex::MatrixCSR<double, int>::Borrow(end - begin, kPoints, rows.ptr.data(),
                                                     rows.col.data(), rows.values.data());
  piece.PlaceIn(kPoints, kPoints, Pavex::MatrixPartition::RowWise(begin));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> aggregator(&pool);
  Check(aggregator.Gather(comm, piece, true));
  Print("gathered", aggregator);

  Rows next = Assemble(begin, end, 0.25);  // the same pattern
  piece.SetValues(next.values.data());
  Check(aggregator.Update(piece));
  Print("updated", aggregator);
}

int main(int argc, char** argv) {
  int provided = 0;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
  Work();  // everything that uses MPI is gone before MPI_Finalize
  MPI_Finalize();
}
