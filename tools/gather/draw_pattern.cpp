#include "tools/gather/draw_pattern.h"

#include "tools/picture/chart.h"
#include "tools/picture/palette.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace Pavex::Tool {

namespace {

constexpr double kLongest = 600;  // the longest side of the pattern
constexpr double kShortest = 60;
constexpr double kLabels = 76;  // width of the labels on the left of the pattern
constexpr double kLegend = 268;
constexpr double kSwatch = 12;
constexpr int kMostLines = 24;  // the most ranks that the legend lists
constexpr double kNarrowest = 620;

// A line of the legend: colours, followed by a text or by the three columns of the table.
struct LegendLine {
  std::vector<Colour> mSwatches;
  std::string mText;
  std::string mEntries;
  std::string mMegabytes;
  bool mBold = false;

  bool IsRow() const { return !mEntries.empty(); }
};
using Legend = std::vector<LegendLine>;

// `bytes` in megabytes, with the decimals that a table of up to `most` bytes needs. Every byte
// shows if `most` is less than a megabyte.
std::string InMegabytes(long bytes, long most) {
  char text[40];
  std::snprintf(text, sizeof text, "%.*f", most < 1000000 ? 6 : 3,
                static_cast<double>(bytes) * 1e-6);
  return text;
}

RankRecord SumOf(std::vector<RankRecord> const& records) {
  RankRecord sum;
  for (RankRecord const& record : records) {
    sum.mEntries += record.mEntries;
    sum.mBytes += record.mBytes;
  }
  return sum;
}

void AddRanks(GatherReport const& report, Legend& legend) {
  auto const count = static_cast<int>(report.mRanks.size());
  bool const dense = IsDense(report.mOptions.mFormat);
  RankRecord const all = SumOf(report.mRanks);
  auto const add = [&](std::vector<Colour> const& swatches, std::string const& name,
                       RankRecord const& record) {
    legend.push_back({swatches, name, std::to_string(record.mEntries),
                      InMegabytes(record.mBytes, all.mBytes), swatches.empty()});
  };
  legend.push_back({{}, "rank", dense ? "elements" : "entries", "MB", true});
  if (count > 1 && report.mOptions.mPartition == Partition::ALL)
    return add({RankColour(0)}, "each of 0 to " + std::to_string(count - 1), report.mRanks[0]);
  for (int rank = 0; rank < count; ++rank) {
    bool const shown = count <= kMostLines || rank < kMostLines - 2 || rank == count - 1;
    if (shown)
      add({RankColour(rank)}, std::to_string(rank),
          report.mRanks[static_cast<std::size_t>(rank)]);
    if (!shown && rank == kMostLines - 2) legend.push_back({{}, "...", "...", "...", false});
  }
  if (count > 1) add({}, "all", all);
}

// Adds the scale of the strengths. It is grey, because the colour differs from rank to rank.
void AddStrengths(long most, std::string const& what, Legend& legend) {
  constexpr int kSteps = 5;
  LegendLine line;
  long former = 0;
  for (int step = 0; step < kSteps; ++step) {
    long const entries =
        std::lround(std::pow(static_cast<double>(most), step / (kSteps - 1.0)));
    if (entries > former) line.mSwatches.push_back(Pale(kInk, Strength(entries, most)));
    former = entries;
  }
  line.mText = "1 to " + std::to_string(most) + " " + what + " in a cell";
  legend.push_back(line);
}

void AddNotes(GatherReport const& report, PatternCells const& cells, Legend& legend) {
  CellGrid const& grid = cells.Grid();
  bool const dense = IsDense(report.mOptions.mFormat);
  auto const note = [&legend](std::string const& text) {
    legend.push_back({{}, text, "", "", false});
  };
  note("");
  if (report.mRanks.size() > kRankColours && report.mOptions.mPartition != Partition::ALL)
    note("Colours repeat every " + std::to_string(kRankColours) + " ranks.");
  if (!grid.IsExact()) {
    note("A cell of " + std::to_string(grid.mCellRows) + " x " +
         std::to_string(grid.mCellCols) + " positions shows");
    note(std::string("the rank with most ") + (dense ? "elements" : "entries") + " in it.");
    if (cells.MostEntries() > 1)
      AddStrengths(cells.MostEntries(), dense ? "nonzeros" : "entries", legend);
  }
  if (cells.HasZeros())
    legend.push_back({{Pale(kInk, Strength(0, 1))}, "zeros", "", "", false});
  if (report.mWhole.mEntries == 0) note("The matrix has no entries.");
}

void DrawLegend(Canvas& canvas, double x, double y, Legend const& legend) {
  for (LegendLine const& line : legend) {
    y += kLine;
    double left = x;
    for (Colour const& colour : line.mSwatches) {
      canvas.Fill({left, y - kSwatch + 2, kSwatch, kSwatch}, colour);
      left += kSwatch;
    }
    if (line.IsRow())
      left = x + 20;
    else if (left > x)
      left += 8;
    TextStyle const plain{kPlain.mSize, Align::LEFT, line.mBold};
    TextStyle const number{kPlain.mSize, Align::RIGHT, line.mBold};
    canvas.Text({left, y}, line.mText, plain);
    canvas.Text({x + 180, y}, line.mEntries, number);
    canvas.Text({x + kLegend, y}, line.mMegabytes, number);
  }
}

// The length of `cells` cells in points, at least `least`. Each cell has whole pixels.
double Length(long cells, double pixelsPerCell, double least) {
  if (cells == 0) return least;
  auto const count = static_cast<double>(cells);
  return count * std::max(pixelsPerCell, std::ceil(least * kPixelsPerPoint / count)) /
         kPixelsPerPoint;
}

// Draws lines between the positions if they are large enough to be counted.
void DrawGrid(Canvas& canvas, Box const& box, CellGrid const& grid) {
  constexpr double kCountable = 8;
  constexpr Colour kGrid{225, 225, 225};
  auto const down = static_cast<double>(grid.Down());
  auto const across = static_cast<double>(grid.Across());
  if (!grid.IsExact() || box.mHeight < down * kCountable || box.mWidth < across * kCountable)
    return;
  for (long row = 1; row < grid.Down(); ++row) {
    double const y = box.mY + static_cast<double>(row) / down * box.mHeight;
    canvas.Line({{box.mX, y}, {box.Right(), y}}, kGrid, 0.5);
  }
  for (long col = 1; col < grid.Across(); ++col) {
    double const x = box.mX + static_cast<double>(col) / across * box.mWidth;
    canvas.Line({{x, box.mY}, {x, box.Bottom()}}, kGrid, 0.5);
  }
}

int MarksAlong(double length) {
  return std::max(3, static_cast<int>(length / 60));
}

}  // namespace

Box PatternBox(CellGrid const& grid, double x, double y) {
  auto const longer = static_cast<double>(std::max({grid.Across(), grid.Down(), 1L}));
  double const pixels = std::floor(kLongest * kPixelsPerPoint / longer);
  return {x, y, Length(grid.Across(), pixels, kShortest),
          Length(grid.Down(), pixels, kShortest)};
}

Raster Paint(PatternCells const& cells) {
  CellGrid const& grid = cells.Grid();
  long const most = grid.IsExact() ? 1 : cells.MostEntries();
  Raster raster{grid.Across(), grid.Down(), {}};
  raster.mCells.assign(static_cast<std::size_t>(raster.mWidth * raster.mHeight), kPaper);
  for (long down = 0; down < raster.mHeight; ++down) {
    for (long across = 0; across < raster.mWidth; ++across) {
      Cell const& cell = cells.At(down, across);
      if (cell.mRank >= 0)
        raster.At(across, down) =
            Pale(RankColour(cell.mRank), Strength(std::min(cell.mEntries, most), most));
    }
  }
  return raster;
}

std::string DrawPattern(GatherReport const& report, PatternCells const& cells,
                        PictureKind kind) {
  constexpr double kTop = kMargin + 3 * kLine + 36;  // below the head and the labels
  Legend legend;
  AddRanks(report, legend);
  AddNotes(report, cells, legend);
  Box const box = PatternBox(cells.Grid(), kMargin + kLabels, kTop);
  double const legendX = box.Right() + 36;
  double const width = std::max(legendX + kLegend + kMargin, kNarrowest);
  double const legendHeight = static_cast<double>(legend.size()) * kLine;
  auto const canvas =
      MakeCanvas(kind, width, kTop + std::max(box.mHeight, legendHeight) + kMargin);

  DrawHead(*canvas, Head(report), width - 2 * kMargin);
  canvas->Image(box, Paint(cells));
  DrawGrid(*canvas, box, cells.Grid());
  canvas->Frame(box);
  DrawName(*canvas, box, Side::ABOVE, "column");
  DrawMarks(*canvas, box, Side::ABOVE, IndexMarks(report.mWhole.mCols, MarksAlong(box.mWidth)));
  DrawName(*canvas, box, Side::LEFT, "row");
  DrawMarks(*canvas, box, Side::LEFT, IndexMarks(report.mWhole.mRows, MarksAlong(box.mHeight)));
  DrawLegend(*canvas, legendX, kTop - kLine / 4, legend);
  return canvas->Finish();
}

}  // namespace Pavex::Tool
