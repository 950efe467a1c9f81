// Gathers the same 4 x 4 matrix from two ranks in every way in which it may lie over them:
// bands of rows, bands of columns, any share of the entries, whole on one rank, whole on every
// rank:
//   11 12  .  .
//    . 22  . 24
//   31  . 33  .
//    .  . 43 44
// Run: build/openmpi/examples/partitions (no arguments, no MPI)
#include <cstdio>
#include <memory>
#include <stdexcept>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

using namespace Pavex;
using Coo = MatrixCOO<double, int>;
using Csc = MatrixCSC<double, int>;
using Csr = MatrixCSR<double, int>;
using Dense = MatrixDense<double, int>;

// Gathers onto rank 0, which prints the values in the order of the gathered arrays.
template <typename Matrix>
void Show(char const* what, std::shared_ptr<Comm> const& comm, Matrix const& piece) {
  MemoryPool pool;
  Aggregator<double, int> aggregator(&pool);
  PavexStatus const status = aggregator.Gather(comm, piece, true);
  if (status != STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
  auto const* const whole = aggregator.TargetAs<Matrix>();
  if (whole == nullptr) return;  // only rank 0 receives
  std::printf("%s:", what);
  for (long k = 0; k < whole->NNZ(); ++k)
    std::printf(" %g", whole->mValues.mData[k]);
  std::printf("\n");
}

void BandsOfRows(std::shared_ptr<Comm> const& comm, long rank) {
  int ptr[] = {0, 2, 4};  // the piece's own offsets, columns of the whole
  int col[2][4] = {{0, 1, 1, 3}, {0, 2, 2, 3}};
  double values[2][4] = {{11, 12, 22, 24}, {31, 33, 43, 44}};
  auto piece = Csr::Borrow(2, 4, ptr, col[rank], values[rank]);
  piece.PlaceIn(4, 4, MatrixPartition::RowWise(2 * rank));
  Show("bands of rows", comm, piece);
}

void BandsOfColumns(std::shared_ptr<Comm> const& comm, long rank) {
  int ptr[] = {0, 2, 4};  // the piece's own offsets, rows of the whole
  int row[2][4] = {{0, 2, 0, 1}, {2, 3, 1, 3}};
  double values[2][4] = {{11, 31, 12, 22}, {33, 43, 24, 44}};
  auto piece = Csc::Borrow(4, 2, ptr, row[rank], values[rank]);
  piece.PlaceIn(4, 4, MatrixPartition::ColumnWise(2 * rank));
  Show("bands of columns", comm, piece);
}

// The receiver reorders these: in a row-major matrix, bands of columns lie side by side.
void DenseBandsOfColumns(std::shared_ptr<Comm> const& comm, long rank) {
  double values[2][8] = {{11, 12, 0, 22, 31, 0, 0, 0}, {0, 0, 0, 24, 33, 0, 43, 44}};
  auto piece = Dense::Borrow(4, 2, true, 2, values[rank]);
  piece.PlaceIn(4, 4, MatrixPartition::ColumnWise(2 * rank));
  Show("dense bands", comm, piece);
}

void AnyEntries(std::shared_ptr<Comm> const& comm, long rank) {
  int row[2][4] = {{3, 0, 2, 1}, {0, 3, 1, 2}};  // of the whole
  int col[2][4] = {{3, 0, 2, 1}, {1, 2, 3, 0}};
  double values[2][4] = {{44, 11, 33, 22}, {12, 43, 24, 31}};
  auto piece = Coo::Borrow(4, 4, 4, row[rank], col[rank], values[rank]);
  piece.PlaceIn(4, 4, MatrixPartition::NonzeroWise());
  Show("any entries", comm, piece);
}

void WholeOnOneRank(std::shared_ptr<Comm> const& comm, long rank) {
  int ptr[] = {0, 2, 4, 6, 8};
  int col[] = {0, 1, 1, 3, 0, 2, 2, 3};
  double values[] = {11, 12, 22, 24, 31, 33, 43, 44};
  Csr piece;  // 0 x 0: this rank holds nothing
  if (rank == 1) piece = Csr::Borrow(4, 4, ptr, col, values);
  Show("whole on rank 1", comm, piece);
}

void WholeOnEveryRank(std::shared_ptr<Comm> const& comm) {
  int ptr[] = {0, 2, 4, 6, 8};
  int col[] = {0, 1, 1, 3, 0, 2, 2, 3};
  double values[] = {11, 12, 22, 24, 31, 33, 43, 44};
  auto piece = Csr::Borrow(4, 4, ptr, col, values);  // without a partition
  Show("whole on every rank", comm, piece);
}

void Work(std::shared_ptr<Comm> const& comm) {
  BandsOfRows(comm, comm->Rank());
  BandsOfColumns(comm, comm->Rank());
  DenseBandsOfColumns(comm, comm->Rank());
  AnyEntries(comm, comm->Rank());
  WholeOnOneRank(comm, comm->Rank());
  WholeOnEveryRank(comm);
}

int main() {
  try {
    LocalComm::Run(2, Work);
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
