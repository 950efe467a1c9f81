// Two ranks hold two rows each of a 4 x 4 matrix; rank 0 gathers it, then gets new values.
// Run: build/openmpi/examples/quickstart (no arguments, no MPI)
// As short as it reads on the front page:
// clang-format off
#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

#include <cstdio>
#include <stdexcept>

void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  long const begin = 2L * comm->Rank();
  int ptr[] = {0, 2, 3};  // this rank's rows: two entries, then one
  int col[] = {0, 3, comm->Rank() + 1};
  double values[] = {1.5, 2.5, 3.5};
  auto piece = Pavex::MatrixCSR<double, int>::Borrow(2, 4, ptr, col, values);
  piece.PlaceIn(4, 4, Pavex::MatrixPartition::RowWise(begin));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> aggregator(&pool);
  Check(aggregator.Gather(comm, piece, true));
  for (double& value : values) value *= 10;
  Check(aggregator.Update(piece));
  if (aggregator.Target() == nullptr) return;  // only rank 0 receives

  auto& whole = dynamic_cast<Pavex::MatrixCSR<double, int>&>(*aggregator.Target());
  for (long i = 0; i < whole.mRows; ++i) {
    for (int k = whole.mRowPtr.mData[i]; k < whole.mRowPtr.mData[i + 1]; ++k) {
      std::printf("(%ld, %d) %g\n", i, whole.mColIdx.mData[k], whole.mValues.mData[k]);
    }
  }
}

int main() { Pavex::LocalComm::Run(2, Work); }
