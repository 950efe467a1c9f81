#include "pavex/comm/mpi_comm.h"

#include "tests/comm/mpi_fixture.h"

#include <chrono>
#include <thread>

namespace Pavex {

namespace {

// Element `i` that rank `rank` contributes: every byte of a wide type takes part.
template <typename T>
struct Make {
  static T Of(int rank, int i) { return static_cast<T>(7 * rank + i + 1) / T(4); }
};
template <>
struct Make<unsigned char> {
  static unsigned char Of(int rank, int i) {
    return static_cast<unsigned char>(255 - 7 * rank - i);
  }
};
template <>
struct Make<int> {
  static int Of(int rank, int i) { return -0x12345600 + 7 * rank + i; }
};
template <>
struct Make<long> {
  static long Of(int rank, int i) { return 0x123456789abcde00 + 7 * rank + i; }
};
template <typename T>
struct Make<std::complex<T>> {
  static std::complex<T> Of(int rank, int i) {
    return {Make<T>::Of(rank, i), -Make<T>::Of(rank, i + 50)};
  }
};

// A number from 0 to 255, which every type can hold.
template <typename T>
T Small(int number) {
  return static_cast<T>(static_cast<unsigned char>(number));
}

template <typename T>
std::vector<T> PieceOf(int rank, int count) {
  std::vector<T> piece;
  for (int i = 0; i < count; ++i)
    piece.push_back(Make<T>::Of(rank, i));
  return piece;
}

// The whole array of all ranks' ragged pieces; `gap` stands between them.
template <typename T>
std::vector<T> WholeOf(RaggedPieces const& pieces, T gap) {
  std::vector<T> whole(pieces.Length(), gap);
  for (std::size_t r = 0; r < pieces.mCounts.size(); ++r)
    for (int i = 0; i < pieces.mCounts[r]; ++i)
      whole[static_cast<std::size_t>(pieces.mDispls[r] + i)] =
          Make<T>::Of(static_cast<int>(r), i);
  return whole;
}

// The same with only the piece of `rank` in it.
template <typename T>
std::vector<T> OwnSlotOf(RaggedPieces const& pieces, int rank, T gap) {
  std::vector<T> whole(pieces.Length(), gap);
  std::vector<T> const piece = PieceOf<T>(rank, pieces.mCounts[static_cast<std::size_t>(rank)]);
  std::copy(piece.begin(), piece.end(),
            whole.begin() + pieces.mDispls[static_cast<std::size_t>(rank)]);
  return whole;
}

}  // namespace

template <typename E>
class MpiCommElements : public MpiCommTest {
 protected:
  using Value = typename E::Value;

  RaggedPieces const mPieces{mSize};
  int const mCount = mPieces.mCounts[static_cast<std::size_t>(mRank)];
  std::vector<Value> const mPiece = PieceOf<Value>(mRank, mCount);
  Value const mGap = Value(77);
};
TYPED_TEST_SUITE(MpiCommElements, AllElements, );

TYPED_TEST(MpiCommElements, GathervCollectsPiecesAtTheirDisplacementsOnTheRootAlone) {
  using T = typename TypeParam::Value;
  std::vector<T> whole(this->mPieces.Length(), this->mGap);

  PavexStatus const status =
      this->mComm.Gatherv(this->mPiece.data(), this->mCount, TypeParam::kType, whole.data(),
                          this->mPieces.mCounts.data(), this->mPieces.mDispls.data(),
                          TypeParam::kType, this->mLast);

  std::vector<T> const untouched(whole.size(), this->mGap);
  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(whole,
            this->mRank == this->mLast ? WholeOf<T>(this->mPieces, this->mGap) : untouched);
}

TYPED_TEST(MpiCommElements, GathervInPlaceKeepsTheRootsOwnPiece) {
  using T = typename TypeParam::Value;
  bool const isRoot = this->mRank == this->mLast;
  std::vector<T> whole = OwnSlotOf<T>(this->mPieces, this->mRank, this->mGap);

  PavexStatus const status = this->mComm.Gatherv(
      isRoot ? static_cast<void const*>(&Comm::IN_PLACE_OBJ) : this->mPiece.data(),
      this->mCount, TypeParam::kType, whole.data(), this->mPieces.mCounts.data(),
      this->mPieces.mDispls.data(), TypeParam::kType, this->mLast);

  EXPECT_EQ(status, STATUS_OK);
  if (isRoot) {
    EXPECT_EQ(whole, WholeOf<T>(this->mPieces, this->mGap));
  }
}

TYPED_TEST(MpiCommElements, ScattervHandsEachRankItsPiece) {
  using T = typename TypeParam::Value;
  std::vector<T> const whole = WholeOf<T>(this->mPieces, this->mGap);
  std::vector<T> piece(static_cast<std::size_t>(this->mCount));

  PavexStatus const status = this->mComm.Scatterv(
      this->mRank == this->mLast ? whole.data() : nullptr, this->mPieces.mCounts.data(),
      this->mPieces.mDispls.data(), TypeParam::kType, piece.data(), this->mCount,
      TypeParam::kType, this->mLast);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(piece, this->mPiece);
}

TYPED_TEST(MpiCommElements, AllgatherPlacesEqualPiecesInRankOrder) {
  using T = typename TypeParam::Value;
  std::vector<T> const piece = PieceOf<T>(this->mRank, 2);
  std::vector<T> whole(2 * static_cast<std::size_t>(this->mSize));

  PavexStatus const status = this->mComm.Allgather(piece.data(), 2, TypeParam::kType,
                                                   whole.data(), 2, TypeParam::kType);

  EXPECT_EQ(status, STATUS_OK);
  for (int r = 0; r < this->mSize; ++r) {
    std::vector<T> const slot(whole.begin() + 2 * r, whole.begin() + 2 * r + 2);
    EXPECT_EQ(slot, PieceOf<T>(r, 2));
  }
}

TYPED_TEST(MpiCommElements, AllgatherInPlaceReadsTheOwnSlot) {
  using T = typename TypeParam::Value;
  std::vector<T> whole(2 * static_cast<std::size_t>(this->mSize));
  std::vector<T> const piece = PieceOf<T>(this->mRank, 2);
  std::copy(piece.begin(), piece.end(), whole.begin() + 2 * this->mRank);

  PavexStatus const status = this->mComm.Allgather(&Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE,
                                                   whole.data(), 2, TypeParam::kType);

  EXPECT_EQ(status, STATUS_OK);
  for (int r = 0; r < this->mSize; ++r) {
    std::vector<T> const slot(whole.begin() + 2 * r, whole.begin() + 2 * r + 2);
    EXPECT_EQ(slot, PieceOf<T>(r, 2));
  }
}

TYPED_TEST(MpiCommElements, AllgathervCollectsPiecesAtTheirDisplacementsEverywhere) {
  using T = typename TypeParam::Value;
  std::vector<T> whole(this->mPieces.Length(), this->mGap);

  PavexStatus const status = this->mComm.Allgatherv(
      this->mPiece.data(), this->mCount, TypeParam::kType, whole.data(),
      this->mPieces.mCounts.data(), this->mPieces.mDispls.data(), TypeParam::kType);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(whole, WholeOf<T>(this->mPieces, this->mGap));
}

TYPED_TEST(MpiCommElements, AllgathervInPlaceReadsTheOwnSlot) {
  using T = typename TypeParam::Value;
  std::vector<T> whole = OwnSlotOf<T>(this->mPieces, this->mRank, this->mGap);

  PavexStatus const status = this->mComm.Allgatherv(
      &Comm::IN_PLACE_OBJ, 0, DATATYPE_BYTE, whole.data(), this->mPieces.mCounts.data(),
      this->mPieces.mDispls.data(), TypeParam::kType);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(whole, WholeOf<T>(this->mPieces, this->mGap));
}

TYPED_TEST(MpiCommElements, AlltoallvTransposesThePieces) {
  using T = typename TypeParam::Value;
  // Every rank sends its ragged array; rank r gets piece r of each, r % 3 elements.
  std::vector<T> const sent = WholeOf<T>(this->mPieces, this->mGap);
  auto const size = static_cast<std::size_t>(this->mSize);
  std::vector<int> const counts(size, this->mCount);
  std::vector<int> displs;
  for (int r = 0; r < this->mSize; ++r)
    displs.push_back(r * this->mCount);
  std::vector<T> received(size * static_cast<std::size_t>(this->mCount));

  PavexStatus const status = this->mComm.Alltoallv(
      sent.data(), this->mPieces.mCounts.data(), this->mPieces.mDispls.data(), TypeParam::kType,
      received.data(), counts.data(), displs.data(), TypeParam::kType);

  std::vector<T> expected;
  for (int r = 0; r < this->mSize; ++r)
    expected.insert(expected.end(), this->mPiece.begin(), this->mPiece.end());
  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(received, expected);
}

TYPED_TEST(MpiCommElements, BcastCopiesTheRootsBuffer) {
  using T = typename TypeParam::Value;
  std::vector<T> buffer = PieceOf<T>(this->mRank, 3);

  PavexStatus const status = this->mComm.Bcast(buffer.data(), 3, TypeParam::kType, this->mLast);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(buffer, PieceOf<T>(this->mLast, 3));
}

TYPED_TEST(MpiCommElements, AllreduceSumsElementByElement) {
  using T = typename TypeParam::Value;
  std::vector<T> const addends = {T(1), Small<T>(this->mRank)};
  std::vector<T> sums(2);

  PavexStatus const status =
      this->mComm.Allreduce(addends.data(), sums.data(), 2, TypeParam::kType, REDUCE_SUM);

  std::vector<T> const expected = {Small<T>(this->mSize),
                                   Small<T>(this->mSize * this->mLast / 2)};
  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(sums, expected);
}

template <typename E>
class MpiCommOrdered : public MpiCommTest {};
using OrderedElements =
    ::testing::Types<ByteElement, Element<int>, Element<long>, Element<float>, Element<double>>;
TYPED_TEST_SUITE(MpiCommOrdered, OrderedElements, );

TYPED_TEST(MpiCommOrdered, AllreduceFindsMinimumAndMaximum) {
  using T = typename TypeParam::Value;
  std::vector<T> const candidates = {Small<T>(200 + this->mRank)};
  std::vector<T> least(1);
  std::vector<T> greatest(1);

  PavexStatus const minStatus =
      this->mComm.Allreduce(candidates.data(), least.data(), 1, TypeParam::kType, REDUCE_MIN);
  PavexStatus const maxStatus = this->mComm.Allreduce(candidates.data(), greatest.data(), 1,
                                                      TypeParam::kType, REDUCE_MAX);

  EXPECT_EQ(minStatus, STATUS_OK);
  EXPECT_EQ(maxStatus, STATUS_OK);
  EXPECT_EQ(least, std::vector<T>{T(200)});
  EXPECT_EQ(greatest, std::vector<T>{Small<T>(200 + this->mLast)});
}

TEST_F(MpiCommTest, AllreduceInPlaceReadsTheReceiveBuffer) {
  int value = mRank + 1;

  PavexStatus const status =
      mComm.Allreduce(&Comm::IN_PLACE_OBJ, &value, 1, DATATYPE_INT, REDUCE_SUM);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(value, mSize * (mSize + 1) / 2);
}

TEST_F(MpiCommTest, AlltoallvInPlaceExchangesTheSlots) {
  auto const size = static_cast<std::size_t>(mSize);
  std::vector<int> const ones(size, 1);
  std::vector<int> displs;
  std::vector<int> slots;
  std::vector<int> expected;
  for (int r = 0; r < mSize; ++r) {
    displs.push_back(r);
    slots.push_back(100 * mRank + r);
    expected.push_back(100 * r + mRank);
  }

  PavexStatus const status =
      mComm.Alltoallv(&Comm::IN_PLACE_OBJ, nullptr, nullptr, DATATYPE_BYTE, slots.data(),
                      ones.data(), displs.data(), DATATYPE_INT);

  EXPECT_EQ(status, STATUS_OK);
  EXPECT_EQ(slots, expected);
}

TEST_F(MpiCommTest, NobodyLeavesABarrierBeforeTheLastHasEntered) {
  // The processes share one machine and so one steady clock.
  auto const now = [] {
    return static_cast<long>(std::chrono::steady_clock::now().time_since_epoch().count());
  };
  if (mRank == mLast) std::this_thread::sleep_for(std::chrono::milliseconds(20));

  long const entered = now();
  PavexStatus const status = mComm.Barrier();
  long const left = now();

  long lastEntered = 0;
  EXPECT_EQ(mComm.Allreduce(&entered, &lastEntered, 1, DATATYPE_LONG, REDUCE_MAX), STATUS_OK);
  EXPECT_EQ(status, STATUS_OK);
  EXPECT_GE(left, lastEntered);
}

TEST_F(MpiCommTest, MovesNothingFromAndToNullBuffers) {
  std::vector<int> const zeros(static_cast<std::size_t>(mSize), 0);
  int const* const z = zeros.data();
  Datatype const type = DATATYPE_DOUBLE;

  EXPECT_EQ(mComm.Gatherv(nullptr, 0, type, nullptr, z, z, type, 0), STATUS_OK);
  EXPECT_EQ(mComm.Scatterv(nullptr, z, z, type, nullptr, 0, type, 0), STATUS_OK);
  EXPECT_EQ(mComm.Alltoallv(nullptr, z, z, type, nullptr, z, z, type), STATUS_OK);
  EXPECT_EQ(mComm.Allgather(nullptr, 0, type, nullptr, 0, type), STATUS_OK);
  EXPECT_EQ(mComm.Allgatherv(nullptr, 0, type, nullptr, z, z, type), STATUS_OK);
  EXPECT_EQ(mComm.Allreduce(nullptr, nullptr, 0, type, REDUCE_MAX), STATUS_OK);
  EXPECT_EQ(mComm.Bcast(nullptr, 0, type, 0), STATUS_OK);
}

TEST_F(MpiCommTest, ReadsCountsAndDisplacementsOnTheRootOnly) {
  std::vector<int> const ones(static_cast<std::size_t>(mSize), 1);
  std::vector<int> displs;
  for (int r = 0; r < mSize; ++r)
    displs.push_back(r);
  bool const isRoot = mRank == 0;
  std::vector<int> ranks(isRoot ? static_cast<std::size_t>(mSize) : 0);
  int back = -1;

  PavexStatus const gathered = mComm.Gatherv(
      &mRank, 1, DATATYPE_INT, isRoot ? ranks.data() : nullptr, isRoot ? ones.data() : nullptr,
      isRoot ? displs.data() : nullptr, DATATYPE_INT, 0);
  PavexStatus const scattered =
      mComm.Scatterv(isRoot ? ranks.data() : nullptr, isRoot ? ones.data() : nullptr,
                     isRoot ? displs.data() : nullptr, DATATYPE_INT, &back, 1, DATATYPE_INT, 0);

  EXPECT_EQ(gathered, STATUS_OK);
  EXPECT_EQ(scattered, STATUS_OK);
  EXPECT_EQ(back, mRank);
}

}  // namespace Pavex
