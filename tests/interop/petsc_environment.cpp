// PETSc lives from before the first test until after the last one. MPI is the main function's.

#include <gtest/gtest.h>
#include <petscsys.h>

namespace {

class PetscEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    ASSERT_EQ(PetscInitializeNoArguments(), 0);
    // Errors come back as codes, without a report of PETSc's.
    ASSERT_EQ(PetscPushErrorHandler(PetscReturnErrorHandler, nullptr), 0);
  }
  void TearDown() override {
    EXPECT_EQ(PetscPopErrorHandler(), 0);
    EXPECT_EQ(PetscFinalize(), 0);
  }
};

testing::Environment* const kEnvironment =
    testing::AddGlobalTestEnvironment(new PetscEnvironment);

}  // namespace
