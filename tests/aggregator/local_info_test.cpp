#include "pavex/aggregator/local_info.h"

#include "pavex/comm/local_comm.h"
#include "pavex/runtime/self_comm.h"
#include "tests/support/aggregator_probe.h"
#include "tests/support/pieces.h"
#include "tests/support/records.h"

#include <array>
#include <cstring>
#include <gmock/gmock.h>
#include <new>

namespace Pavex {
namespace {

using ::testing::ElementsAre;

constexpr unsigned char kFill = LedgerPool::kFill;

// A number at an offset of a record, as another process sees it.
template <typename E>
E At(MatrixLocalInfo const& info, std::size_t offset) {
  E element;
  std::memcpy(&element, reinterpret_cast<char const*>(&info) + offset, sizeof element);
  return element;
}

bool UntouchedFrom(MatrixLocalInfo const& info, std::size_t offset, std::size_t bytes) {
  return LedgerPool::Untouched(reinterpret_cast<char const*>(&info) + offset, bytes);
}

// A coordinate matrix with a different number in each field of its description.
CooPiece<> Numbered() {
  CooPiece<> piece(3, 4, {0, 1, 2, 2, 0}, {0, 1, 2, 3, 3}, {1, 2, 3, 4, 5});
  piece.matrix.mPattern = 21;
  piece.matrix.mAttribute = 22;
  piece.matrix.mPart = 1;
  piece.matrix.PlaceIn(31, 41, MatrixPartition::ColumnWise(37));
  return piece;
}

// A class of an application that reports another count and store type than its base.
class OddCoo : public MatrixCOO<double, int> {
 public:
  long NNZ() const override { return 99; }
  PavexMatrixStoreType StoreType() const override { return STORE_TYPE_1; }
};

TEST(MatrixLocalInfo, HoldsWhatNoMatrixHasUntilItArrives) {
  alignas(MatrixLocalInfo) std::array<unsigned char, sizeof(MatrixLocalInfo)> memory;
  memory.fill(kFill);

  auto const* const info = new (memory.data()) MatrixLocalInfo;

  EXPECT_FALSE(info->Arrived());
  EXPECT_EQ(At<char>(*info, 0), 0);
  for (std::size_t const offset : {4UL, 8UL, 12UL})
    EXPECT_EQ(At<std::int32_t>(*info, offset), -1);
  EXPECT_EQ(At<std::int32_t>(*info, 16), 3);
  EXPECT_EQ(At<std::int64_t>(*info, 24), 0);
  for (std::size_t const offset : {32UL, 40UL, 48UL, 56UL, 64UL})
    EXPECT_EQ(At<std::int64_t>(*info, offset), -1);
}

TEST(DistMatrixModeStr, NamesTheThreeModesAndNoOther) {
  EXPECT_STREQ(DistMatrixModeStr(DISTRIBUTED), "DISTRIBUTED");
  EXPECT_STREQ(DistMatrixModeStr(CENTRALIZED_ALL), "CENTRALIZED_ALL");
  EXPECT_STREQ(DistMatrixModeStr(CENTRALIZED_ONE), "CENTRALIZED_ONE");
  EXPECT_STREQ(DistMatrixModeStr(static_cast<DistMatrixMode>(99)), "unknown");
}

TEST(MatrixLocalInfo, TakesAnyByteButZeroForAFlagThatIsSet) {
  MatrixLocalInfo info{};
  EXPECT_FALSE(info.WithValues());

  for (int const byte : {1, 2, 255}) {
    std::memset(&info.withValues, byte, 1);
    EXPECT_TRUE(info.WithValues());
  }
}

TEST(MatrixLocalInfo, HasArrivedWithAnySingleSignOfAMatrix) {
  MatrixLocalInfo store;
  store.storeType = STORE_TYPE_0;
  MatrixLocalInfo rows;
  rows.rows = 0;
  MatrixLocalInfo cols;
  cols.cols = 0;
  MatrixLocalInfo nnz;
  nnz.nnz = 0;

  for (MatrixLocalInfo const& info : {store, rows, cols, nnz})
    EXPECT_TRUE(info.Arrived());
}

TEST(GatherLocalInfo, PutsEveryFieldAtItsOffset) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Numbered();
  Buffer<MatrixLocalInfo> infos;

  PavexStatus const status = rank.aggregator.GatherLocalInfo(piece.matrix, true, infos);

  ASSERT_EQ(status, STATUS_OK);
  ASSERT_EQ(infos.mSize, 1);
  MatrixLocalInfo const& info = infos.mData[0];
  EXPECT_EQ(At<unsigned char>(info, 0), 1);
  EXPECT_EQ(At<std::int32_t>(info, 4), 21);
  EXPECT_EQ(At<std::int32_t>(info, 8), 22);
  EXPECT_EQ(At<std::int32_t>(info, 12), 9);
  EXPECT_EQ(At<std::int32_t>(info, 16), 1);
  EXPECT_EQ(At<std::int64_t>(info, 24), 37);
  EXPECT_EQ(At<std::int64_t>(info, 32), 31);
  EXPECT_EQ(At<std::int64_t>(info, 40), 41);
  EXPECT_EQ(At<std::int64_t>(info, 48), 3);
  EXPECT_EQ(At<std::int64_t>(info, 56), 4);
  EXPECT_EQ(At<std::int64_t>(info, 64), 5);
}

TEST(GatherLocalInfo, TakesTheFlagFromTheCaller) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Numbered();
  Buffer<MatrixLocalInfo> infos;

  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, false, infos), STATUS_OK);

  EXPECT_EQ(At<unsigned char>(infos.mData[0], 0), 0);
}

TEST(GatherLocalInfo, AsksTheMatrixThroughItsVirtualFunctions) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.SetComm(rank.comm);
  OddCoo const local;
  Buffer<MatrixLocalInfo> infos;

  ASSERT_EQ(rank.aggregator.GatherLocalInfo(local, true, infos), STATUS_OK);

  EXPECT_EQ(infos.mData[0].nnz, 99);
  EXPECT_EQ(infos.mData[0].storeType, STORE_TYPE_1);
}

TEST(GatherLocalInfo, ExchangesNothingInASingleProcess) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Numbered();
  Buffer<MatrixLocalInfo> infos;

  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);

  EXPECT_THAT(rank.comm->Texts(), ElementsAre("Size()", "Rank()"));
}

TEST(GatherLocalInfo, ExchangesAllRecordsInOneCallInPlace) {
  RankUnderTest<> rank(std::make_shared<ScriptedComm>(1, 3));
  auto script = std::make_shared<ScriptedComm>(1, 3);
  script->SetRecords(std::vector<MatrixLocalInfo>(3, RecordOf(Numbered().matrix, true)));
  rank.comm = std::make_shared<TraceComm>(script);
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Numbered();
  Buffer<MatrixLocalInfo> infos;

  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);

  EXPECT_THAT(rank.comm->Texts(),
              ElementsAre("Size()", "Rank()", "Allgather(in place 72 byte; 72 byte)"));
  EXPECT_EQ(rank.comm->Calls().at(2).recvbuf, infos.mData);
}

TEST(GatherLocalInfo, LeavesEveryRankWithAllRecordsInRankOrder) {
  std::vector<std::vector<std::int64_t>> rowsSeen(3);

  LocalComm::Run(3, [&](std::shared_ptr<Comm> const& comm) {
    RankUnderTest<> rank(comm);
    rank.aggregator.SetComm(rank.comm);
    CooPiece<> const piece(10 + comm->Rank(), 4, {}, {}, {});
    Buffer<MatrixLocalInfo> infos;
    ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);
    for (std::int64_t i = 0; i < infos.mSize; ++i)
      rowsSeen[static_cast<std::size_t>(comm->Rank())].push_back(infos.mData[i].rows);
  });

  EXPECT_THAT(rowsSeen, ElementsAre(ElementsAre(10, 11, 12), ElementsAre(10, 11, 12),
                                    ElementsAre(10, 11, 12)));
}

TEST(GatherLocalInfo, OwnsOneBlockOfThePool) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Numbered();
  Buffer<MatrixLocalInfo> infos;
  infos.mAux = 5;

  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);

  EXPECT_EQ(rank.pool.Events(), std::vector<PoolEvent>{Took(72)});
  EXPECT_TRUE(rank.pool.Owns(infos.mData));
  EXPECT_EQ(infos.mCapacity, 1);
  EXPECT_EQ(infos.mAllocator, &rank.pool);
  EXPECT_EQ(infos.mAux, 0U);
}

TEST(GatherLocalInfo, ReplacesTheArrayEvenIfTheCountIsTheSame) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Numbered();
  Buffer<MatrixLocalInfo> infos;
  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);
  rank.pool.ForgetEvents();

  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);

  EXPECT_EQ(rank.pool.Events(), (std::vector<PoolEvent>{Took(72), GaveBack(72)}));
}

TEST(GatherLocalInfo, GivesTheEarlierArrayBackBeforeTheExchange) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Numbered();
  Buffer<MatrixLocalInfo> infos;
  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);
  rank.pool.ForgetEvents();
  auto script = std::make_shared<ScriptedComm>(0, 2);
  std::vector<PoolEvent> eventsAtExchange;
  script->On(CommOp::ALLGATHER, [&](CommCall const&) {
    eventsAtExchange = rank.pool.Events();
    return STATUS_OK;
  });
  rank.aggregator.SetComm(script);

  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);

  EXPECT_EQ(eventsAtExchange, (std::vector<PoolEvent>{Took(144), GaveBack(72)}));
}

TEST(GatherLocalInfo, KeepsTheOldRecordsIfThePoolFails) {
  for (PavexStatus const failure : {-77, 5}) {
    RankUnderTest<> rank(std::make_shared<SelfComm>());
    rank.aggregator.SetComm(rank.comm);
    CooPiece<> const piece = Numbered();
    Buffer<MatrixLocalInfo> infos;
    ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);
    MatrixLocalInfo const* const before = infos.mData;
    rank.aggregator.SetComm(std::make_shared<ScriptedComm>(0, 2));
    rank.pool.Fail(Fault::Once(1, failure));
    PavexStatus status = STATUS_OK;

    std::string const output = CaptureStdout(
        [&] { status = rank.aggregator.GatherLocalInfo(piece.matrix, true, infos); });

    EXPECT_EQ(status, failure);
    EXPECT_EQ(output, StatusLines(1, failure));
    EXPECT_EQ(infos.mData, before);
    EXPECT_EQ(infos.mSize, 1);
  }
}

TEST(GatherLocalInfo, LeavesOnlyTheOwnRecordFilledIfTheExchangeFails) {
  for (PavexStatus const failure : {-77, 5}) {
    RankUnderTest<> rank(std::make_shared<ScriptedComm>(1, 2));
    rank.aggregator.SetComm(rank.comm);
    rank.comm->Fail(Fault::Once(1, failure));
    CooPiece<> const piece = Numbered();
    Buffer<MatrixLocalInfo> infos;
    PavexStatus status = STATUS_OK;

    std::string const output = CaptureStdout(
        [&] { status = rank.aggregator.GatherLocalInfo(piece.matrix, true, infos); });

    EXPECT_EQ(status, failure);
    EXPECT_EQ(output, StatusLines(1, failure));
    ASSERT_EQ(infos.mSize, 2);
    EXPECT_EQ(infos.mData[1].globalRows, 31);
    EXPECT_EQ(infos.mData[0].partition.type, 3);
    EXPECT_EQ(infos.mData[0].partition.begin, 0);
    EXPECT_FALSE(infos.mData[0].Arrived());
  }
}

TEST(GatherLocalInfo, LeavesThePaddingAsTheMemoryHeldIt) {
  RankUnderTest<> rank(std::make_shared<SelfComm>());
  rank.aggregator.SetComm(rank.comm);
  CooPiece<> const piece = Numbered();
  Buffer<MatrixLocalInfo> infos;

  ASSERT_EQ(rank.aggregator.GatherLocalInfo(piece.matrix, true, infos), STATUS_OK);

  EXPECT_TRUE(UntouchedFrom(infos.mData[0], 1, 3));
  EXPECT_TRUE(UntouchedFrom(infos.mData[0], 20, 4));
}

TEST(GatherLocalInfo, RefusesACommunicatorWithoutItselfBeforeItAllocates) {
  for (auto const& [ownRank, size] : {std::pair{0, 0}, std::pair{0, -1}, std::pair{-1, 2},
                                      std::pair{2, 2}, std::pair{3, 2}}) {
    RankUnderTest<> rank(std::make_shared<ScriptedComm>(ownRank, size));
    rank.aggregator.SetComm(rank.comm);
    CooPiece<> const piece = Numbered();
    Buffer<MatrixLocalInfo> infos;
    PavexStatus status = STATUS_OK;

    std::string const output = CaptureStdout(
        [&] { status = rank.aggregator.GatherLocalInfo(piece.matrix, true, infos); });

    EXPECT_EQ(status, STATUS_INVALID_VALUE);
    EXPECT_EQ(output, StatusLines(1, STATUS_INVALID_VALUE));
    EXPECT_THAT(rank.pool.Events(), ::testing::IsEmpty());
    EXPECT_THAT(rank.comm->Texts(), ElementsAre("Size()", "Rank()"));
  }
}

}  // namespace
}  // namespace Pavex
