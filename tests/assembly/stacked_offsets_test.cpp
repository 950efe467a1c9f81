#include "pavex/assembly/stacked_offsets.h"

#include "tests/assembly/small_case.h"
#include "tests/support/strided_comm.h"

#include <gmock/gmock.h>
#include <limits>
#include <vector>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

// The offsets of the pieces of four processes after `offsets` have been stacked in `order`.
// Processes 0 to 2 send two rows with 3 entries, one row with 2 entries, and two rows with 4
// entries. Process 3 has no rows.
template <typename I>
std::vector<I> Counted(std::vector<int> order, std::vector<I> offsets) {
  std::vector<AssemblyRecord> records(4);
  std::int64_t const rows[] = {2, 1, 2, 0};
  std::int64_t const entries[] = {3, 2, 4, 0};
  for (std::size_t p = 0; p < records.size(); ++p) {
    records[p].mRows = rows[p];
    records[p].mNnz = entries[p];
  }
  Buffer<AssemblyRecord> all;
  Buffer<int> places;
  all.Borrow(records.data(), 4);
  places.Borrow(order.data(), 4);
  CountPiecesInOrder(all, places, offsets.data());
  return offsets;
}

template <typename I>
class StackedOffsets : public ::testing::Test {};
using Indices = ::testing::Types<int, long>;
TYPED_TEST_SUITE(StackedOffsets, Indices);

TYPED_TEST(StackedOffsets, CountTheEntriesOfThePiecesBefore) {
  using I = TypeParam;
  std::vector<I> const bySeats = {5, 8, 3, 0, 1, 9};  // of the pieces 2 1 0 3, seats 0 1 2 3

  EXPECT_THAT(Counted<I>({2, 1, 0, 3}, bySeats), ElementsAre(0, 3, 4, 6, 7, 9));
  EXPECT_THAT(Counted<I>({2, 3, 1, 0}, {5, 8, 9, 3, 0, 1}), ElementsAre(0, 3, 4, 4, 6, 7));
}

TYPED_TEST(StackedOffsets, StayAsTheyAreIfTheyDoAlready) {
  using I = TypeParam;
  std::vector<I> const offsets = {0, 1, 3, 5, 8, 9};

  EXPECT_EQ(Counted<I>({0, 1, 2, 3}, offsets), offsets);
}

// UndefinedBehaviorSanitizer would see an overflow.
TYPED_TEST(StackedOffsets, OfAPeerMayBeAnyNumber) {
  using I = TypeParam;
  constexpr I kLeast = std::numeric_limits<I>::min();
  constexpr I kMost = std::numeric_limits<I>::max();

  EXPECT_THAT(Counted<I>({2, 1, 0, 3}, {kLeast, kMost, kMost, kLeast, kLeast, 9}),
              ElementsAre(0, -1, 4, 6, 6, 9));
}

// Keeps what the process sends in its first gather, which is that of the offsets.
template <typename Inner>
class SentComm : public Inner {
 public:
  using Inner::Inner;
  std::vector<int> const& Sent() const { return mSent; }

 protected:
  PavexStatus Handle(CommCall& call) const override {
    if (call.op == CommOp::GATHERV && mSent.empty()) {
      auto const* const sent = static_cast<int const*>(call.sendbuf);
      mSent.assign(sent, sent + call.sendcount);
    }
    return Inner::Handle(call);
  }

 private:
  std::vector<int> mutable mSent;
};

// What each rank sends for the offsets of TwoBands, which arrive on rank 1.
template <typename Inner>
std::vector<std::vector<int>> SentOfTwoBands() {
  TwoBands const bands;
  std::vector<std::vector<int>> sent(3);
  LocalComm::Run(3, [&](std::shared_ptr<Comm> const& inner) {
    auto const comm = std::make_shared<SentComm<Inner>>(inner);
    LedgerPool pool;
    Assembler<double, int> assembler(&pool);
    EXPECT_EQ(assembler.Gather(comm, bands.Of(comm->Rank()), Square(4, 1)), STATUS_OK);
    sent[static_cast<std::size_t>(comm->Rank())] = comm->Sent();
    if (assembler.Whole() == nullptr) return;
    EXPECT_THAT(List(assembler.Whole()->mRowPtr), ElementsAre(0, 1, 3, 4, 5));
    EXPECT_THAT(List(assembler.Whole()->mColIdx), ElementsAre(0, 0, 1, 2, 3));
    EXPECT_THAT(List(assembler.Whole()->mValues), ElementsAre(1, 2, 3, 4, 5));
  });
  return sent;
}

// The seats 0 1 2 belong to the ranks 1 0 2.
TEST(OffsetsOfAssembly, AreSentFromThoseOfTheSeatsBeforeOnIfTheCommunicatorMovesRuns) {
  EXPECT_THAT(SentOfTwoBands<StridedComm>(),
              ElementsAre(ElementsAre(0, 1), ElementsAre(0), ElementsAre(2, 3)));
}

TEST(OffsetsOfAssembly, AreSentAsLengthsOverOtherCommunicators) {
  EXPECT_THAT(SentOfTwoBands<TraceComm>(),
              ElementsAre(ElementsAre(1, 1), ElementsAre(0), ElementsAre(1, 2)));
}

}  // namespace
}  // namespace Pavex
