#include "tools/ranks/out_of_memory.h"

#include "pavex/runtime/self_comm.h"
#include "tools/choice/job_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

TEST(AmountOf, IsShownInItsUnit) {
  EXPECT_EQ(AmountOf(0), "0 bytes");
  EXPECT_EQ(AmountOf(999), "999 bytes");
  EXPECT_EQ(AmountOf(1000), "1.0 kB");
  EXPECT_EQ(AmountOf(3100000), "3.1 MB");
  EXPECT_EQ(AmountOf(8400000000), "8.4 GB");
  EXPECT_EQ(AmountOf(std::size_t{1} << 63), "9.2 EB");
}

TEST(RequireWithin, NamesWhatThePoolRefused) {
  MemoryPool pool;
  void* held = nullptr;
  ASSERT_EQ(pool.Allocate(&held, 3100), STATUS_OK);
  void* refused = nullptr;
  PavexStatus const status = pool.Allocate(&refused, std::size_t{1} << 62);
  pool.Deallocate(held, 3100);  // as a failed gather returns its blocks

  EXPECT_THAT([&] { RequireWithin(pool, status, "the gather", SelfComm()); },
              testing::ThrowsMessage<JobError>(
                  "rank 0: out of memory, 4.6 EB asked for with 3.1 kB in use"));
}

TEST(RequireWithin, NamesTheStepOfAnyOtherFailure) {
  MemoryPool pool;
  void* refused = nullptr;
  ASSERT_EQ(pool.Allocate(&refused, std::size_t{1} << 62), STATUS_OUT_OF_MEMORY);

  EXPECT_THAT([&] { RequireWithin(pool, STATUS_COMM_FAILED, "the gather", SelfComm()); },
              testing::ThrowsMessage<JobError>(
                  testing::StartsWith("the gather failed on rank 0 with status -20: ")));
  EXPECT_NO_THROW(RequireWithin(pool, STATUS_OK, "the gather", SelfComm()));
}

}  // namespace
}  // namespace Pavex::Tool
