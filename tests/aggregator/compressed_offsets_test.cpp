// The offsets of compressed pieces over a communicator whose processes store their pieces
// themselves: each sends the final offsets of its rows (columns), in the calls that move
// lengths elsewhere, and the gathered matrix is the same.

#include "pavex/comm/local_comm.h"
#include "pavex/runtime/wrapping.h"
#include "tests/support/arrays.h"
#include "tests/support/formats.h"
#include "tests/support/log_level.h"
#include "tests/support/shares.h"
#include "tests/support/strided_comm.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <limits>
#include <random>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

bool MovesOffsets(CommCall const& call) {
  return (call.op == CommOp::GATHERV || call.op == CommOp::ALLGATHERV) &&
         (call.sendtype == DATATYPE_INT || call.sendtype == DATATYPE_LONG);
}

// Keeps what the process sends in its first transfer of indices, which is that of the offsets.
// `Overwrite`: what the receiver then finds in place of what has arrived.
template <typename Inner>
class OffsetsComm : public Inner {
 public:
  using Inner::Inner;
  std::vector<int> const& Sent() const { return mSent; }
  void Overwrite(std::vector<int> const& received) { mReceived = received; }

 protected:
  PavexStatus Handle(CommCall& call) const override {
    bool const first = MovesOffsets(call) && !mSeen;
    if (first) {
      auto const* const sent = static_cast<int const*>(call.sendbuf);
      mSent.assign(sent, sent + call.sendcount);
      mSeen = true;
    }
    PavexStatus const status = Inner::Handle(call);
    if (first) std::copy(mReceived.begin(), mReceived.end(), static_cast<int*>(call.recvbuf));
    return status;
  }

 private:
  bool mutable mSeen = false;
  std::vector<int> mutable mSent;
  std::vector<int> mReceived;
};

template <typename Format>
class CompressedOffsets : public ::testing::Test {};
TYPED_TEST_SUITE(CompressedOffsets, CompressedFormats);

// Two rows (columns) with offsets from 1, three without offsets, and one row (column).
template <typename Format>
typename Format::Piece BandOfThree(int rank) {
  auto piece = rank == 0   ? Format::Make(2, 5, {1, 3, 4}, {0, 2, 4}, {10, 20, 30})
               : rank == 1 ? Format::Make(3, 5, {}, {}, {1})
                           : Format::Make(1, 5, {0, 2}, {1, 3}, {40, 50});
  int const begins[] = {0, 2, 5};
  Format::Place(piece, 6, 5, Format::Band(begins[rank]));
  return piece;
}

// What each of three ranks sends if it holds `pieceOf` its rank.
template <typename Inner, typename PieceOf>
std::vector<std::vector<int>> SentBy(PieceOf const& pieceOf) {
  std::vector<std::vector<int>> sent(3);
  LocalComm::Run(3, [&](std::shared_ptr<Comm> const& inner) {
    auto const comm = std::make_shared<OffsetsComm<Inner>>(inner);
    auto const piece = pieceOf(comm->Rank());
    LedgerPool pool;
    Aggregator<double, int> aggregator(&pool);
    EXPECT_EQ(aggregator.Gather(comm, piece.matrix, true), STATUS_OK);
    sent[static_cast<std::size_t>(comm->Rank())] = comm->Sent();
  });
  return sent;
}

TYPED_TEST(CompressedOffsets, AreSentAsTheyWillBe) {
  EXPECT_THAT(SentBy<StridedComm>(BandOfThree<TypeParam>),
              ElementsAre(ElementsAre(0, 2), ElementsAre(3, 3, 3), ElementsAre(3)));
}

TYPED_TEST(CompressedOffsets, AreSentAsLengthsOverOtherCommunicators) {
  EXPECT_THAT(SentBy<TraceComm>(BandOfThree<TypeParam>),
              ElementsAre(ElementsAre(2, 1), ElementsAre(0, 0, 0), ElementsAre(2)));
}

// Their places may overlap, so only the sum of all lengths says what the offsets are.
TYPED_TEST(CompressedOffsets, OfPiecesThatAreNoBandsAreSentAsLengths) {
  auto const sent = SentBy<StridedComm>([](int rank) {
    auto piece = BandOfThree<TypeParam>(rank);
    int const begins[] = {0, 1, 3};
    TypeParam::Place(piece, 6, 5, {PARTITION_NONZERO_WISE, begins[rank]});
    return piece;
  });

  EXPECT_THAT(sent, ElementsAre(ElementsAre(2, 1), ElementsAre(0, 0, 0), ElementsAre(2)));
}

TYPED_TEST(CompressedOffsets, StayAsTheyArriveExceptTheLast) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& inner) {
    auto const comm = std::make_shared<OffsetsComm<StridedComm>>(inner);
    comm->Overwrite({100, 300, 200});
    auto const piece = BandOf<TypeParam>(comm->Rank());
    LedgerPool pool;
    Aggregator<double, int> aggregator(&pool);

    ASSERT_EQ(aggregator.Allgather(comm, piece.matrix, true), STATUS_OK);

    auto const& target = *aggregator.TargetAs<typename TypeParam::Matrix>();
    EXPECT_THAT(Elements(target.*TypeParam::kFirst), ElementsAre(100, 300, 200, 5));
  });
}

// --- Random pieces, over both kinds of communicator

// What one rank has, does and gets.
template <typename Format>
struct Seen {
  PavexStatus status;
  std::vector<typename Format::Index> offsets;
  std::vector<typename Format::Index> indices;
  std::vector<typename Format::Value> values;
  std::vector<std::string> calls;
  std::vector<PoolEvent> events;

  bool operator==(Seen const& other) const {
    return status == other.status && offsets == other.offsets && indices == other.indices &&
           values == other.values && calls == other.calls && events == other.events;
  }
};

constexpr int kRanks = 3;

// Offsets begin anywhere and may decrease. Some pieces have none, most are bands, and some of
// those that are not lie outside.
template <typename Format>
std::vector<typename Format::Piece> RandomPieces(unsigned seed) {
  using Index = typename Format::Index;
  std::mt19937 random(seed);
  auto const between = [&](int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(random);
  };
  std::vector<typename Format::Piece> pieces;
  bool const band = between(0, 3) != 0;
  int begin = between(-3, 3);
  for (int p = 0; p < kRanks; ++p) {
    int const lines = between(1, 5);
    std::vector<int> ptr{0};
    for (int i = 0; i < lines; ++i)
      ptr.push_back(ptr.back() + between(i + 1 < lines ? -1 : 1, 4));
    int const entries = between(0, 4) == 0 ? 0 : ptr.back();
    if (entries == 0) ptr.clear();
    std::vector<int> numbers(static_cast<std::size_t>(std::max(entries, 1)));
    for (int& number : numbers)
      number = between(0, 99);
    auto piece = Format::Make(lines, 5, ptr, numbers, numbers);
    auto const base = std::uniform_int_distribution<Index>(
        std::numeric_limits<Index>::min(), std::numeric_limits<Index>::max())(random);
    for (Index& offset : piece.first)
      offset = WrappingAdd(offset, base);
    Format::Place(piece, 20, 5,
                  band ? Format::Band(begin)
                       : MatrixPartition{PARTITION_NONZERO_WISE, begin + between(-1, 1)});
    begin += lines;
    pieces.push_back(std::move(piece));
  }
  return pieces;
}

template <typename Format, typename CommOfRank>
std::vector<Seen<Format>> GatherRandom(unsigned seed) {
  std::vector<Seen<Format>> seen(kRanks);
  LocalComm::Run(kRanks, [&](std::shared_ptr<Comm> const& inner) {
    auto const rank = static_cast<std::size_t>(inner->Rank());
    auto const comm = std::make_shared<CommOfRank>(inner);
    auto const pieces = RandomPieces<Format>(seed);
    MatrixBase const& local = pieces[rank].matrix;
    LedgerPool pool;
    Aggregator<typename Format::Value, typename Format::Index> aggregator(&pool);
    Seen<Format>& own = seen[rank];
    own.status = seed % 2 == 0 ? aggregator.Gather(comm, local, true)
                               : aggregator.Allgather(comm, local, true);
    own.calls = comm->DataTexts();
    own.events = pool.Events();
    auto const* target = aggregator.template TargetAs<typename Format::Matrix>();
    if (target == nullptr) return;
    own.offsets = Elements(target->*Format::kFirst);
    own.indices = Elements(target->*Format::kSecond);
    own.values = Elements(target->mValues);
  });
  return seen;
}

template <typename Format>
class CompressedOffsetsOf : public ::testing::Test {};
TYPED_TEST_SUITE(CompressedOffsetsOf, CompressedInstances);

TYPED_TEST(CompressedOffsetsOf, DoNotChangeResultCallsAndMemory) {
  LogLevel const silent(-1);
  int gathered = 0;
  for (unsigned seed = 0; seed < 200; ++seed) {
    auto const expected = GatherRandom<TypeParam, TraceComm>(seed);

    auto const seen = GatherRandom<TypeParam, StridedComm>(seed);

    ASSERT_EQ(seen, expected) << seed;
    if (seen[0].status == STATUS_OK) ++gathered;
  }
  EXPECT_GE(gathered, 100);
}

}  // namespace
}  // namespace Pavex
