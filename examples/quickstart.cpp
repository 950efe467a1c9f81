// Gathers a 4 x 4 matrix from two ranks with two rows each onto rank 0, then sends new values.
// Run: build/openmpi/examples/quickstart (no arguments, no MPI)
// README.md shows this program, so its lines are short:
// clang-format off
#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

#include <cstdio>
#include <stdexcept>

using Csr = Pavex::MatrixCSR<double, int>;
using Aggregator = Pavex::Aggregator<double, int>;

void Check(PavexStatus status, Aggregator const& aggregator) {
  if (status == Pavex::STATUS_OK) return;
  if (aggregator.GetComm()->Rank() == 0) std::printf("%s", aggregator.Describe().c_str());
  throw std::runtime_error(PavexStatusStr(status));
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  int ptr[] = {0, 2, 3};  // this rank's rows: two entries, then one
  int col[] = {0, 3, comm->Rank() + 1};
  double values[] = {1.5, 2.5, 3.5};
  auto piece = Csr::Borrow(2, 4, ptr, col, values);
  piece.PlaceIn(4, 4, Pavex::MatrixPartition::RowWise(2L * comm->Rank()));

  Pavex::MemoryPool pool;
  Aggregator aggregator(&pool);
  Check(aggregator.Gather(comm, piece, true), aggregator);
  for (double& value : values) value *= 10;
  Check(aggregator.Update(piece), aggregator);

  Csr const* const whole = aggregator.TargetAs<Csr>();
  if (whole == nullptr) return;  // only rank 0 receives
  for (long i = 0; i < whole->mRows; ++i) {
    for (int k = whole->mRowPtr.mData[i]; k < whole->mRowPtr.mData[i + 1]; ++k) {
      std::printf("(%ld, %d) %g\n", i, whole->mColIdx.mData[k], whole->mValues.mData[k]);
    }
  }
}

int main() { Pavex::LocalComm::Run(2, Work); }
