// The update of sparse matrices: only values move.

#include "pavex/comm/local_comm.h"
#include "tests/support/arrays.h"
#include "tests/support/formats.h"
#include "tests/support/instances.h"
#include "tests/support/log_level.h"
#include "tests/support/shares.h"

#include <gmock/gmock.h>
#include <typeinfo>

namespace Pavex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kMismatch[] =
    "[ERROR] The input matrix is inconsistent with that in the gather phase.\n";
constexpr char kNoValues[] = "[ERROR] Local matrix has no values when we need it.\n";

// The piece of rank `rank` of two in any format. The gathered matrix has the two values of rank
// 0 first, then the three of rank 1.
template <typename T = double, typename I = int>
struct Coo {
  using Value = T;
  using Index = I;
  using Matrix = MatrixCOO<T, I>;
  using Piece = CooPiece<T, I>;
  static Piece Share(int rank, std::vector<int> const& values) {
    Piece piece = rank == 0 ? Piece(4, 5, {0, 1}, {0, 2}, values)
                            : Piece(4, 5, {3, 1, 2}, {4, 0, 2}, values);
    piece.matrix.PlaceIn(4, 5, MatrixPartition::NonzeroWise());
    return piece;
  }
  static Piece Whole(std::vector<int> const& values) { return {4, 5, {0, 1}, {0, 2}, values}; }
  static Piece Empty() { return {0, 0, {}, {}, {}}; }
};

template <typename Format>
struct Compressed : Format {
  using typename Format::Piece;
  static Piece Share(int rank, std::vector<int> const& values) {
    Piece piece = rank == 0 ? Format::Make(1, 5, {1, 3}, {0, 2}, values)
                            : Format::Make(2, 5, {0, 1, 3}, {4, 0, 2}, values);
    Format::Place(piece, 3, 5, Format::Band(rank));
    return piece;
  }
  static Piece Whole(std::vector<int> const& values) {
    return Format::Make(1, 5, {1, 3}, {0, 2}, values);
  }
  static Piece Empty() { return Format::Make(0, 0, {}, {}, {}); }
};

template <typename T, typename I>
using Csr = Compressed<CsrFormat<T, I>>;
template <typename T, typename I>
using Csc = Compressed<CscFormat<T, I>>;

// The values of rank `rank` in the first and in the second round.
std::vector<int> Old(int rank) {
  return rank == 0 ? std::vector<int>{10, 20} : std::vector<int>{30, 40, 50};
}
std::vector<int> New(int rank) {
  return rank == 0 ? std::vector<int>{11, 21} : std::vector<int>{31, 41, 51};
}

// --- Every instance

template <typename Format>
class UpdateSparseOf : public ::testing::Test {};
using Instances = EveryInstanceOf<Coo, Csr, Csc>;
TYPED_TEST_SUITE(UpdateSparseOf, Instances);

TYPED_TEST(UpdateSparseOf, PutsNewValuesWhereTheOldOnesStood) {
  using T = typename TypeParam::Value;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<T, typename TypeParam::Index> rank(comm);
    auto const old = TypeParam::Share(comm->Rank(), Old(comm->Rank()));
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, old.matrix, true), STATUS_OK);
    rank.ForgetThePast();
    auto const fresh = TypeParam::Share(comm->Rank(), New(comm->Rank()));

    ASSERT_EQ(rank.aggregator.Update(fresh.matrix), STATUS_OK);

    std::string const t = kTypeName<T>;
    if (comm->Rank() == 0) {
      EXPECT_THAT(
          rank.comm->Texts(),
          ElementsAre("Rank()", "Gatherv(2 " + t + "; {2, 3} at {0, 2} " + t + "; root 0)"));
      EXPECT_EQ(Elements(rank.template Target<typename TypeParam::Matrix>().mValues),
                Numbers<T>({11, 21, 31, 41, 51}));
    } else {
      EXPECT_THAT(rank.comm->Texts(),
                  ElementsAre("Rank()", "Gatherv(3 " + t + "; " + t + "; root 0)"));
      EXPECT_EQ(rank.aggregator.Target(), nullptr);
    }
  });
}

TYPED_TEST(UpdateSparseOf, SendsTheValuesOfTheHolderUnderATagOfTheirOwn) {
  using T = typename TypeParam::Value;
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<T, typename TypeParam::Index> rank(comm);
    bool const holder = comm->Rank() == 1;
    auto const old = holder ? TypeParam::Whole({10, 20}) : TypeParam::Empty();
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, old.matrix, true), STATUS_OK);
    rank.ForgetThePast();
    auto const fresh = holder ? TypeParam::Whole({11, 21}) : TypeParam::Empty();

    ASSERT_EQ(rank.aggregator.Update(fresh.matrix), STATUS_OK);

    std::string const t = kTypeName<T>;
    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()", "Rank()",
                                                holder ? "Send(2 " + t + " to 0 tag 51)"
                                                       : "Recv(2 " + t + " from 1 tag 51)"));
    if (!holder) {
      EXPECT_EQ(Elements(rank.template Target<typename TypeParam::Matrix>().mValues),
                Numbers<T>({11, 21}));
    }
  });
}

// --- Every format

template <typename Format>
class UpdateSparse : public ::testing::Test {
 protected:
  using Matrix = typename Format::Matrix;
  using Piece = typename Format::Piece;

  // Rank `rank` of two, which has gathered the old values and forgotten how.
  static RankUnderTest<> Scripted(int rank) {
    Piece const first = Format::Share(0, Old(0));
    Piece const second = Format::Share(1, Old(1));
    return RankUnderTest<>(ScriptedRank(rank, {&first.matrix, &second.matrix}));
  }
  static void GatherOld(RankUnderTest<>& rank, Piece const& piece) {
    ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
    rank.ForgetThePast();
  }
  static Outcome Update(RankUnderTest<>& rank, MatrixBase const& local) {
    return Watch([&] { return rank.aggregator.Update(local); });
  }
  static Buffer<double> const& Values(RankUnderTest<>& rank) {
    return rank.Target<Matrix>().mValues;
  }
};
using Formats = ::testing::Types<Coo<>, Csr<double, int>, Csc<double, int>>;
TYPED_TEST_SUITE(UpdateSparse, Formats);

TYPED_TEST(UpdateSparse, TakesTheNewValuesThenGivesTheOldOnesBack) {
  RankUnderTest<> rank = TestFixture::Scripted(0);
  auto const piece = TypeParam::Share(0, Old(0));
  TestFixture::GatherOld(rank, piece);

  ExpectOutcome(TestFixture::Update(rank, piece.matrix), STATUS_OK, "");

  EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(40), GaveBack(40)}));
  EXPECT_EQ(TestFixture::Values(rank).mData, rank.comm->Calls().at(1).recvbuf);
  EXPECT_EQ(TestFixture::Values(rank).mAllocator, &rank.pool);
}

TYPED_TEST(UpdateSparse, TakesNothingWhereNothingIsReceived) {
  RankUnderTest<> rank = TestFixture::Scripted(1);
  auto const piece = TypeParam::Share(1, Old(1));
  TestFixture::GatherOld(rank, piece);

  ExpectOutcome(TestFixture::Update(rank, piece.matrix), STATUS_OK, "");

  EXPECT_THAT(rank.pool.Events(), IsEmpty());
  EXPECT_EQ(rank.comm->Calls().at(1).recvbuf, nullptr);
}

TYPED_TEST(UpdateSparse, RebindsTheValuesAloneWhereEveryProcessHoldsTheWhole) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const old = TypeParam::Whole({10, 20});
    auto const fresh = TypeParam::Whole({11, 21});
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, old.matrix, true), STATUS_OK);
    MatrixBase const* const target = rank.aggregator.Target();
    PavexMatrixStore before;
    target->Query(before);
    rank.ForgetThePast();

    ASSERT_EQ(rank.aggregator.Update(fresh.matrix), STATUS_OK);

    EXPECT_EQ(rank.aggregator.Target(), target);
    EXPECT_EQ(TestFixture::Values(rank).mData, fresh.values.data());
    EXPECT_EQ(TestFixture::Values(rank).mAllocator, nullptr);
    PavexMatrixStore after;
    target->Query(after);
    EXPECT_EQ(after.coo.row, before.coo.row);
    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()"));
    EXPECT_THAT(rank.pool.Events(), IsEmpty());
  });
}

TYPED_TEST(UpdateSparse, BroadcastsTheValuesOfTheHolderToEveryRank) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    bool const holder = comm->Rank() == 1;
    auto const old = holder ? TypeParam::Whole({10, 20}) : TypeParam::Empty();
    auto const fresh = holder ? TypeParam::Whole({11, 21}) : TypeParam::Empty();
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, old.matrix, true), STATUS_OK);
    rank.ForgetThePast();

    ASSERT_EQ(rank.aggregator.Update(fresh.matrix), STATUS_OK);

    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()", "Bcast(2 double; root 1)"));
    EXPECT_THAT(Elements(TestFixture::Values(rank)), ElementsAre(11, 21));
    EXPECT_EQ(TestFixture::Values(rank).mData == fresh.values.data(), holder);
  });
}

TYPED_TEST(UpdateSparse, BringsValuesToAMatrixGatheredWithoutThem) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const old = TypeParam::Share(comm->Rank(), {});
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, old.matrix, false), STATUS_OK);
    auto const fresh = TypeParam::Share(comm->Rank(), New(comm->Rank()));

    ASSERT_EQ(rank.aggregator.Update(fresh.matrix), STATUS_OK);

    EXPECT_THAT(Elements(TestFixture::Values(rank)), ElementsAre(11, 21, 31, 41, 51));
  });
}

// --- Checks

TYPED_TEST(UpdateSparse, FailsBeforeAnyTransferOnAMatrixOfOtherEntries) {
  for (int const ownRank : {0, 1}) {
    RankUnderTest<> rank = TestFixture::Scripted(ownRank);
    TestFixture::GatherOld(rank, TypeParam::Share(ownRank, Old(ownRank)));

    Outcome const outcome = TestFixture::Update(rank, TypeParam::Share(1 - ownRank, {}).matrix);

    ExpectOutcome(outcome, -9, kMismatch + StatusLines(1, -9));
    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()"));
    EXPECT_THAT(rank.pool.Events(), IsEmpty());
  }
}

TYPED_TEST(UpdateSparse, FailsOnTheProcessWhoseMatrixChanged) {
  LogLevel const quiet(LOG_ERROR - 1);
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const old = TypeParam::Share(comm->Rank(), Old(comm->Rank()));
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, old.matrix, true), STATUS_OK);
    auto const fresh = TypeParam::Share(0, New(0));

    PavexStatus const status = rank.aggregator.Update(fresh.matrix);

    EXPECT_EQ(status, comm->Rank() == 1 ? STATUS_MISMATCH : STATUS_COMM_FAILED);
    if (comm->Rank() == 0) {
      EXPECT_THAT(Elements(TestFixture::Values(rank)), ElementsAre(10, 20, 30, 40, 50));
    }
  });
}

TYPED_TEST(UpdateSparse, FailsBeforeAnyTransferWithoutValues) {
  for (int const ownRank : {0, 1}) {
    RankUnderTest<> rank = TestFixture::Scripted(ownRank);
    TestFixture::GatherOld(rank, TypeParam::Share(ownRank, Old(ownRank)));

    Outcome const outcome = TestFixture::Update(rank, TypeParam::Share(ownRank, {}).matrix);

    ExpectOutcome(outcome, -16, kNoValues + StatusLines(1, -16));
    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Rank()"));
  }
}

TYPED_TEST(UpdateSparse, FailsInTheChecksOnAMatrixOfAnotherStoreType) {
  RankUnderTest<> rank = TestFixture::Scripted(0);
  TestFixture::GatherOld(rank, TypeParam::Share(0, Old(0)));
  auto other = TypeParam::Share(0, New(0));
  other.matrix.mPart = 1;

  ExpectOutcome(TestFixture::Update(rank, other.matrix), -9, kMismatch + StatusLines(1, -9));
}

TEST(UpdateSparseDispatch, ThrowsWhereTheOwnMatrixWasOfAnotherClassThanTheHolders) {
  auto const holder = Csr<double, int>::Whole({10, 20});
  auto const empty = Coo<>::Empty();
  RankUnderTest<> rank(ScriptedRank(1, {&holder.matrix, &empty.matrix}));
  EXPECT_THROW((void)rank.aggregator.Gather(rank.comm, empty.matrix, true), std::bad_cast);

  EXPECT_THROW((void)rank.aggregator.Update(empty.matrix), std::bad_cast);
}

// --- Failures

TYPED_TEST(UpdateSparse, KeepsTheOldValuesIfThePoolFails) {
  for (PavexStatus const failure : {-77, 5}) {
    RankUnderTest<> rank = TestFixture::Scripted(0);
    auto const piece = TypeParam::Share(0, Old(0));
    TestFixture::GatherOld(rank, piece);
    double const* const before = TestFixture::Values(rank).mData;
    rank.pool.Fail(Fault::Once(1, failure));

    ExpectOutcome(TestFixture::Update(rank, piece.matrix), failure, StatusLines(1, failure));

    EXPECT_EQ(TestFixture::Values(rank).mData, before);
    EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Refused(40)});
    EXPECT_THAT(rank.comm->DataTexts(), IsEmpty());
  }
}

TYPED_TEST(UpdateSparse, KeepsTheOldValuesIfTheTransferFails) {
  for (PavexStatus const failure : {-77, 5}) {
    RankUnderTest<> rank = TestFixture::Scripted(0);
    auto const piece = TypeParam::Share(0, Old(0));
    TestFixture::GatherOld(rank, piece);
    double const* const before = TestFixture::Values(rank).mData;
    rank.comm->Fail(Fault::Once(1, failure), TraceComm::AFTERWARDS);

    ExpectOutcome(TestFixture::Update(rank, piece.matrix), failure, StatusLines(1, failure));

    EXPECT_EQ(TestFixture::Values(rank).mData, before);
    EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(40), GaveBack(40)}));
  }
}

TYPED_TEST(UpdateSparse, ReportsAFailedBroadcastOnceAndKeepsTheOldValues) {
  auto const holder = TypeParam::Whole({10, 20});
  auto const empty = TypeParam::Empty();
  for (int const ownRank : {0, 1}) {
    RankUnderTest<> rank(ScriptedRank(ownRank, {&empty.matrix, &holder.matrix}));
    auto const& piece = ownRank == 1 ? holder : empty;
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, piece.matrix, true), STATUS_OK);
    double const* const before = TestFixture::Values(rank).mData;
    rank.comm->Fail(Fault::Once(1, -77));
    auto const fresh = ownRank == 1 ? TypeParam::Whole({11, 21}) : TypeParam::Empty();

    ExpectOutcome(TestFixture::Update(rank, fresh.matrix), -77, StatusLines(1, -77));

    EXPECT_EQ(TestFixture::Values(rank).mData, before);
  }
}

TYPED_TEST(UpdateSparse, SucceedsAfterOneThatFailed) {
  LogLevel const quiet(LOG_ERROR - 1);
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const old = TypeParam::Share(comm->Rank(), Old(comm->Rank()));
    ASSERT_EQ(rank.aggregator.Gather(rank.comm, old.matrix, true), STATUS_OK);
    auto const fresh = TypeParam::Share(comm->Rank(), New(comm->Rank()));
    rank.comm->Fail(Fault::Once(1, -77));
    ASSERT_EQ(rank.aggregator.Update(fresh.matrix), -77);

    ASSERT_EQ(rank.aggregator.Update(fresh.matrix), STATUS_OK);

    if (comm->Rank() == 0) {
      EXPECT_THAT(Elements(TestFixture::Values(rank)), ElementsAre(11, 21, 31, 41, 51));
    }
  });
}

TYPED_TEST(UpdateSparse, PrintsNothingBelowTheErrorLevel) {
  RankUnderTest<> rank = TestFixture::Scripted(0);
  auto const piece = TypeParam::Share(0, Old(0));
  TestFixture::GatherOld(rank, piece);
  rank.comm->Fail(Fault::Once(1, -77));
  LogLevel const level(LOG_ERROR - 1);

  ExpectOutcome(TestFixture::Update(rank, piece.matrix), -77, "");
}

// --- UpdateCOO

TEST(UpdateCOO, SendsTheCountOfItsMatrixToThePlacesOfTheGatherWithoutAnyCheck) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.ForgetThePast();
  CooPiece<> const other(9, 9, {0, 1, 2, 3}, {0, 1, 2, 3}, {1, 2, 3, 4});

  Outcome const outcome = Watch([&] { return rank.aggregator.UpdateCOO(other.matrix); });

  ExpectOutcome(outcome, STATUS_OK, "");
  EXPECT_THAT(rank.comm->Texts(),
              ElementsAre("Gatherv(4 double; {2, 3} at {0, 2} double; root 0)"));
  EXPECT_EQ(rank.comm->Calls().at(0).sendbuf, other.values.data());
}

TEST(UpdateCOO, ReturnsTheStatusOfAFailedTransferUnchanged) {
  RankUnderTest<> rank = ShareRank(0);
  CooPiece<> const piece = Share(0);
  ASSERT_EQ(Gather(rank, piece.matrix).status, STATUS_OK);
  rank.ForgetThePast();
  rank.comm->Fail(Fault::Once(1, -77));

  Outcome const outcome = Watch([&] { return rank.aggregator.UpdateCOO(piece.matrix); });

  ExpectOutcome(outcome, -77, StatusLines(1, -77));
}

TEST(UpdateCOO, PutsNewValuesWhereTheOldOnesStood) {
  LocalComm::Run(2, [](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    auto const old = Coo<>::Share(comm->Rank(), Old(comm->Rank()));
    auto const fresh = Coo<>::Share(comm->Rank(), New(comm->Rank()));
    ASSERT_EQ(rank.aggregator.Allgather(rank.comm, old.matrix, true), STATUS_OK);

    ASSERT_EQ(rank.aggregator.UpdateCOO(fresh.matrix), STATUS_OK);

    auto const& target = rank.Target<MatrixCOO<double, int>>();
    EXPECT_THAT(Elements(target.mValues), ElementsAre(11, 21, 31, 41, 51));
    EXPECT_THAT(Elements(target.mRowIdx), ElementsAre(0, 1, 3, 1, 2));
  });
}

}  // namespace
}  // namespace Pavex
