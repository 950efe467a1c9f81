#include "tests/tools/temporary_folder.h"
#include "tools/source/matrix_market.h"

#include <complex>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>
#include <sys/resource.h>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;

// While it lives, no file can grow beyond `bytes`: a full disk for this process.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : mOldHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &mOld);
    rlimit limit = mOld;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &mOld);
    std::signal(SIGXFSZ, mOldHandler);
  }

 private:
  void (*mOldHandler)(int);
  rlimit mOld{};
};

TEST(MatrixMarketWriter, WritesCoordinatesWithIndicesFromOne) {
  TemporaryFolder const folder;

  auto writer = MatrixMarketWriter::Coordinate(folder.Path("a.mtx"), Field::REAL, 3, 4, 2);
  writer.Entry(2, 3, 2.5);
  writer.Entry(0, 0, -1e-30);
  writer.Commit();

  EXPECT_EQ(folder.Read("a.mtx"),
            "%%MatrixMarket matrix coordinate real general\n"
            "3 4 2\n"
            "3 4 2.5\n"
            "1 1 -1e-30\n");
}

TEST(MatrixMarketWriter, WritesComplexEntries) {
  TemporaryFolder const folder;

  auto writer = MatrixMarketWriter::Coordinate(folder.Path("a.mtx"), Field::COMPLEX, 2, 2, 2);
  writer.Entry(0, 1, std::complex<double>(1.5, -2));
  writer.Entry(1, 1, std::complex<float>(0.1f, 0));
  writer.Commit();

  EXPECT_EQ(folder.Read("a.mtx"),
            "%%MatrixMarket matrix coordinate complex general\n"
            "2 2 2\n"
            "1 2 1.5 -2\n"
            "2 2 0.1 0\n");
}

TEST(MatrixMarketWriter, WritesPatternsWithoutValues) {
  TemporaryFolder const folder;

  auto writer = MatrixMarketWriter::Coordinate(folder.Path("a.mtx"), Field::PATTERN, 2, 2, 1);
  writer.Entry(1, 0);
  writer.Commit();

  EXPECT_EQ(folder.Read("a.mtx"),
            "%%MatrixMarket matrix coordinate pattern general\n2 2 1\n2 1\n");
}

TEST(MatrixMarketWriter, WritesIntegersWithoutExponent) {
  TemporaryFolder const folder;

  auto writer = MatrixMarketWriter::Coordinate(folder.Path("a.mtx"), Field::INTEGER, 1, 2, 2);
  writer.Entry(0, 0, 1e15);
  writer.Entry(0, 1, -3.0f);
  writer.Commit();

  EXPECT_EQ(folder.Read("a.mtx"),
            "%%MatrixMarket matrix coordinate integer general\n"
            "1 2 2\n"
            "1 1 1000000000000000\n"
            "1 2 -3\n");
}

TEST(MatrixMarketWriter, WritesArrays) {
  TemporaryFolder const folder;

  auto real = MatrixMarketWriter::Array(folder.Path("real.mtx"), Field::REAL, 2, 1);
  real.Value(1.5);
  real.Value(0.1f);
  real.Commit();
  auto complex = MatrixMarketWriter::Array(folder.Path("complex.mtx"), Field::COMPLEX, 1, 2);
  complex.Value(std::complex<double>(1, 2));
  complex.Value(std::complex<float>(3, 4));
  complex.Commit();

  EXPECT_EQ(folder.Read("real.mtx"),
            "%%MatrixMarket matrix array real general\n2 1\n1.5\n0.1\n");
  EXPECT_EQ(folder.Read("complex.mtx"),
            "%%MatrixMarket matrix array complex general\n1 2\n1 2\n3 4\n");
}

TEST(MatrixMarketWriter, KeepsEveryBitOfEachValue) {
  TemporaryFolder const folder;
  Triplets matrix;
  matrix.mRows = 1;
  matrix.mCols = 6;
  double const values[] = {0.1,
                           -1.0 / 3,
                           5e-324,
                           std::numeric_limits<double>::max(),
                           std::numeric_limits<double>::min(),
                           9007199254740993.0};
  for (int col = 0; col < 6; ++col)
    matrix.Add(0, col, values[col]);

  WriteMatrixMarket(folder.Path("a.mtx"), matrix);
  Triplets const again = ReadMatrixMarket(folder.Path("a.mtx"));

  EXPECT_EQ(again.mCol, matrix.mCol);
  EXPECT_EQ(again.mReal, matrix.mReal);
}

TEST(MatrixMarketWriter, WritesWhatTheReaderExpandedAsAGeneralMatrix) {
  TemporaryFolder const folder;
  Triplets const hermitian = ReadMatrixMarket(
      folder.Write("h.mtx",
                   "%%MatrixMarket matrix coordinate complex hermitian\n2 2 2\n1 1 4 0\n"
                   "2 1 1.5 -2\n"));

  WriteMatrixMarket(folder.Path("a.mtx"), hermitian);

  EXPECT_EQ(folder.Read("a.mtx"),
            "%%MatrixMarket matrix coordinate complex general\n"
            "2 2 3\n"
            "1 1 4 0\n"
            "2 1 1.5 -2\n"
            "1 2 1.5 2\n");
}

TEST(MatrixMarketWriter, LeavesNothingBehindWithoutCommit) {
  TemporaryFolder const folder;

  {
    auto writer = MatrixMarketWriter::Coordinate(folder.Path("a.mtx"), Field::REAL, 1, 1, 1);
    writer.Entry(0, 0, 1.0);
    EXPECT_EQ(folder.Names().size(), 1u);
  }

  EXPECT_THAT(folder.Names(), ElementsAre());
}

TEST(MatrixMarketWriter, ReplacesAnOlderFileOnCommitOnly) {
  TemporaryFolder const folder;
  folder.Write("a.mtx", "older");

  auto writer = MatrixMarketWriter::Coordinate(folder.Path("a.mtx"), Field::PATTERN, 1, 1, 1);
  writer.Entry(0, 0);
  std::string const before = folder.Read("a.mtx");
  writer.Commit();

  EXPECT_EQ(before, "older");
  EXPECT_EQ(folder.Read("a.mtx"),
            "%%MatrixMarket matrix coordinate pattern general\n1 1 1\n1 1\n");
  EXPECT_THAT(folder.Names(), ElementsAre("a.mtx"));
}

TEST(MatrixMarketWriter, WritesThroughASymbolicLink) {
  TemporaryFolder const folder;
  folder.Write("real.mtx", "older");
  std::filesystem::create_symlink(folder.Path("real.mtx"), folder.Path("link.mtx"));

  MatrixMarketWriter::Coordinate(folder.Path("link.mtx"), Field::PATTERN, 1, 1, 0).Commit();

  EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("link.mtx")));
  EXPECT_EQ(folder.Read("real.mtx"),
            "%%MatrixMarket matrix coordinate pattern general\n1 1 0\n");
}

TEST(MatrixMarketWriter, KeepsTheOlderFileWhenTheDiskIsFull) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a.mtx", "older");
  Triplets matrix;
  matrix.mRows = matrix.mCols = 1000;
  for (int i = 0; i < 1000; ++i)
    matrix.Add(i, i, i);

  {
    FileSizeLimit const full(1000);
    EXPECT_THAT(
        [&] { WriteMatrixMarket(path, matrix); },
        testing::ThrowsMessage<InputError>(path + ": cannot be written: File too large"));
  }

  EXPECT_EQ(folder.Read("a.mtx"), "older");
  EXPECT_THAT(folder.Names(), ElementsAre("a.mtx"));
}

TEST(MatrixMarketWriter, ReportsAFullDevice) {
  EXPECT_THAT([] { WriteMatrixMarket("/dev/full", Triplets{}); },
              testing::ThrowsMessage<InputError>(
                  "/dev/full: cannot be written: No space left on device"));
}

TEST(MatrixMarketWriter, NamesATargetThatCannotBe) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("none/a.mtx");

  EXPECT_THAT([&] { WriteMatrixMarket(path, Triplets{}); },
              testing::ThrowsMessage<InputError>(
                  path + ": cannot be written: No such file or directory"));
  EXPECT_THAT([&] { WriteMatrixMarket(folder.Path(""), Triplets{}); },
              testing::ThrowsMessage<InputError>(folder.Path("") +
                                                 ": cannot be written: Is a directory"));
}

TEST(MatrixMarketWriter, RefusesValuesThatTheFormatCannotHold) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("a.mtx");
  Triplets matrix;
  matrix.mRows = matrix.mCols = 1;
  matrix.Add(0, 0, std::numeric_limits<double>::quiet_NaN());

  EXPECT_THAT([&] { WriteMatrixMarket(path, matrix); },
              testing::ThrowsMessage<InputError>(
                  path + ": cannot be written: the format has no infinite values and no NaN"));
  EXPECT_THAT(folder.Names(), ElementsAre());
}

TEST(MatrixMarketWriter, RefusesToCommitAnotherNumberOfEntriesThanAnnounced) {
  TemporaryFolder const folder;
  auto writer = MatrixMarketWriter::Coordinate(folder.Path("a.mtx"), Field::REAL, 1, 1, 2);
  writer.Entry(0, 0, 1.0);

  EXPECT_THROW(writer.Commit(), std::logic_error);
}

}  // namespace
}  // namespace Pavex::Tool
