// How LocalComm fails operations that meet but are wrong or disagree.

#include "tests/comm/failing_new.h"
#include "tests/comm/local_ranks.h"

#include <complex>
#include <gtest/gtest.h>
#include <vector>

namespace Pavex {
namespace {

constexpr PavexStatus kFailed = STATUS_COMM_FAILED;

// A buffer with guards that show whether something was written after its two elements.
struct Guarded {
  int mValues[4] = {-1, -1, -1, -1};

  bool Untouched() const {
    return mValues[0] == -1 && mValues[1] == -1 && mValues[2] == -1 && mValues[3] == -1;
  }
};

// Makes rank 0 send `count` elements of `type` from `buf` to rank 1, which expects two ints.
Statuses SendToTwoInts(void const* buf, int count, Datatype type, Guarded& target) {
  return RunRanks(2, [&](Comm const& comm, int rank) {
    return rank == 0 ? comm.Send(buf, count, type, 1, 0)
                     : comm.Recv(target.mValues, 2, DATATYPE_INT, 0, 0);
  });
}

TEST(LocalCommMismatch, MessageOfOtherCountFailsOnBothRanks) {
  int const values[] = {1, 2, 3};
  Guarded target;

  EXPECT_EQ(SendToTwoInts(values, 3, DATATYPE_INT, target), All(2, kFailed));
  EXPECT_EQ(SendToTwoInts(values, 1, DATATYPE_INT, target), All(2, kFailed));
  EXPECT_TRUE(target.Untouched());
}

TEST(LocalCommMismatch, MessageOfOtherTypeFailsOnBothRanks) {
  float const values[] = {1, 2};
  Guarded target;

  EXPECT_EQ(SendToTwoInts(values, 2, DATATYPE_FLOAT, target), All(2, kFailed));
  EXPECT_EQ(SendToTwoInts(values, 2, static_cast<Datatype>(7), target), All(2, kFailed));
  EXPECT_TRUE(target.Untouched());
}

TEST(LocalCommMismatch, MessageWithoutSenseFailsOnBothRanks) {
  int const values[] = {1, 2};
  Guarded target;

  EXPECT_EQ(SendToTwoInts(values, -1, DATATYPE_INT, target), All(2, kFailed));
  EXPECT_EQ(SendToTwoInts(nullptr, 2, DATATYPE_INT, target), All(2, kFailed));
  EXPECT_EQ(SendToTwoInts(&Comm::IN_PLACE_OBJ, 1, DATATYPE_INT, target), All(2, kFailed));
  EXPECT_TRUE(target.Untouched());
}

// Makes rank 0 send `count` elements of `type` to rank 1, which expects the same.
Statuses SendAsExpected(int count, Datatype type) {
  long values[] = {1, 2};
  return RunRanks(2, [&](Comm const& comm, int rank) {
    return rank == 0 ? comm.Send(&values[0], count, type, 1, 0)
                     : comm.Recv(&values[1], count, type, 0, 0);
  });
}

TEST(LocalCommMismatch, NegativeCountsThatAgreeFail) {
  EXPECT_EQ(SendAsExpected(-1, DATATYPE_INT), All(2, kFailed));
  EXPECT_EQ(SendAsExpected(-2, DATATYPE_INT), All(2, kFailed));
}

TEST(LocalCommMismatch, UnknownTypesThatAgreeFail) {
  EXPECT_EQ(SendAsExpected(1, static_cast<Datatype>(7)), All(2, kFailed));
}

TEST(LocalCommMismatch, RankOutsideTheGroupFailsAtOnce) {
  int value = 0;

  auto const statuses = RunRanks(1, [&](Comm const& comm, int) {
    EXPECT_EQ(comm.Send(&value, 1, DATATYPE_INT, 1, 0), kFailed);
    EXPECT_EQ(comm.Send(&value, 1, DATATYPE_INT, -1, 0), kFailed);
    EXPECT_EQ(comm.Recv(&value, 1, DATATYPE_INT, 1, 0), kFailed);
    EXPECT_EQ(comm.Bcast(&value, 1, DATATYPE_INT, 1), kFailed);
    return comm.Bcast(&value, 1, DATATYPE_INT, -2);
  });

  EXPECT_EQ(statuses, All(1, kFailed));
}

// Gathers two ints of each of two ranks on rank 0, which passes these arguments.
Statuses GatherWith(Guarded& target, std::vector<int> counts, std::vector<int> displs,
                    Datatype type = DATATYPE_INT) {
  return RunRanks(2, [&](Comm const& comm, int) {
    int const values[] = {1, 2};
    return comm.Gatherv(values, 2, DATATYPE_INT, target.mValues, counts.data(), displs.data(),
                        type, 0);
  });
}

TEST(LocalCommMismatch, GathervOfOtherCountFailsOnAllRanks) {
  Guarded target;

  EXPECT_EQ(GatherWith(target, {2, 1}, {0, 2}), All(2, kFailed));
  EXPECT_EQ(GatherWith(target, {2, 3}, {0, 2}), All(2, kFailed));
  EXPECT_EQ(GatherWith(target, {2, -2}, {0, 2}), All(2, kFailed));
  EXPECT_TRUE(target.Untouched());
}

TEST(LocalCommMismatch, GathervToNegativeDisplacementFailsOnAllRanks) {
  Guarded target;

  EXPECT_EQ(GatherWith(target, {2, 2}, {2, -1}), All(2, kFailed));
  EXPECT_TRUE(target.Untouched());
}

TEST(LocalCommMismatch, GathervOfASingleElementToNegativeDisplacementFails) {
  int values[] = {-1, -1};
  int const counts[] = {1};
  int const displs[] = {-1};

  auto const statuses = RunRanks(1, [&](Comm const& comm, int rank) {
    return comm.Gatherv(&rank, 1, DATATYPE_INT, values + 1, counts, displs, DATATYPE_INT, 0);
  });

  EXPECT_EQ(statuses, All(1, kFailed));
  EXPECT_EQ(values[0], -1);
}

TEST(LocalCommMismatch, ScattervFromNegativeDisplacementFailsEvenIfNothingIsExpected) {
  int const values[] = {1};
  int const counts[] = {1};
  int const displs[] = {-1};

  auto const statuses = RunRanks(1, [&](Comm const& comm, int) {
    return comm.Scatterv(values + 1, counts, displs, DATATYPE_INT, nullptr, 0, DATATYPE_INT, 0);
  });

  EXPECT_EQ(statuses, All(1, kFailed));
}

TEST(LocalCommMismatch, GathervToANullArrayFailsOnAllRanks) {
  int const counts[] = {0, 1};
  int const displs[] = {0, 1};

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    return comm.Gatherv(&rank, rank, DATATYPE_INT, nullptr, counts, displs, DATATYPE_INT, 0);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommMismatch, GathervOfOtherTypeFailsOnAllRanks) {
  Guarded target;

  EXPECT_EQ(GatherWith(target, {2, 2}, {0, 2}, DATATYPE_FLOAT), All(2, kFailed));
  EXPECT_TRUE(target.Untouched());
}

TEST(LocalCommMismatch, GathervWithoutCountsOnRootFailsOnAllRanks) {
  Guarded target;

  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    return comm.Gatherv(&rank, 1, DATATYPE_INT, target.mValues, nullptr, nullptr, DATATYPE_INT,
                        1);
  });

  EXPECT_EQ(statuses, All(3, kFailed));
  EXPECT_TRUE(target.Untouched());
}

TEST(LocalCommMismatch, GathervOfNothingWithoutCountsOnRootFailsOnAllRanks) {
  int const displs[] = {0, 0};

  for (int const* const places : {static_cast<int const*>(nullptr), displs}) {
    auto const statuses = RunRanks(2, [&](Comm const& comm, int) {
      return comm.Gatherv(nullptr, 0, DATATYPE_INT, nullptr, nullptr, places, DATATYPE_INT, 0);
    });

    EXPECT_EQ(statuses, All(2, kFailed));
  }
}

TEST(LocalCommMismatch, GathervWithoutDisplacementsOnRootFailsOnAllRanks) {
  Guarded target;
  int const counts[] = {1, 1};

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    return comm.Gatherv(&rank, 1, DATATYPE_INT, target.mValues, counts, nullptr, DATATYPE_INT,
                        0);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
  EXPECT_TRUE(target.Untouched());
}

TEST(LocalCommMismatch, InPlaceMarkerAsReceiveBufferFailsOnAllRanks) {
  auto* const marker = const_cast<std::int32_t*>(&Comm::IN_PLACE_OBJ);

  auto const gathered = RunRanks(2, [&](Comm const& comm, int rank) {
    return comm.Allgather(&rank, 1, DATATYPE_INT, marker, 1, DATATYPE_INT);
  });
  auto const reduced = RunRanks(2, [&](Comm const& comm, int rank) {
    return comm.Allreduce(&rank, marker, 1, DATATYPE_INT, REDUCE_SUM);
  });

  EXPECT_EQ(gathered, All(2, kFailed));
  EXPECT_EQ(reduced, All(2, kFailed));
}

TEST(LocalCommMismatch, GathervInPlaceOffTheRootFailsOnAllRanks) {
  int const counts[] = {1, 1};
  int const displs[] = {0, 1};
  Guarded target;

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    void const* const source = rank == 1 ? &Comm::IN_PLACE_OBJ : &rank;
    return comm.Gatherv(source, 1, DATATYPE_INT, target.mValues, counts, displs, DATATYPE_INT,
                        0);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
  EXPECT_TRUE(target.Untouched());
}

TEST(LocalCommMismatch, GathervOfNothingInPlaceOffTheRootFailsOnAllRanks) {
  int const none[] = {0, 0};

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    void const* const source = rank == 1 ? &Comm::IN_PLACE_OBJ : nullptr;
    return comm.Gatherv(source, 0, DATATYPE_BYTE, nullptr, none, none, DATATYPE_BYTE, 0);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommMismatch, ScattervInPlaceFailsOnAllRanks) {
  int const counts[] = {1, 1};
  int const displs[] = {0, 1};

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    return comm.Scatterv(&Comm::IN_PLACE_OBJ, counts, displs, DATATYPE_INT, &rank, 1,
                         DATATYPE_INT, 0);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommMismatch, AlltoallvOfOtherCountFailsOnAllRanks) {
  int const sent[] = {1, 1};
  int const displs[] = {0, 1};
  std::vector<Guarded> targets(2);

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    int const values[] = {1, 2};
    int const expected[] = {1, 1 + rank};
    return comm.Alltoallv(values, sent, displs, DATATYPE_INT, targets[Index(rank)].mValues,
                          expected, displs, DATATYPE_INT);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
  EXPECT_TRUE(targets[0].Untouched() && targets[1].Untouched());
}

TEST(LocalCommMismatch, ScattervOfOtherCountFailsOnAllRanks) {
  int const whole[] = {1, 2, 3, 4};
  int const counts[] = {1, 3};
  int const displs[] = {0, 1};
  std::vector<Guarded> targets(2);

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    return comm.Scatterv(whole, counts, displs, DATATYPE_INT, targets[Index(rank)].mValues,
                         rank + 1, DATATYPE_INT, 0);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
  EXPECT_TRUE(targets[0].Untouched() && targets[1].Untouched());
}

TEST(LocalCommMismatch, AllgatherOfOtherCountFailsOnAllRanks) {
  std::vector<Guarded> targets(3);

  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    int const count = rank == 2 ? 2 : 1;
    int const values[] = {1, 2};
    return comm.Allgather(values, count, DATATYPE_INT, targets[Index(rank)].mValues, 1,
                          DATATYPE_INT);
  });

  EXPECT_EQ(statuses, All(3, kFailed));
  EXPECT_TRUE(targets[0].Untouched() && targets[1].Untouched() && targets[2].Untouched());
}

TEST(LocalCommMismatch, AllgatherThatExpectsMoreThanIsSentFailsOnAllRanks) {
  std::vector<Guarded> targets(2);

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    return comm.Allgather(&rank, 1, DATATYPE_INT, targets[Index(rank)].mValues, 2,
                          DATATYPE_INT);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
  EXPECT_TRUE(targets[0].Untouched() && targets[1].Untouched());
}

TEST(LocalCommMismatch, AllgathervWithOneRankOfOtherCountsFailsOnAllRanks) {
  int const displs[] = {0, 1};
  std::vector<Guarded> targets(2);

  auto const statuses = RunRanks(2, [&](Comm const& comm, int rank) {
    int const counts[] = {1, 1 + rank};
    return comm.Allgatherv(&rank, 1, DATATYPE_INT, targets[Index(rank)].mValues, counts, displs,
                           DATATYPE_INT);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
  EXPECT_TRUE(targets[0].Untouched() && targets[1].Untouched());
}

TEST(LocalCommMismatch, BcastOfOtherCountFailsOnAllRanks) {
  std::vector<Guarded> targets(3);

  auto const statuses = RunRanks(3, [&](Comm const& comm, int rank) {
    return comm.Bcast(targets[Index(rank)].mValues, rank == 1 ? 1 : 2, DATATYPE_INT, 0);
  });

  EXPECT_EQ(statuses, All(3, kFailed));
  EXPECT_TRUE(targets[0].Untouched() && targets[1].Untouched() && targets[2].Untouched());
}

TEST(LocalCommMismatch, AllreduceOfOtherReductionFailsOnAllRanks) {
  auto const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    int result = 0;
    return comm.Allreduce(&rank, &result, 1, DATATYPE_INT, rank == 0 ? REDUCE_SUM : REDUCE_MIN);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommMismatch, AllreduceRefusesWhatHasNoMeaning) {
  auto const statuses = RunRanks(1, [](Comm const& comm, int) {
    std::complex<double> const value(1, 2);
    std::complex<double> result;
    auto const type = DATATYPE_COMPLEX_DOUBLE;
    int const number = 1;
    int sum = 0;
    auto const unknown = static_cast<ReduceOp>(3);
    EXPECT_EQ(comm.Allreduce(&number, &sum, 1, DATATYPE_INT, unknown), kFailed);
    EXPECT_EQ(comm.Allreduce(&value, &result, 1, type, REDUCE_MIN), kFailed);
    EXPECT_EQ(comm.Allreduce(&value, &result, 1, type, unknown), kFailed);
    EXPECT_EQ(comm.Allreduce(&value, &result, 1, DATATYPE_COMPLEX_FLOAT, REDUCE_MAX), kFailed);
    return comm.Allreduce(&Comm::IN_PLACE_OBJ, &result, 1, DATATYPE_INT, REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(1, kFailed));
}

TEST(LocalCommMismatch, AllreduceOfOtherCountFailsOnAllRanks) {
  Statuses const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    int const mine[2] = {1, 1};
    int result[2] = {};
    return comm.Allreduce(mine, result, rank == 0 ? 2 : 1, DATATYPE_INT, REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommMismatch, AllreduceOfOtherTypeFailsOnAllRanks) {
  Statuses const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    float const mine = 1;
    float result = 0;
    return comm.Allreduce(&mine, &result, 1, rank == 0 ? DATATYPE_INT : DATATYPE_FLOAT,
                          REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommMismatch, AllreduceWithoutOperandFailsOnAllRanks) {
  Statuses const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    int result = 0;
    return comm.Allreduce(rank == 0 ? nullptr : &rank, &result, 1, DATATYPE_INT, REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommMismatch, AllreduceWithoutPlaceForTheResultFailsOnAllRanks) {
  Statuses const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    int result = 0;
    return comm.Allreduce(&rank, rank == 1 ? nullptr : &result, 1, DATATYPE_INT, REDUCE_SUM);
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

TEST(LocalCommMismatch, LaterOperationsWorkAsBefore) {
  auto const statuses = RunRanks(3, [](Comm const& comm, int rank) {
    int value = rank;
    EXPECT_EQ(comm.Bcast(&value, rank + 1, DATATYPE_INT, 0), kFailed);
    PavexStatus const status = comm.Bcast(&value, 1, DATATYPE_INT, 2);
    EXPECT_EQ(value, 2);
    return status;
  });

  EXPECT_EQ(statuses, All(3, STATUS_OK));
}

TEST(LocalCommMemory, ThatIsMissingFailsTheOperationAndLeavesTheNext) {
  auto const statuses = RunRanks(1, [](Comm const& comm, int) {
    FailNewAt(1);
    PavexStatus const status = comm.Barrier();
    FailNewAt(0);
    EXPECT_EQ(status, kFailed);
    return comm.Barrier();
  });

  EXPECT_EQ(statuses, All(1, STATUS_OK));
}

TEST(LocalCommMemory, IsNotNeededToWaitForARankThatLeaves) {
  auto const statuses = RunRanks(2, [](Comm const& comm, int rank) {
    if (rank == 1) return kFailed;
    int value = 0;
    FailNewAt(1);
    PavexStatus const status = comm.Recv(&value, 1, DATATYPE_INT, 1, 0);
    FailNewAt(0);
    return status;
  });

  EXPECT_EQ(statuses, All(2, kFailed));
}

}  // namespace
}  // namespace Pavex
