// The pictures of --plot. The tests run the real command and read its files.

#include "png_image.h"
#include "run_pavex.h"
#include "tests/tools/temporary_folder.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Pavex::Tool {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Words = std::vector<std::string>;

constexpr Colour kBlue{0, 114, 178};
constexpr Colour kOrange{230, 159, 0};
constexpr Colour kGreen{0, 158, 115};
constexpr Colour kPaleBlue{217, 234, 243};
constexpr Colour kPaleOrange{251, 241, 217};
constexpr Colour kPaleGreen{217, 240, 234};
constexpr Colour kViolet{68, 1, 84};
constexpr Colour kYellow{253, 231, 37};

// Runs the command. Some leaks that a sanitizer would report are those of other libraries.
void Draw(Words const& words) {
  setenv("LSAN_OPTIONS", "suppressions=" PAVEX_LEAKS ":print_suppressions=0", 0);
  CommandResult const result = RunPavex(words);

  EXPECT_EQ(result.exitCode, 0) << result.errors;
  EXPECT_EQ(result.errors, "");
}

// 5 x 7, 9 entries.
std::string const kSmall =
    "%%MatrixMarket matrix coordinate real general\n"
    "5 7 9\n1 1 1\n1 2 1\n2 7 1\n3 3 1\n3 4 1\n4 4 1\n5 5 1\n5 1 1\n5 6 1\n";

// Which rank holds an element, by the picture of that matrix: the number of the rank, a letter
// for its zeros, or a dot for nothing.
char HolderAt(Raster const& picture, long row, long col) {
  constexpr long kLeft = 200;
  constexpr long kTop = 216;
  constexpr long kCell = 171;
  Colour const& colour =
      picture.At(kLeft + col * kCell + kCell / 2, kTop + row * kCell + kCell / 2);
  if (colour == kBlue) return '0';
  if (colour == kOrange) return '1';
  if (colour == kGreen) return '2';
  if (colour == kPaleBlue) return 'a';
  if (colour == kPaleOrange) return 'b';
  if (colour == kPaleGreen) return 'c';
  return colour == kPaper ? '.' : '?';
}

Words Holders(Words const& options) {
  TemporaryFolder folder;
  Words words = {"gather", folder.Write("small.mtx", kSmall), "--ranks", "3",
                 "--plot", folder.Path("pattern.png")};
  words.insert(words.end(), options.begin(), options.end());
  Draw(words);
  Raster const picture = ReadPng(folder.Read("pattern.png"));
  Words rows(5);
  for (long row = 0; row < 5; ++row)
    for (long col = 0; col < 7; ++col)
      rows[static_cast<std::size_t>(row)] += HolderAt(picture, row, col);
  return rows;
}

TEST(GatherPlot, ShowsBandsOfRows) {
  Words const rows = {"00.....",  //
                      "......1",  //
                      "..11...",  //
                      "...2...",  //
                      "2...22."};

  EXPECT_EQ(Holders({"--partition", "rows"}), rows);
  EXPECT_EQ(Holders({"--format", "csr", "--base", "1"}), rows);
  EXPECT_EQ(Holders({"--format", "csr", "--no-values", "--to", "all"}), rows);
}

TEST(GatherPlot, ShowsBandsOfColumns) {
  Words const columns = {"00.....",  //
                         "......2",  //
                         "..11...",  //
                         "...1...",  //
                         "0...22."};

  EXPECT_EQ(Holders({"--partition", "columns"}), columns);
  EXPECT_EQ(Holders({"--format", "csc", "--partition", "columns"}), columns);
}

TEST(GatherPlot, ShowsBandsWhereTheyWereCut) {
  EXPECT_THAT(Holders({"--partition", "rows", "--cuts", "3,4"}),
              ElementsAre("00.....",  //
                          "......0",  //
                          "..00...",  //
                          "...1...",  //
                          "2...22."));
}

TEST(GatherPlot, ShowsEntriesInTheOrderOfTheFile) {
  EXPECT_THAT(Holders({"--partition", "entries", "--updates", "1"}),
              ElementsAre("00.....",  //
                          "......0",  //
                          "..11...",  //
                          "...1...",  //
                          "2...22."));
}

TEST(GatherPlot, ShowsTheHolderOfTheWhole) {
  EXPECT_THAT(Holders({"--partition", "one", "--holder", "2", "--format", "csr"}),
              ElementsAre("22.....",  //
                          "......2",  //
                          "..22...",  //
                          "...2...",  //
                          "2...22."));
}

TEST(GatherPlot, ShowsWhatEveryRankHoldsInOneColour) {
  EXPECT_THAT(Holders({"--partition", "all"}),
              ElementsAre("00.....",  //
                          "......0",  //
                          "..00...",  //
                          "...0...",  //
                          "0...00."));
}

TEST(GatherPlot, ShowsZerosOfADenseMatrixPale) {
  EXPECT_THAT(Holders({"--format", "dense-row"}),
              ElementsAre("00aaaaa",  //
                          "bbbbbb1",  //
                          "bb11bbb",  //
                          "ccc2ccc",  //
                          "2ccc22c"));
  EXPECT_THAT(Holders({"--format", "dense-col", "--partition", "columns", "--ld", "2"}),
              ElementsAre("00bbccc",  //
                          "aabbcc2",  //
                          "aa11ccc",  //
                          "aab1ccc",  //
                          "0abb22c"));
}

// No value that the scatter sends is zero.
TEST(GatherPlot, ShowsTheMatrixBeforeTheScatter) {
  EXPECT_EQ(Holders({"--format", "dense-row", "--scatter"}),
            Holders({"--format", "dense-row"}));
}

TEST(GatherPlot, IsOfTheKindThatTheEndingNames) {
  TemporaryFolder folder;
  for (char const* name : {"a.png", "a.svg", "a.pdf", "A.PNG"})
    Draw({"gather", "--generate", "poisson3d:20", "--plot", folder.Path(name)});

  EXPECT_THAT(folder.Read("a.png"), StartsWith("\x89PNG\r\n\x1a\n"));
  EXPECT_THAT(folder.Read("A.PNG"), StartsWith("\x89PNG\r\n\x1a\n"));
  EXPECT_THAT(folder.Read("a.pdf"), StartsWith("%PDF-"));
  EXPECT_THAT(folder.Read("a.svg"),
              StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg "));
  EXPECT_THAT(folder.Read("a.svg"), testing::EndsWith("</svg>\n"));
}

TEST(GatherPlot, StaysSmallForALargeMatrix) {
  TemporaryFolder folder;
  for (char const* name : {"a.png", "a.svg", "a.pdf"}) {
    Draw({"gather", "--generate", "random:20000", "--plot", folder.Path(name)});

    EXPECT_LT(folder.Read(name).size(), 1000000U) << name;
  }
}

TEST(GatherPlot, TakesEmptyAndThinMatrices) {
  TemporaryFolder folder;
  std::string const head = "%%MatrixMarket matrix coordinate real general\n";
  for (char const* size : {"0 0 0\n", "5 5 0\n", "0 7 0\n", "1 1 1\n1 1 2\n"}) {
    std::string const file = folder.Write("a.mtx", head + size);
    for (char const* picture : {"a.png", "a.svg", "a.pdf"})
      Draw({"gather", file, "--ranks", "1", "--plot", folder.Path(picture)});

    EXPECT_NO_THROW(ReadPng(folder.Read("a.png"))) << size;
  }
  for (char const* thin : {"dense:1x5000", "dense:5000x1"})
    Draw({"gather", "--generate", thin, "--format", "dense-row", "--partition",
          thin[6] == '1' ? "columns" : "rows", "--plot", folder.Path("thin.png")});
}

TEST(GatherPlot, TakesANameThatIsNoText) {
  TemporaryFolder folder;
  std::string const file = folder.Write("odd\xff\n<&>.mtx", kSmall);

  Draw({"gather", file, "--ranks", "2", "--plot", folder.Path("a.svg")});

  EXPECT_THAT(folder.Read("a.svg"), testing::EndsWith("</svg>\n"));
}

// 3 x 3 points: the bump is highest in the middle and lowest in the corners.
TEST(SolvePlot, ShowsTheSolutionOnItsGrid) {
  TemporaryFolder folder;
  Draw({"solve", "--generate", "poisson2d:3", "--plot", folder.Path("a.png")});

  Raster const picture = ReadPng(folder.Read("a.png"));
  constexpr long kLeft = 128;
  constexpr long kTop = 352;
  constexpr long kSide = 880;
  EXPECT_EQ(picture.At(kLeft + kSide / 2, kTop + kSide / 2), kYellow);
  EXPECT_EQ(picture.At(kLeft + 2, kTop + 2), kViolet);
  EXPECT_EQ(picture.At(kLeft + kSide - 3, kTop + kSide - 3), kViolet);
}

TEST(SolvePlot, DrawsEveryProblem) {
  TemporaryFolder folder;
  std::string const head = "%%MatrixMarket matrix coordinate real general\n";
  std::string const one = folder.Write("one.mtx", head + "1 1 1\n1 1 2\n");
  for (Words const& problem :
       std::vector<Words>{{"--generate", "convection3d:4", "--steps", "2"},
                          {"--generate", "poisson2d:3", "--steps", "70", "--rhs", "2"},
                          {"--generate", "poisson2d:2", "--value", "complex-float"},
                          {"--generate", "random:1000", "--index", "long"},
                          {one, "--ranks", "1"}}) {
    Words words = {"solve", "--plot", folder.Path("a.png")};
    words.insert(words.end(), problem.begin(), problem.end());
    Draw(words);

    EXPECT_NO_THROW(ReadPng(folder.Read("a.png")));
    std::filesystem::remove(folder.Path("a.png"));
  }
}

// The picture has the line through three components, two of them equal, over the range of all
// doubles.
TEST(SolvePlot, TakesTheLargestValues) {
  TemporaryFolder folder;
  std::string const a = folder.Write("a.mtx",
                                     "%%MatrixMarket matrix coordinate real general\n"
                                     "3 3 3\n1 1 1\n2 2 1\n3 3 1\n");
  std::string const b = folder.Write("b.mtx",
                                     "%%MatrixMarket matrix array real general\n"
                                     "3 1\n-1.7e308\n1.7e308\n1.7e308\n");
  Draw({"solve", a, "--rhs-file", b, "--ranks", "2", "--plot", folder.Path("a.png")});

  Raster const picture = ReadPng(folder.Read("a.png"));
  constexpr long kMiddleOfTheLastTwo = 128 + 880 * 2 / 3;
  EXPECT_EQ(picture.At(kMiddleOfTheLastTwo, 352), kBlue);
}

void ExpectRefused(Words words, std::string const& line) {
  for (char const* command : {"gather", "solve"}) {
    Words all = {command, "--generate", "poisson2d:3"};
    all.insert(all.end(), words.begin(), words.end());
    CommandResult const result = RunPavex(all);

    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.errors, "pavex: " + line + "\n");
    EXPECT_EQ(result.output, "");
  }
}

TEST(BadPlot, IsRefusedBeforeTheWork) {
  TemporaryFolder folder;
  for (std::string const name : {"a.jpg", "png", ".svg", "a."})
    ExpectRefused({"--plot", name},
                  "--plot " + name + ": the name has to end in .svg, .png or .pdf");
  std::string const nowhere = folder.Path("absent/a.svg");
  ExpectRefused({"--plot", nowhere},
                nowhere + ": cannot be written: No such file or directory");
  std::string const aFolder = folder.Path("folder.png");
  std::filesystem::create_directory(aFolder);
  ExpectRefused({"--plot", aFolder}, aFolder + ": cannot be written: Is a directory");
  std::string const file = folder.Path("a.svg");
  ExpectRefused({"--plot", file, "--json", file}, "--json and --plot name the same file");
  ExpectRefused({"--plot", file, "--output", folder.Path("folder.png/../a.svg")},
                "--output and --plot name the same file");

  EXPECT_THAT(folder.Names(), ElementsAre("folder.png"));
}

TEST(BadPlot, LeavesTheFormerPicture) {
  TemporaryFolder folder;
  std::string const former = folder.Write("a.png", "former");

  CommandResult const result = RunPavex({"solve", "--generate", "poisson2d:3", "--rhs-file",
                                         folder.Path("absent"), "--plot", former});

  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(folder.Read("a.png"), "former");
  EXPECT_THAT(folder.Names(), ElementsAre("a.png"));
}

TEST(Version, SaysWhetherItDraws) {
  EXPECT_THAT(RunPavex({"--version"}).output, HasSubstr("\ndraws with Cairo\n"));
}

}  // namespace
}  // namespace Pavex::Tool
