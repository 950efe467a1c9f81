// Which pointers the typed SetValues of the storage classes take.

#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "tests/support/instances.h"

#include <complex>
#include <gtest/gtest.h>
#include <type_traits>
#include <utility>
#include <vector>

namespace Pavex {
namespace {

// Whether SetValues of a Matrix compiles with a P.
template <typename Matrix, typename P, typename = void>
constexpr bool kTakes = false;
template <typename Matrix, typename P>
constexpr bool kTakes<
    Matrix, P, std::void_t<decltype(std::declval<Matrix&>().SetValues(std::declval<P>()))>> =
    true;

template <typename Matrix, typename T>
constexpr bool TakesItsValuesAlone() {
  bool const own = kTakes<Matrix, T*> && kTakes<Matrix, T(&)[3]> && kTakes<Matrix, void*> &&
                   kTakes<Matrix, std::nullptr_t>;
  bool const other = kTakes<Matrix, std::vector<T>*> || kTakes<Matrix, T**> ||
                     kTakes<Matrix, T const*> || kTakes<Matrix, void const*> ||
                     kTakes<Matrix, long double*> || kTakes<Matrix, int*> ||
                     kTakes<Matrix, Matrix*> || kTakes<Matrix, void (*)()>;
  return own && !other;
}

template <typename Matrix>
class SetValues : public ::testing::Test {};
using Classes = EveryInstanceOf<MatrixDense, MatrixCOO, MatrixCSR, MatrixCSC>;
TYPED_TEST_SUITE(SetValues, Classes);

TYPED_TEST(SetValues, CompilesForPointersToTheValuesAlone) {
  using T = std::remove_pointer_t<decltype(TypeParam().mValues.mData)>;

  EXPECT_TRUE((TakesItsValuesAlone<TypeParam, T>()));
  EXPECT_TRUE((kTakes<MatrixBase, void*>));
  EXPECT_FALSE((kTakes<MatrixBase, void const*>));
}

TYPED_TEST(SetValues, InstallsATypedAnUntypedAndANullPointerTheSameWay) {
  using T = std::remove_pointer_t<decltype(TypeParam().mValues.mData)>;
  T values[3] = {};
  TypeParam matrix;
  MatrixBase& base = matrix;

  matrix.SetValues(values);
  EXPECT_EQ(matrix.mValues.mData, values);

  matrix.SetValues(nullptr);
  EXPECT_EQ(matrix.mValues.mData, nullptr);

  matrix.SetValues(static_cast<void*>(values + 1));
  EXPECT_EQ(matrix.mValues.mData, values + 1);

  base.SetValues(values);
  EXPECT_EQ(matrix.mValues.mData, values);
}

TEST(SetValuesOfReals, CompilesForNoOtherPrecisionAndNoComplexArray) {
  EXPECT_FALSE((kTakes<MatrixCSR<double, int>, float*>));
  EXPECT_FALSE((kTakes<MatrixDense<float, long>, double*>));
  EXPECT_FALSE((kTakes<MatrixCOO<double, int>, std::complex<double>*>));
}

TEST(SetValuesOfComplexNumbers, CompilesForTheirPartsOfThatPrecision) {
  std::complex<double> values[2] = {};
  auto* const parts = reinterpret_cast<double*>(values);
  MatrixCSC<std::complex<double>, int> matrix;

  matrix.SetValues(parts);

  EXPECT_EQ(matrix.mValues.mData, values);
  EXPECT_FALSE((kTakes<MatrixCSC<std::complex<double>, int>, float*>));
  EXPECT_FALSE((kTakes<MatrixCOO<std::complex<float>, long>, double*>));
  EXPECT_FALSE((kTakes<MatrixDense<std::complex<float>, int>, std::complex<double>*>));
}

// A class of the application with a SetValues of its own.
struct Counting : MatrixCOO<double, int> {
  using MatrixCOO::SetValues;
  void SetValues(void* values) override {
    ++calls;
    MatrixCOO::SetValues(values);
  }
  int calls = 0;
};

TEST(SetValuesOfADerivedClass, IsCalledForATypedPointerAsWell) {
  double values[1] = {};
  Counting counting;
  MatrixCOO<double, int>& matrix = counting;

  matrix.SetValues(values);

  EXPECT_EQ(counting.calls, 1);
  EXPECT_EQ(counting.mValues.mData, values);
}

}  // namespace
}  // namespace Pavex
