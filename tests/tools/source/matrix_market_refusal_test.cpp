// The exact messages about bad files, which name the line and the fault.

#include "tests/tools/temporary_folder.h"
#include "tools/source/matrix_market.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>

namespace Pavex::Tool {
namespace {

// The message for a file with this text, without the path at its beginning.
std::string FaultOf(std::string const& text) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("bad.mtx", text);
  try {
    ReadMatrixMarket(path);
  } catch (InputError const& error) {
    std::string const message = error.what();
    EXPECT_EQ(message.substr(0, path.size()), path);
    return message.substr(path.size());
  }
  return "read without a fault";
}

std::string const kReal = "%%MatrixMarket matrix coordinate real general\n";
std::string const kSymmetric = "%%MatrixMarket matrix coordinate real symmetric\n";
std::string const kSkew = "%%MatrixMarket matrix coordinate real skew-symmetric\n";
std::string const kHermitian = "%%MatrixMarket matrix coordinate complex hermitian\n";

TEST(MatrixMarketRefusal, NamesAFileThatDoesNotExist) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("none.mtx");

  EXPECT_THAT(
      [&] { ReadMatrixMarket(path); },
      testing::ThrowsMessage<InputError>(path + ": cannot be read: No such file or directory"));
}

TEST(MatrixMarketRefusal, NamesAFolderGivenAsFile) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("");

  EXPECT_THAT([&] { ReadMatrixMarket(path); },
              testing::ThrowsMessage<InputError>(path + ": cannot be read: Is a directory"));
}

TEST(MatrixMarketRefusal, SaysThatAFileIsEmpty) {
  EXPECT_EQ(FaultOf(""), ": the file is empty");
}

TEST(MatrixMarketRefusal, AsksForTheBanner) {
  std::string const fault = ":1: a Matrix Market file begins with \"%%MatrixMarket\"";

  EXPECT_EQ(FaultOf("1 1 1\n"), fault);
  EXPECT_EQ(FaultOf("\n" + kReal + "1 1 0\n"), fault);
  EXPECT_EQ(FaultOf("% %MatrixMarket matrix coordinate real general\n"), fault);
}

TEST(MatrixMarketRefusal, NamesARutherfordBoeingFile) {
  std::string const fault =
      ":1: this is a Rutherford-Boeing file, and pavex reads Matrix Market files only: convert "
      "it first";

  EXPECT_EQ(FaultOf("Two by two, lower triangle                                   |17    \n"
                    "             3             1             1             1\n"
                    "rsa                        2             2             2             0\n"
                    "(3I4)           (2I4)           (2E9.1)\n"
                    "   1   2   3\n   1   2\n  1.5E+00 -2.0E+00\n"),
            fault);
  EXPECT_EQ(FaultOf("\n3 1 1 1\nPZE 2 2 2 0\n"), fault);
}

TEST(MatrixMarketRefusal, NamesAHarwellBoeingFile) {
  EXPECT_EQ(
      FaultOf("Two by two                                                   TWO     \n"
              "             3             1             1             1             0\n"
              "RUA                        2             2             2             0\n"
              "(3I4)           (2I4)           (2E9.1)\n"),
      ":1: this is a Harwell-Boeing file, and pavex reads Matrix Market files only: convert "
      "it first");
}

TEST(MatrixMarketRefusal, TakesNoOtherTextForABoeingFile) {
  std::string const fault = ":1: a Matrix Market file begins with \"%%MatrixMarket\"";

  for (std::string const text :
       {"title\n3 1 1\nrua 2 2 2 0\n", "title\n3 1 1 1 0 0\nrua 2 2 2 0\n",
        "title\n3 1 1 one\nrua 2 2 2 0\n", "title\n3 1 1 1\nrux 2 2 2 0\n",
        "title\n3 1 1 1\nru 2 2 2 0\n", "title\n3 1 1 1\nrua 2 2 2\n",
        "title\n3 1 1 1\nrua 2 2 2 x\n", "title\n3 1 1 1\n", "title\n3 1 1 1\n\n"})
    EXPECT_EQ(FaultOf(text), fault) << text;
  EXPECT_EQ(FaultOf("title\n" + std::string(3 << 20, 'x') + "\n"), fault);
}

TEST(MatrixMarketRefusal, NamesTheMissingWordOfTheBanner) {
  EXPECT_EQ(FaultOf("%%MatrixMarket\n"), ":1: the object is missing");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix\n"), ":1: the format is missing");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix array\n"), ":1: the field is missing");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix array real\n"), ":1: the symmetry is missing");
}

TEST(MatrixMarketRefusal, NamesUnknownWordsOfTheBannerAndTheKnownOnes) {
  EXPECT_EQ(FaultOf("%%MatrixMarket vector coordinate real general\n"),
            ":1: unknown object \"vector\", known: matrix");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix elements real general\n"),
            ":1: unknown format \"elements\", known: coordinate, array");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix coordinate float general\n"),
            ":1: unknown field \"float\", known: real, integer, complex, pattern");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix coordinate real lower\n"),
            ":1: unknown symmetry \"lower\", known: general, symmetric, skew-symmetric, "
            "hermitian");
}

TEST(MatrixMarketRefusal, RefusesWordsAfterTheBanner) {
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix coordinate real general twice\n1 1 0\n"),
            ":1: unexpected \"twice\" after the banner");
}

TEST(MatrixMarketRefusal, RefusesABannerThatContradictsItself) {
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix array pattern general\n1 1\n"),
            ":1: the array format has values, so the field cannot be pattern");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix coordinate pattern skew-symmetric\n1 1 0\n"),
            ":1: a pattern has no sign, so it cannot be skew-symmetric");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix coordinate real hermitian\n1 1 0\n"),
            ":1: a hermitian matrix has the field complex");
}

TEST(MatrixMarketRefusal, AsksForTheSizeLine) {
  EXPECT_EQ(FaultOf(kReal), ":1: the file ends before the size line");
  EXPECT_EQ(FaultOf(kReal + "% a comment\n\n"), ":3: the file ends before the size line");
}

TEST(MatrixMarketRefusal, NamesWhatTheSizeLineLacks) {
  EXPECT_EQ(FaultOf(kReal + "3\n"), ":2: the number of columns is missing");
  EXPECT_EQ(FaultOf(kReal + "3 3\n"), ":2: the number of entries is missing");
  EXPECT_EQ(FaultOf(kReal + "three 3 1\n"),
            ":2: the number of rows \"three\" is not an integer");
  EXPECT_EQ(FaultOf(kReal + "3 3.0 1\n"),
            ":2: the number of columns \"3.0\" is not an integer");
  EXPECT_EQ(FaultOf(kReal + "3 3 1 1\n"), ":2: unexpected \"1\" after the size line");
}

TEST(MatrixMarketRefusal, RefusesNegativeSizes) {
  EXPECT_EQ(FaultOf(kReal + "-3 3 1\n"),
            ":2: the number of rows \"-3\" is outside 0 to 2147483647");
  EXPECT_EQ(FaultOf(kReal + "3 3 -1\n"),
            ":2: the number of entries \"-1\" is outside 0 to 9223372036854775807");
}

TEST(MatrixMarketRefusal, RefusesSizesBeyondItsIndices) {
  EXPECT_EQ(FaultOf(kReal + "1000000000000 3 1\n1 1 1\n"),
            ":2: the number of rows \"1000000000000\" is outside 0 to 2147483647");
  EXPECT_EQ(FaultOf(kReal + "3 99999999999999999999999 1\n1 1 1\n"),
            ":2: the number of columns \"99999999999999999999999\" is outside 0 to 2147483647");
}

TEST(MatrixMarketRefusal, RefusesMoreEntriesThanTheFileCanHoldBeforeReservingMemory) {
  EXPECT_EQ(FaultOf(kReal + "3 3 4000000000000\n1 1 1\n"),
            ":2: a file of 70 bytes cannot hold 4000000000000 entries");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix array real general\n2000000000 2000000000\n1\n"),
            ":2: a file of 65 bytes cannot hold 4000000000000000000 entries");
}

TEST(MatrixMarketRefusal, NamesTheLineOfAMissingValueInAShortFile) {
  EXPECT_EQ(FaultOf(kReal + "4 4 4\n1 1 1\n2 2 2\n3 3\n4 4 4\n"), ":5: the value is missing");
}

TEST(MatrixMarketRefusal, RefusesEntriesOfAnEmptyMatrix) {
  EXPECT_EQ(FaultOf(kReal + "0 3 1\n1 1 1\n"),
            ":2: a matrix without rows or columns has no entries");
}

TEST(MatrixMarketRefusal, RefusesASymmetricMatrixThatIsNotSquare) {
  EXPECT_EQ(FaultOf(kSymmetric + "2 3 1\n1 1 1\n"),
            ":2: a symmetric matrix is square, not 2 x 3");
}

TEST(MatrixMarketRefusal, RefusesIndicesOutsideTheMatrix) {
  EXPECT_EQ(FaultOf(kReal + "3 2 1\n0 1 5\n"), ":3: the row \"0\" is outside 1 to 3");
  EXPECT_EQ(FaultOf(kReal + "3 2 1\n4 1 5\n"), ":3: the row \"4\" is outside 1 to 3");
  EXPECT_EQ(FaultOf(kReal + "3 2 1\n3 3 5\n"), ":3: the column \"3\" is outside 1 to 2");
  EXPECT_EQ(FaultOf(kReal + "3 2 1\n-1 1 5\n"), ":3: the row \"-1\" is outside 1 to 3");
}

TEST(MatrixMarketRefusal, RefusesIndicesThatAreNoIntegers) {
  EXPECT_EQ(FaultOf(kReal + "3 2 1\n1.5 1 5\n"), ":3: the row \"1.5\" is not an integer");
  EXPECT_EQ(FaultOf(kReal + "3 2 1\n1 2x 5\n"), ":3: the column \"2x\" is not an integer");
  EXPECT_EQ(FaultOf(kReal + "3 2 1\n1 +1 5\n"), ":3: the column \"+1\" is not an integer");
}

TEST(MatrixMarketRefusal, CountsMissingEntries) {
  EXPECT_EQ(FaultOf(kReal + "3 3 3\n1 1 1.00\n2 2 2.00\n"),
            ":4: the file ends after 2 of 3 entries");
}

TEST(MatrixMarketRefusal, RefusesSurplusEntries) {
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 1\n\n2 2 2\n"),
            ":5: a surplus line after the 1 entries that the size line announces");
}

TEST(MatrixMarketRefusal, NamesTheMissingPartOfAnEntry) {
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1      \n"), ":3: the column is missing");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1    \n"), ":3: the value is missing");
  EXPECT_EQ(FaultOf(kHermitian + "3 3 1\n2 1 1     \n"), ":3: the imaginary part is missing");
}

TEST(MatrixMarketRefusal, RefusesTextAfterAnEntry) {
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 1 % one\n"), ":3: unexpected \"%\" after the entry");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix array real general\n2 1\n1 2\n3\n"),
            ":3: unexpected \"2\" after the value");
}

TEST(MatrixMarketRefusal, RefusesCommentsAmongTheEntries) {
  EXPECT_EQ(FaultOf(kReal + "3 3 2\n1 1 1\n% here\n2 2 2\n"),
            ":4: a comment after the size line");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 1\n% end\n"), ":4: a comment after the size line");
}

TEST(MatrixMarketRefusal, RefusesTextWhereANumberBelongs) {
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 abc\n"), ":3: the value \"abc\" is not a number");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 1.5e\n"), ":3: the value \"1.5e\" is not a number");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 0x10\n"), ":3: the value \"0x10\" is not a number");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 +-1\n"), ":3: the value \"+-1\" is not a number");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 1,5\n"), ":3: the value \"1,5\" is not a number");
}

TEST(MatrixMarketRefusal, RefusesValuesThatAreNotFinite) {
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 nan\n"), ":3: the value \"nan\" is not finite");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 -INF\n"), ":3: the value \"-INF\" is not finite");
  EXPECT_EQ(FaultOf(kHermitian + "3 3 1\n2 1 1 infinity\n"),
            ":3: the imaginary part \"infinity\" is not finite");
}

TEST(MatrixMarketRefusal, RefusesValuesTooLargeForADouble) {
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 1e999\n"),
            ":3: the value \"1e999\" is too large for a double");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 -1D309\n"),
            ":3: the value \"-1D309\" is too large for a double");
}

TEST(MatrixMarketRefusal, RefusesFractionsInAnIntegerFile) {
  std::string const integer = "%%MatrixMarket matrix coordinate integer general\n";

  EXPECT_EQ(FaultOf(integer + "3 3 1\n1 1 1.5\n"), ":3: the value \"1.5\" is not an integer");
  EXPECT_EQ(FaultOf(integer + "3 3 1\n1 1 1e3\n"), ":3: the value \"1e3\" is not an integer");
}

TEST(MatrixMarketRefusal, RefusesIntegersThatADoubleWouldRound) {
  std::string const integer = "%%MatrixMarket matrix coordinate integer general\n";

  EXPECT_EQ(FaultOf(integer + "3 3 1\n1 1 9007199254740993\n"),
            ":3: the value \"9007199254740993\" is outside the integers that a double holds "
            "exactly");
}

TEST(MatrixMarketRefusal, RefusesEntriesAboveTheDiagonalOfASymmetricFile) {
  EXPECT_EQ(FaultOf(kSymmetric + "3 3 1\n1 2 5\n"),
            ":3: entry (1, 2) lies above the diagonal of a symmetric matrix");
  EXPECT_EQ(FaultOf(kSkew + "3 3 1\n2 3 5\n"),
            ":3: entry (2, 3) lies above the diagonal of a skew-symmetric matrix");
}

TEST(MatrixMarketRefusal, RefusesADiagonalInASkewSymmetricFile) {
  EXPECT_EQ(FaultOf(kSkew + "3 3 1\n2 2 0\n"),
            ":3: diagonal entry (2, 2) in a skew-symmetric matrix");
}

TEST(MatrixMarketRefusal, RefusesAnImaginaryDiagonalInAHermitianFile) {
  EXPECT_EQ(FaultOf(kHermitian + "3 3 1\n2 2 1 0.5\n"),
            ":3: diagonal entry (2, 2) of a hermitian matrix has an imaginary part");
  EXPECT_EQ(FaultOf("%%MatrixMarket matrix array complex hermitian\n1 1\n1 0.5\n"),
            ":3: diagonal entry (1, 1) of a hermitian matrix has an imaginary part");
}

TEST(MatrixMarketRefusal, KeepsTheMessagePrintableAndShort) {
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 a\x01\xff\n"), ":3: the value \"a??\" is not a number");
  EXPECT_EQ(FaultOf(kReal + "3 3 1\n1 1 " + std::string(1000, 'x') + "\n"),
            ":3: the value \"" + std::string(40, 'x') + "...\" is not a number");
}

TEST(MatrixMarketRefusal, RefusesALineWithoutEnd) {
  EXPECT_EQ(FaultOf(kReal + std::string(2 << 20, ' ') + "\n1 1 0\n"),
            ":2: the line is longer than 1048576 bytes");
}

TEST(MatrixMarketRefusal, BelievesAPipeNoMoreThanItDelivers) {
  TemporaryFolder const folder;
  std::string const path = folder.Path("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::thread writer([&] { folder.Write("pipe", kReal + "3 3 4000000000000000\n1 1 1\n"); });

  EXPECT_THAT([&] { ReadMatrixMarket(path); },
              testing::ThrowsMessage<InputError>(
                  path + ":3: the file ends after 1 of 4000000000000000 entries"));

  writer.join();
}

}  // namespace
}  // namespace Pavex::Tool
