#include "pavex/runtime/comm.h"

#include "pavex/runtime/self_comm.h"
#include "tests/support/vtable_slot.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace Pavex {
namespace {

TEST(Comm, KeepsTheOrderOfItsVirtualFunctions) {
  EXPECT_TRUE(std::has_virtual_destructor_v<Comm>);
  EXPECT_EQ(VtableSlot(&Comm::Rank), 2U);
  EXPECT_EQ(VtableSlot(&Comm::Size), 3U);
  EXPECT_EQ(VtableSlot(&Comm::Barrier), 4U);
  EXPECT_EQ(VtableSlot(&Comm::Send), 5U);
  EXPECT_EQ(VtableSlot(&Comm::Recv), 6U);
  EXPECT_EQ(VtableSlot(&Comm::Gatherv), 7U);
  EXPECT_EQ(VtableSlot(&Comm::Scatterv), 8U);
  EXPECT_EQ(VtableSlot(&Comm::Alltoallv), 9U);
  EXPECT_EQ(VtableSlot(&Comm::Allgather), 10U);
  EXPECT_EQ(VtableSlot(&Comm::Allgatherv), 11U);
  EXPECT_EQ(VtableSlot(&Comm::Allreduce), 12U);
  EXPECT_EQ(VtableSlot(&Comm::Bcast), 13U);
  EXPECT_EQ(VtableSlot(&Comm::Strided), 14U);
  EXPECT_EQ(VtableSlot(&Comm::GatherRuns), 15U);
  EXPECT_EQ(VtableSlot(&Comm::ScatterRuns), 16U);
}

TEST(Comm, MarksInPlaceByA32BitObjectOfValueZero) {
  EXPECT_EQ(Comm::IN_PLACE_OBJ, 0);
  EXPECT_EQ(sizeof(Comm::IN_PLACE_OBJ), 4U);
}

TEST(Comm, NumbersTheReductions) {
  EXPECT_EQ(REDUCE_SUM, 0);
  EXPECT_EQ(REDUCE_MIN, 1);
  EXPECT_EQ(REDUCE_MAX, 2);
  EXPECT_EQ(sizeof(ReduceOp), 4U);
}

TEST(Comm, IsAbstract) {
  EXPECT_TRUE(std::is_abstract_v<Comm>);
}

TEST(Comm, SupportsTheOptionalOperationsOnlyWhereTheyAreOverridden) {
  SelfComm const self;
  Comm const& comm = self;
  int const sent = 4;
  int received = 7;
  int const one = 1;
  int const zero = 0;

  EXPECT_EQ(comm.Barrier(), STATUS_NOT_SUPPORTED);
  EXPECT_EQ(
      comm.Alltoallv(&sent, &one, &zero, DATATYPE_INT, &received, &one, &zero, DATATYPE_INT),
      STATUS_NOT_SUPPORTED);
  EXPECT_EQ(comm.Allreduce(&sent, &received, 1, DATATYPE_INT, REDUCE_SUM),
            STATUS_NOT_SUPPORTED);
  Runs const run = {0, 1, 1, 1};
  EXPECT_FALSE(comm.Strided());
  EXPECT_EQ(comm.GatherRuns(&sent, run, &received, &run, DATATYPE_INT, 0),
            STATUS_NOT_SUPPORTED);
  EXPECT_EQ(comm.ScatterRuns(&sent, &run, &received, run, DATATYPE_INT, 0),
            STATUS_NOT_SUPPORTED);
  EXPECT_EQ(received, 7);
}

}  // namespace
}  // namespace Pavex
