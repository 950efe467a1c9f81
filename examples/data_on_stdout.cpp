// Prints data on standard output without the lines of the library's log. It points descriptor 1
// to standard error and prints the data to the old descriptor. Two ranks gather a matrix, and
// then pieces that do not fit together; the log lines of that refusal do not reach the data.
// Run: build/openmpi/examples/data_on_stdout (no arguments, no MPI)
#include <cstdio>
#include <memory>
#include <unistd.h>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

// Gathers two rows from each rank. The second rank's rows begin at `second`. Rank 0 prints
// them.
void Gather(std::shared_ptr<Pavex::Comm> const& comm, long second, std::FILE* data) {
  double values[] = {1, 2, 3, 4};
  auto piece = Pavex::MatrixDense<double, int>::Borrow(2, 2, true, 2, values);
  piece.PlaceIn(4, 2, Pavex::MatrixPartition::RowWise(comm->Rank() == 0 ? 0 : second));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> aggregator(&pool);
  PavexStatus const status = aggregator.Gather(comm, piece, true);
  if (comm->Rank() != 0) return;
  if (status != Pavex::STATUS_OK) {
    std::fprintf(data, "refused with status %d\n", status);
    return;
  }
  auto const& whole = *aggregator.TargetAs<Pavex::MatrixDense<double, int>>();
  for (long i = 0; i < whole.mRows; ++i)
    std::fprintf(data, "%g %g\n", whole.mValues.mData[2 * i], whole.mValues.mData[2 * i + 1]);
}

int main() {
  std::FILE* const data = fdopen(dup(STDOUT_FILENO), "w");
  dup2(STDERR_FILENO, STDOUT_FILENO);  // the lines of the library go to standard error

  Pavex::LocalComm::Run(2, [data](auto const& comm) {
    Gather(comm, 2, data);
    Gather(comm, 3, data);  // row 2 is missing
  });
  std::fclose(data);
}
