#include "tests/support/cases_to_run.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace Pavex {
namespace {

// Restores the variable, which test.sh sets in some trees.
class CasesToRunTest : public testing::Test {
 protected:
  CasesToRunTest() {
    char const* const text = std::getenv("PAVEX_ONE_CASE_IN");
    mHad = text != nullptr;
    if (mHad) mEarlier = text;
  }
  ~CasesToRunTest() override {
    if (mHad)
      setenv("PAVEX_ONE_CASE_IN", mEarlier.c_str(), 1);
    else
      unsetenv("PAVEX_ONE_CASE_IN");
  }

 private:
  bool mHad = false;
  std::string mEarlier;
};

TEST_F(CasesToRunTest, AreAllUnlessTheEnvironmentAsksForAPart) {
  unsetenv("PAVEX_ONE_CASE_IN");
  EXPECT_EQ(CasesToRun(5000), 5000);
  setenv("PAVEX_ONE_CASE_IN", "4", 1);
  EXPECT_EQ(CasesToRun(5000), 1250);
  setenv("PAVEX_ONE_CASE_IN", "nonsense", 1);
  EXPECT_EQ(CasesToRun(5000), 5000);
}

}  // namespace
}  // namespace Pavex
