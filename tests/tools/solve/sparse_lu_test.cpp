#include "tools/solve/sparse_lu.h"

#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "tests/support/instances.h"
#ifdef PAVEX_UMFPACK
#include <SuiteSparse_config.h>
#endif

#include <complex>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using testing::ThrowsMessage;

// 4 for a real type, 4 + 3i for a complex one.
template <typename T>
T Corner() {
  if constexpr (std::is_floating_point_v<T>)
    return 4;
  else
    return {4, 3};
}

// The arrays of the compressed columns of
//   2 1
//   0 c    with c = Corner()
template <typename Types>
class SparseLuOf : public testing::Test {
 protected:
  using Value = typename Types::Value;
  using Index = typename Types::Index;

  // Solves with two right-hand sides, columns 3 elements apart.
  void ExpectSolution(MatrixBase const& matrix, std::vector<Value> const& expected) {
    std::vector<Value> const b = {Value(4), Value(8), Value(-1), Value(2), Value(0), Value(-1)};
    std::vector<Value> x(6, Value(-1));
    mLu->Analyse(matrix);
    mLu->Factor(matrix);

    mLu->Solve({b.data(), 2, 2, 3}, {x.data(), 2, 2, 3});

    for (std::size_t k = 0; k < 6; ++k)
      EXPECT_LT(std::abs(x[k] - expected[k]), 1e-6) << k;
  }

  std::unique_ptr<SparseLu<Value, Index>> mLu = MakeSparseLu<Value, Index>();
  Index mOffsets[3] = {0, 1, 3};
  Index mOthers[3] = {0, 0, 1};
  Value mValues[3] = {Value(2), Value(1), Corner<Value>()};
};

TYPED_TEST_SUITE(SparseLuOf, AllInstances);

TYPED_TEST(SparseLuOf, SolvesWithCompressedColumns) {
  using T = typename TestFixture::Value;
  auto const matrix = MatrixCSC<T, typename TestFixture::Index>::Borrow(
      2, 2, this->mOffsets, this->mOthers, this->mValues);

  // The second unknown is 8 / c, the first (4 - 8 / c) / 2.
  T const last = T(8) / Corner<T>();
  this->ExpectSolution(matrix, {(T(4) - last) / T(2), last, T(-1), T(1), T(0), T(-1)});
}

// The same arrays as rows are the transpose: 2 0 / 1 c. The conjugate would differ.
TYPED_TEST(SparseLuOf, SolvesWithCompressedRowsAsTheTranspose) {
  using T = typename TestFixture::Value;
  auto const matrix = MatrixCSR<T, typename TestFixture::Index>::Borrow(
      2, 2, this->mOffsets, this->mOthers, this->mValues);

  this->ExpectSolution(matrix,
                       {T(2), T(6) / Corner<T>(), T(-1), T(1), T(-1) / Corner<T>(), T(-1)});
}

TYPED_TEST(SparseLuOf, FactorsNewValuesOfTheAnalysedPattern) {
  using T = typename TestFixture::Value;
  auto matrix = MatrixCSC<T, typename TestFixture::Index>::Borrow(2, 2, this->mOffsets,
                                                                  this->mOthers, this->mValues);
  std::vector<T> const b = {T(6), T(4)};
  std::vector<T> x(2);
  this->mLu->Analyse(matrix);
  this->mLu->Factor(matrix);
  T next[] = {T(1), T(1), T(2)};

  matrix.SetValues(next);
  this->mLu->Factor(matrix);
  this->mLu->Solve({b.data(), 2, 1, 2}, {x.data(), 2, 1, 2});

  EXPECT_LT(std::abs(x[0] - T(4)), 1e-6);
  EXPECT_LT(std::abs(x[1] - T(2)), 1e-6);
}

TYPED_TEST(SparseLuOf, CallsAMatrixWithAZeroPivotSingular) {
  using T = typename TestFixture::Value;
  this->mValues[2] = T(0);
  auto const matrix = MatrixCSC<T, typename TestFixture::Index>::Borrow(
      2, 2, this->mOffsets, this->mOthers, this->mValues);
  this->mLu->Analyse(matrix);

  EXPECT_THAT(
      [&] { this->mLu->Factor(matrix); },
      ThrowsMessage<JobError>(testing::StartsWith("the matrix is numerically singular: ")));
}

#ifdef PAVEX_UMFPACK

TEST(MakeSparseLu, TakesUmfpackForDoubleAndEigenForFloat) {
  EXPECT_THAT((MakeSparseLu<double, int>()->Name()), testing::EndsWith(", umfpack_di"));
  EXPECT_THAT((MakeSparseLu<double, long>()->Name()), testing::EndsWith(", umfpack_dl"));
  EXPECT_THAT((MakeSparseLu<std::complex<double>, int>()->Name()),
              testing::EndsWith(", umfpack_zi"));
  EXPECT_THAT((MakeSparseLu<std::complex<double>, long>()->Name()),
              testing::EndsWith(", umfpack_zl"));
  EXPECT_THAT((MakeSparseLu<float, int>()->Name()), testing::StartsWith("SparseLU of Eigen "));
}

// UMFPACK takes its memory from these functions.
class FailingMemory {
 public:
  FailingMemory() {
    SuiteSparse_config.malloc_func = [](std::size_t) -> void* { return nullptr; };
  }
  FailingMemory(FailingMemory const&) = delete;
  FailingMemory& operator=(FailingMemory const&) = delete;
  ~FailingMemory() { SuiteSparse_config.malloc_func = mFormer; }

 private:
  void* (*mFormer)(std::size_t) = SuiteSparse_config.malloc_func;
};

TEST(MakeSparseLu, GivesAnUmfpackThatSaysWhenMemoryDoesNotSuffice) {
  int offsets[] = {0, 1, 2};
  int others[] = {0, 1};
  double values[] = {1, 2};
  auto const matrix = MatrixCSC<double, int>::Borrow(2, 2, offsets, others, values);
  auto const lu = MakeSparseLu<double, int>();
  lu->Analyse(matrix);

  FailingMemory const failing;

  EXPECT_THAT([&] { lu->Factor(matrix); },
              ThrowsMessage<JobError>("not enough memory for the factorisation"));
}

#endif

}  // namespace
}  // namespace Pavex::Tool
