// Each process holds a band of rows of a diagonal matrix. Rank 0 gathers it, and the processes
// of one node store their rows in its memory themselves. Run: mpirun -n 4
// build/openmpi/examples/node_quickstart
#include <cstdio>
#include <numeric>
#include <vector>

#include <pavex/comm/node_comm.h>
#include <pavex/comm/node_pool.h>
#include <pavex/pavex.h>

using Csr = Pavex::MatrixCSR<double, int>;

constexpr int kRows = 1000;  // of each process

// The library has logged what failed; one process alone cannot go on.
void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) MPI_Abort(MPI_COMM_WORLD, 1);
}

void Work() {
  auto const comm = std::make_shared<Pavex::NodeComm>(MPI_COMM_WORLD);  // collective
  Pavex::NodePool pool;                                                 // local, at any time
  Pavex::Aggregator<double, int> aggregator(&pool);

  int const begin = kRows * comm->Rank();
  int const rows = kRows * comm->Size();
  std::vector<int> ptr(kRows + 1);
  std::vector<int> col(kRows);
  std::vector<double> values(kRows, 1.0 + comm->Rank());
  std::iota(ptr.begin(), ptr.end(), 0);
  std::iota(col.begin(), col.end(), begin);
  auto piece = Csr::Borrow(kRows, rows, ptr.data(), col.data(), values.data());
  piece.PlaceIn(rows, rows, Pavex::MatrixPartition::RowWise(begin));

  Check(aggregator.Gather(comm, piece, true));
  Csr const* const whole = aggregator.TargetAs<Csr>();
  if (whole == nullptr) return;  // only rank 0 receives
  double sum = 0;
  for (long k = 0; k < whole->NNZ(); ++k)
    sum += whole->mValues.mData[k];
  std::printf("%s memory: %ld entries, sum %g\n", comm->Active() ? "shared" : "no shared",
              whole->NNZ(), sum);
}

int main(int argc, char** argv) {
  int provided = 0;
  MPI_Init_thread(&argc, &argv, MPI_THREAD_FUNNELED, &provided);
  Work();  // everything that uses MPI is gone before MPI_Finalize
  MPI_Finalize();
}
