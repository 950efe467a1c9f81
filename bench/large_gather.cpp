// Measures a dense gather of more elements than one call of a communicator counts, next to
// gathers of 2^28 elements: two ranks of one process (LocalComm), into real memory of rank 0.
// The pieces lie on repeated pages of a memory file, so they take no memory.
//
// The default of 9 times 2^28 floats takes 10.8 GB.

#include "bench/runner.h"
#include "pavex/comm/local_comm.h"
#include "pavex/pavex.h"
#include "tests/real_size/repeated_pages.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Pavex::Bench {
namespace {

constexpr int kRanks = 2;
constexpr long kElements = 1L << 28;

// Elements of one period of the pages.
constexpr long kPeriod = static_cast<long>(kPeriodBytes / sizeof(float));

float Content(long index) {
  return static_cast<float>(index % kPeriod);
}

std::shared_ptr<MemoryFile const> FileOfContent() {
  auto file = std::make_shared<MemoryFile>(static_cast<unsigned char>(0));
  auto* const cells = static_cast<float*>(file->Data());
  for (long k = 0; k < kPeriod; ++k)
    cells[k] = Content(k);
  return file;
}

// A column of so many elements, one half on each rank. The pools keep their memory from one
// gather to the next.
class Column {
 public:
  explicit Column(long elements) : mElements(elements), mFile(FileOfContent()) {
    for (int rank = 0; rank < kRanks; ++rank)
      mPieces[At(rank)] = std::make_unique<RepeatedPages>(
          mFile, BytesOf(Begin(rank)), BytesOf(Begin(rank + 1) - Begin(rank)));
  }

  // Gathers the column so many times onto rank 0, in the same threads. Returns whether all is
  // right.
  bool Gather(std::int64_t times) {
    std::atomic<int> wrong{0};
    LocalComm::Run(kRanks, [this, times, &wrong](std::shared_ptr<Comm> const& comm) {
      int const rank = comm->Rank();
      long const count = Begin(rank + 1) - Begin(rank);
      auto piece = MatrixDense<float, int>::Borrow(
          count, 1, true, 1, static_cast<float*>(mPieces[At(rank)]->Data()));
      piece.PlaceIn(mElements, 1, MatrixPartition::RowWise(Begin(rank)));
      Aggregator<float, int> aggregator(&mPools[At(rank)]);
      for (std::int64_t k = 0; k < times; ++k) {
        PavexStatus const status = aggregator.Gather(comm, piece, true);
        auto const* const whole = aggregator.TargetAs<MatrixDense<float, int>>();
        if (status != STATUS_OK || (rank == 0 && !IsRight(*whole))) ++wrong;
      }
    });
    return wrong == 0;
  }

 private:
  static std::size_t At(int rank) { return static_cast<std::size_t>(rank); }
  static std::size_t BytesOf(long elements) {
    return static_cast<std::size_t>(elements) * sizeof(float);
  }
  long Begin(int rank) const { return mElements / kRanks * rank; }

  // Looks at the ends, the middle and the places around element 2^31.
  bool IsRight(MatrixDense<float, int> const& whole) const {
    constexpr long kInt = 1L << 31;
    for (long const at :
         {0L, mElements / 2 - 1, mElements / 2, kInt - 1, kInt, mElements - 1}) {
      if (at < mElements && whole.mValues.mData[at] != Content(at)) return false;
    }
    return whole.NNZ() == mElements;
  }

  long mElements;
  std::shared_ptr<MemoryFile const> mFile;
  std::array<std::unique_ptr<RepeatedPages>, kRanks> mPieces;
  std::array<MemoryPool, kRanks> mPools;
};

}  // namespace
}  // namespace Pavex::Bench

int main(int argc, char** argv) {
  using namespace Pavex::Bench;
  std::int64_t times = 9;
  Runner runner("large_gather", "A dense gather of more floats than an int counts (LocalComm)");
  runner.Option("times", times, "How many times 2^28 elements the large gather has");
  runner.Parse(argc, argv);

  Column small(kElements);
  Column large(times * kElements);
  bool right = true;
  std::string const factor = std::to_string(times);
  runner.Compare(factor + " * 2^28 elements",
                 {factor + " gathers", [&] { right = small.Gather(times) && right; }},
                 {{"one gather", [&] { right = large.Gather(1) && right; }, 1.1}});
  runner.Expect(right, "every gather has the right elements");
  return runner.Finish();
}
