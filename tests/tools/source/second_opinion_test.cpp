// Compares the reader with that of SuiteSparse, on the matrices of the folder that the
// environment variable PAVEX_MATRIX_DIR names, or on the small ones in this file.

#include "tests/tools/temporary_folder.h"
#include "tools/source/matrix_market.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <suitesparse/cholmod.h>
#include <tuple>
#include <vector>

namespace Pavex::Tool {
namespace {

using Entry = std::tuple<long, long, double, double>;  // row, column, real, imaginary

// A session of the other library.
class Cholmod {
 public:
  Cholmod() {
    cholmod_l_start(&mCommon);
    mCommon.prefer_binary = 1;  // 1 for each entry of a pattern
  }
  ~Cholmod() { cholmod_l_finish(&mCommon); }

  std::vector<Entry> ReadSparse(std::string const& path) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "r"), std::fclose);
    cholmod_triplet* matrix = cholmod_l_read_triplet(file.get(), &mCommon);
    if (matrix == nullptr) return {};
    std::vector<Entry> entries;
    for (std::size_t k = 0; k < matrix->nnz; ++k)
      Add(*matrix, k, entries);
    cholmod_l_free_triplet(&matrix, &mCommon);
    return entries;
  }

  std::vector<Entry> ReadDense(std::string const& path) {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "r"), std::fclose);
    cholmod_dense* matrix = cholmod_l_read_dense(file.get(), &mCommon);
    if (matrix == nullptr) return {};
    std::vector<Entry> entries;
    for (std::size_t k = 0; k < matrix->nrow * matrix->ncol; ++k) {
      auto const [real, imag] = Value(matrix->x, matrix->xtype, k);
      entries.emplace_back(k % matrix->nrow, k / matrix->nrow, real, imag);
    }
    cholmod_l_free_dense(&matrix, &mCommon);
    return entries;
  }

 private:
  static std::pair<double, double> Value(void const* values, int xtype, std::size_t k) {
    auto const* const x = static_cast<double const*>(values);
    if (xtype == CHOLMOD_COMPLEX) return {x[2 * k], x[2 * k + 1]};
    return {x[k], 0.0};
  }

  // Also adds the mirrored entry where the library keeps one triangle: it does so for real
  // symmetric and for Hermitian matrices.
  static void Add(cholmod_triplet const& matrix, std::size_t k, std::vector<Entry>& entries) {
    long const row = static_cast<SuiteSparse_long const*>(matrix.i)[k];
    long const col = static_cast<SuiteSparse_long const*>(matrix.j)[k];
    auto const [real, imag] = Value(matrix.x, matrix.xtype, k);
    entries.emplace_back(row, col, real, imag);
    if (matrix.stype != 0 && row != col) entries.emplace_back(col, row, real, -imag);
  }

  cholmod_common mCommon;
};

std::vector<Entry> Sorted(std::vector<Entry> entries) {
  std::sort(entries.begin(), entries.end());
  return entries;
}

std::vector<Entry> Ours(Triplets const& matrix) {
  std::vector<Entry> entries;
  for (std::size_t i = 0; i < matrix.Entries(); ++i)
    entries.emplace_back(matrix.mRow[i], matrix.mCol[i], matrix.mReal[i],
                         matrix.IsComplex() ? matrix.mImag[i] : 0.0);
  return entries;
}

void WriteSamples(TemporaryFolder const& folder) {
  std::string const banner = "%%MatrixMarket matrix ";
  folder.Write("real.mtx", banner +
                               "coordinate real general\n% a comment\n3 4 4\n"
                               "1 1 0.1\n3 4 -2.5e-7\n2 3 1e300\n1 4 0\n");
  folder.Write("integer.mtx", banner + "coordinate integer general\n2 2 2\n1 2 -7\n2 1 8\n");
  folder.Write("complex.mtx",
               banner + "coordinate complex general\n2 2 2\n1 2 1 -2\n2 2 0 3\n");
  folder.Write("pattern.mtx", banner + "coordinate pattern general\n3 2 3\n1 1\n2 2\n3 1\n");
  folder.Write("symmetric.mtx", banner +
                                    "coordinate real symmetric\n3 3 4\n"
                                    "1 1 1\n2 1 2\n3 2 3\n3 3 4\n");
  folder.Write("symmetric_pattern.mtx",
               banner + "coordinate pattern symmetric\n3 3 4\n1 1\n2 1\n3 2\n3 3\n");
  folder.Write("symmetric_complex.mtx",
               banner + "coordinate complex symmetric\n2 2 2\n1 1 1 2\n2 1 3 4\n");
  folder.Write("skew.mtx", banner + "coordinate real skew-symmetric\n3 3 2\n2 1 2\n3 2 3\n");
  folder.Write("hermitian.mtx", banner +
                                    "coordinate complex hermitian\n3 3 3\n"
                                    "1 1 1 0\n2 1 2 -3\n3 2 4 5\n");
  folder.Write("array.mtx", banner + "array real general\n2 3\n1\n2\n3\n4\n5\n6\n");
  folder.Write("array_complex.mtx", banner + "array complex general\n1 2\n1 2\n3 4\n");
  folder.Write("array_symmetric.mtx", banner + "array real symmetric\n2 2\n1\n2\n3\n");
}

TEST(SecondOpinion, AgreesOnEveryEntryOfEveryFile) {
  TemporaryFolder const own;
  char const* const variable = std::getenv("PAVEX_MATRIX_DIR");
  std::string const given = variable != nullptr ? variable : "";
  if (given.empty()) WriteSamples(own);
  std::string const folder = given.empty() ? own.Path("") : given;
  Cholmod cholmod;
  int compared = 0;

  for (auto const& file : std::filesystem::directory_iterator(folder)) {
    if (file.path().extension() != ".mtx") continue;
    SCOPED_TRACE(file.path().filename().string());
    Triplets const matrix = ReadMatrixMarket(file.path().string());
    std::vector<Entry> const theirs = matrix.mDense ? cholmod.ReadDense(file.path().string())
                                                    : cholmod.ReadSparse(file.path().string());
    EXPECT_GT(theirs.size(), 0u);
    EXPECT_TRUE(Sorted(Ours(matrix)) == Sorted(theirs));
    ++compared;
  }

  EXPECT_GT(compared, 0) << "no .mtx file in " << folder;
}

}  // namespace
}  // namespace Pavex::Tool
