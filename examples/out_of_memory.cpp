// Prints the rank, the size of the refused request and the bytes in use when a pool cannot get
// the memory for a gather. The log line says only "Out of memory". Two ranks gather a dense
// matrix that no machine can hold; rank 0 has no room for it.
// Run: build/openmpi/examples/out_of_memory (no arguments, no MPI)
#include <cstdio>
#include <memory>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  constexpr long kSize = 1L << 23;  // rows and columns of a piece: half a pebibyte of values
  auto piece = Pavex::MatrixDense<double, int>::Borrow(kSize, kSize, true, kSize, nullptr);
  piece.PlaceIn(2 * kSize, kSize, Pavex::MatrixPartition::RowWise(comm->Rank() * kSize));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> aggregator(&pool);
  PavexStatus const status = aggregator.Gather(comm, piece, false);  // the pattern only
  if (status == Pavex::STATUS_OUT_OF_MEMORY) {
    std::printf("rank %d: out of memory, %zu MiB asked for with %zu MiB in use\n", comm->Rank(),
                pool.LastRefused() >> 20, pool.InUseWhenRefused() >> 20);
  }
}

int main() {
  Pavex::Log::mMaxLogLevel = -1;
  Pavex::LocalComm::Run(2, Work);
}
