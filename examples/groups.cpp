// Pieces as applications have them: bands of rows that are not in the order of the ranks,
// ranks without rows, and a receiver that has none either. Split takes the ranks with rows
// together, in the order of their bands; a group of two hands the whole to the receiver.
// MpiComm and NodeComm have the same Split.
// Run: build/openmpi/examples/groups (no arguments, no MPI)
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

using Csr = Pavex::MatrixCSR<double, int>;

constexpr int kRows = 9;
constexpr int kReceiver = 1;
constexpr int kBegins[] = {6, 0, 0, 2};  // of the rows of each rank
constexpr int kCounts[] = {3, 0, 2, 4};

// The group of the ranks that take part, in the order of their keys; null on the others. Null
// on a rank that takes part means that the split has failed. The others do not see that, and
// over MPI they would wait in the next split: a program that catches the exception lets all
// ranks agree on the outcome first, or ends the job.
std::shared_ptr<Pavex::Comm> Group(Pavex::LocalComm const& all, bool takesPart, int key) {
  auto group = all.Split(takesPart ? 0 : -1, key);
  if (takesPart && group == nullptr) throw std::runtime_error("the split has failed");
  return group;
}

// The ranks with rows, in the order of their bands. Rank 0 of this group, which has the first
// rows, receives.
std::shared_ptr<Pavex::Comm> WithRows(Pavex::LocalComm const& all, int rows, int begin) {
  return Group(all, rows > 0, begin);
}

// The receiver, then the rank that has gathered the whole. If they are the same rank, it is
// alone, and nothing moves.
std::shared_ptr<Pavex::Comm> ToReceiver(Pavex::LocalComm const& all, bool receives,
                                        bool gathered) {
  return Group(all, receives || gathered, receives ? 0 : 1);
}

// Rows of a tridiagonal matrix, with columns of the whole.
struct Rows {
  std::vector<int> ptr{0};
  std::vector<int> col;
  std::vector<double> values;
};

Rows Assemble(int begin, int count, double diagonal) {
  Rows rows;
  for (int i = begin; i < begin + count; ++i) {
    for (int j = i - 1; j <= i + 1; ++j) {
      if (j < 0 || j >= kRows) continue;
      rows.col.push_back(j);
      rows.values.push_back(j == i ? diagonal : -1);
    }
    rows.ptr.push_back(static_cast<int>(rows.col.size()));
  }
  return rows;
}

// LocalComm ends all ranks when one throws, and main receives the exception.
void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

void Print(char const* when, Pavex::Aggregator<double, int> const& aggregator) {
  Csr const* const whole = aggregator.TargetAs<Csr>();
  if (whole == nullptr) return;
  double sum = 0;
  for (long k = 0; k < whole->NNZ(); ++k)
    sum += whole->mValues.mData[k];
  std::printf("%s on rank %d: %ld x %ld, %ld entries, sum %g\n", when, kReceiver, whole->mRows,
              whole->mCols, whole->NNZ(), sum);
}

void Work(std::shared_ptr<Pavex::LocalComm> const& all) {
  int const begin = kBegins[all->Rank()];
  int const count = kCounts[all->Rank()];
  Rows rows = Assemble(begin, count, 2);
  auto piece = Csr::Borrow(count, kRows, rows.ptr.data(), rows.col.data(), rows.values.data());
  piece.PlaceIn(kRows, kRows, Pavex::MatrixPartition::RowWise(begin));

  Pavex::MemoryPool pool;
  Pavex::Aggregator<double, int> bands(&pool), delivery(&pool);
  Csr const none;  // the receiver's own piece
  auto const own = [&]() -> Csr const& {
    Csr const* const whole = bands.TargetAs<Csr>();
    return whole != nullptr ? *whole : none;
  };

  auto const withRows = WithRows(*all, count, begin);
  if (withRows != nullptr) Check(bands.Gather(withRows, piece, true));
  auto const toReceiver = ToReceiver(*all, all->Rank() == kReceiver, bands.Target() != nullptr);
  if (toReceiver != nullptr) Check(delivery.Gather(toReceiver, own(), true));
  Print("gathered", delivery);

  Rows next = Assemble(begin, count, 3);  // the same pattern
  piece.SetValues(next.values.data());
  if (withRows != nullptr) Check(bands.Update(piece));
  if (toReceiver != nullptr) Check(delivery.Update(own()));
  Print("updated", delivery);
}

int main() {
  try {
    Pavex::LocalComm::Run(4, Work);
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
