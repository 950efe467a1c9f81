#include "tools/solve/draw_solve.h"

#include "tools/picture/chart.h"
#include "tools/picture/palette.h"
#include "tools/picture/ticks.h"
#include "tools/solve/step_times.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace Pavex::Tool {

namespace {

constexpr double kSide = 440;  // the longest side of the solution
constexpr double kLabels = 40;
constexpr double kTop = kMargin + 6 * kLine + 56;  // below the head and the panel's three lines
constexpr double kBar = 16;                        // width of the colour bar
constexpr double kBarGap = 14;
constexpr double kTimes = 330;
constexpr double kTimesHeight = 320;
constexpr long kMostBars = 60;

// The two parts of the aggregation, gather/update and scatter, are blue.
constexpr std::array<int, kTimeParts> kPartColours = {0, 7, 1, 2, 5};

void DrawPanelTitle(Canvas& canvas, double x, std::string const& title,
                    std::vector<std::string> const& lines) {
  double y = kTop - 14 - 2 * kLine;
  canvas.Text({x, y}, title, kPanelTitle);
  for (std::string const& line : lines)
    canvas.Text({x, y += kLine}, line, kPlain);
}

std::string SolutionTitle(SolveReport const& report) {
  std::string title = "solution";
  if (IsComplex(report.mValue)) title += ", real part";
  if (report.mOptions.mRhs > 1)
    title += ", right-hand side 1 of " + std::to_string(report.mOptions.mRhs);
  if (report.mSteps.size() > 1)
    title += ", after step " + std::to_string(report.mSteps.size() - 1);
  return title;
}

std::string Times(long count) {
  return std::to_string(count) + " x " + std::to_string(count);
}

std::string PlaneSubtitle(Grid const& grid, Plane const& plane) {
  std::string text;
  if (grid.mAxes == 3)
    text = "slice z = " + std::to_string(plane.mZ) + " of 0 to " +
           std::to_string(grid.mSide - 1) + ", ";
  text += Times(grid.mSide) + (grid.mSide == 1 ? " point" : " points");
  if (plane.mBlock > 1) text += ", means of " + Times(plane.mBlock);
  return text;
}

// The part of the solution that is drawn: a plane, or the runs of its components.
struct Shown {
  Plane mPlane;
  Runs mRuns;
  Range mRange = {0, 0};
  std::vector<Mark> mMarks;  // of the values

  explicit Shown(SolveResult const& result) {
    if (result.mGrid.mAxes > 1) {
      mPlane = PlaneOf(result.mGrid, result.mSolution, static_cast<long>(kSide));
      mRange = RangeOf(mPlane.mValues);
    } else {
      mRuns = RunsOf(result.mSolution, static_cast<long>(kSide) * kPixelsPerPoint);
      mRange = RangeOf(result.mSolution);
    }
    mMarks = ValueMarks(mRange.mLow, mRange.mHigh, 9);
  }

  // The left edge of what is drawn on the right of the solution.
  double Right() const {
    constexpr double kWidest = 6.6;  // width of the widest character of a number
    std::size_t longest = 0;
    for (Mark const& mark : mMarks)
      longest = std::max(longest, mark.mLabel.size());
    return kMargin + kLabels + kSide + kBarGap + kBar + kWidest * static_cast<double>(longest);
  }
};

void DrawColourBar(Canvas& canvas, Box const& box, Shown const& shown) {
  constexpr long kSteps = 256;
  Raster raster{1, shown.mRange.mLow == shown.mRange.mHigh ? 1 : kSteps, {}};
  for (long step = raster.mHeight; step-- > 0;)
    raster.mCells.push_back(FieldColour(
        PartOf(static_cast<double>(step), 0, static_cast<double>(raster.mHeight - 1))));
  canvas.Image(box, raster);
  canvas.Frame(box);
  DrawMarks(canvas, box, Side::RIGHT, shown.mMarks);
}

std::string RangeInWords(Range const& range) {
  if (range.mLow == range.mHigh) return Labels({range.mLow}, 6)[0] + " everywhere";
  auto const labels = Labels({range.mLow, range.mHigh}, 6);
  return "from " + labels[0] + " to " + labels[1];
}

void DrawPlane(Canvas& canvas, SolveResult const& result, Shown const& shown) {
  Plane const& plane = shown.mPlane;
  Box const box{kMargin + kLabels, kTop, kSide, kSide};
  DrawPanelTitle(canvas, box.mX, SolutionTitle(result.mReport),
                 {PlaneSubtitle(result.mGrid, plane), RangeInWords(shown.mRange)});
  canvas.Image(box, Paint(plane));
  canvas.Frame(box);
  std::vector<Mark> marks = IndexMarks(result.mGrid.mSide, 8);
  DrawMarks(canvas, box, Side::BELOW, marks);
  for (Mark& mark : marks)
    mark.mPart = 1 - mark.mPart;
  DrawMarks(canvas, box, Side::LEFT, marks);
  DrawName(canvas, box, Side::BELOW, "x");
  DrawName(canvas, box, Side::LEFT, "y");
  DrawColourBar(canvas, {box.Right() + kBarGap, kTop, kBar, kSide}, shown);
}

// Draws few components as a line with dots, and many as a band between the least and the
// largest of each run.
void DrawRuns(Canvas& canvas, Box const& box, Runs const& runs, Range const& range) {
  constexpr double kMostDots = 60;
  auto const count = static_cast<double>(runs.mRanges.size());
  auto const yAt = [&](double value) {
    double const part = PartOf(value, range.mLow, range.mHigh);
    return box.mY + (1 - part) * box.mHeight;
  };
  std::vector<Point> line;
  for (Range const& run : runs.mRanges) {
    std::size_t const place = line.size() / 2;
    double const x = box.mX + (static_cast<double>(place) + 0.5) / count * box.mWidth;
    line.push_back({x, yAt(run.mLow)});
    line.push_back({x, yAt(run.mHigh)});
    if (count <= kMostDots) canvas.Dot(line.back(), RankColour(0), 2.5);
  }
  canvas.Line(line, RankColour(0), 1);
}

void DrawComponents(Canvas& canvas, SolveResult const& result, Shown const& shown) {
  Box const box{kMargin + kLabels, kTop, kSide, kTimesHeight};
  std::string subtitle = "by component, as no grid is known";
  if (shown.mRuns.mLength > 1)
    subtitle += "; range of each " + std::to_string(shown.mRuns.mLength) + " components";
  DrawPanelTitle(canvas, box.mX, SolutionTitle(result.mReport),
                 {subtitle, RangeInWords(shown.mRange)});
  DrawRuns(canvas, box, shown.mRuns, shown.mRange);
  canvas.Frame(box);
  DrawMarks(canvas, box, Side::BELOW,
            IndexMarks(static_cast<long>(result.mSolution.size()), 8));
  DrawName(canvas, box, Side::BELOW, "component");
  DrawMarks(canvas, box, Side::RIGHT, shown.mMarks);
}

std::string InWords(double seconds) {
  TimeUnit const unit = UnitFor(seconds);
  double const number = seconds * unit.mPerSecond;
  int const decimals = number >= 100 ? 0 : number >= 10 ? 1 : 2;
  char text[40];
  std::snprintf(text, sizeof text, "%.*f %s", decimals, number, unit.mName);
  return text;
}

std::string InPercent(double part, double whole) {
  char text[40];
  std::snprintf(text, sizeof text, "%.1f %%", whole > 0 ? part / whole * 100 : 0);
  return text;
}

void DrawTimesLegend(Canvas& canvas, double x, double y, TimeParts const& total) {
  TextStyle const number{kPlain.mSize, Align::RIGHT, false};
  for (std::size_t part = kTimeParts; part-- > 0;) {
    y += kLine;
    canvas.Fill({x, y - 10, 12, 12}, RankColour(kPartColours[part]));
    canvas.Text({x + 20, y}, kTimePartNames[part], kPlain);
    canvas.Text({x + 220, y}, InWords(total[part]), number);
    canvas.Text({x + 290, y}, InPercent(total[part], Sum(total)), number);
  }
  y += kLine;
  canvas.Text({x + 20, y}, "all steps", kPlain);
  canvas.Text({x + 220, y}, InWords(Sum(total)), number);
}

void DrawBars(Canvas& canvas, Box const& box, TimeBars const& bars, double highest) {
  double const slot = box.mWidth / static_cast<double>(bars.mBars.size());
  double const width = std::min(slot * 0.8, 60.0);
  double x = box.mX + (slot - width) / 2;
  for (TimeParts const& bar : bars.mBars) {
    double y = box.Bottom();
    for (std::size_t part = 0; part < kTimeParts; ++part) {
      double const height = highest > 0 ? bar[part] / highest * box.mHeight : 0;
      y -= height;
      canvas.Fill({x, y, width, height}, RankColour(kPartColours[part]));
    }
    x += slot;
  }
}

void DrawTimes(Canvas& canvas, double x, SolveReport const& report) {
  constexpr double kHeadroom = 1.05;
  TimeBars const bars = BarsOf(report.mSteps, kMostBars);
  double highest = 0;
  for (TimeParts const& bar : bars.mBars)
    highest = std::max(highest, Sum(bar) * kHeadroom);
  TimeUnit const unit = UnitFor(highest);
  Box const box{x, kTop, kTimes, kTimesHeight};
  std::vector<std::string> lines = {"of the slowest rank"};
  if (bars.mSteps > 1)
    lines.push_back("a bar is the mean of " + std::to_string(bars.mSteps) + " steps");
  DrawPanelTitle(canvas, x, std::string("time of each step, ") + unit.mName, lines);
  DrawBars(canvas, box, bars, highest);
  canvas.Frame(box);
  DrawMarks(canvas, box, Side::LEFT, ValueMarks(0, highest * unit.mPerSecond, 8));
  DrawMarks(canvas, box, Side::BELOW,
            IndexMarks(bars.mSteps * static_cast<long>(bars.mBars.size()), 8));
  DrawName(canvas, box, Side::BELOW, "step");
  DrawTimesLegend(canvas, x, box.Bottom() + 38, bars.mTotal);
}

}  // namespace

Raster Paint(Plane const& plane) {
  Range const range = RangeOf(plane.mValues);
  Raster raster{plane.mSide, plane.mSide, {}};
  for (long y = plane.mSide; y-- > 0;)
    for (long x = 0; x < plane.mSide; ++x)
      raster.mCells.push_back(FieldColour(PartOf(plane.At(x, y), range.mLow, range.mHigh)));
  return raster;
}

std::string DrawSolve(SolveResult const& result, PictureKind kind) {
  Shown const shown(result);
  double const timesX = shown.Right() + 60;
  double const width = timesX + kTimes + kMargin;
  auto const canvas = MakeCanvas(kind, width, kTop + kSide + 36 + kMargin);
  DrawHead(*canvas, Head(result.mReport), width - 2 * kMargin);
  if (result.mGrid.mAxes > 1)
    DrawPlane(*canvas, result, shown);
  else
    DrawComponents(*canvas, result, shown);
  DrawTimes(*canvas, timesX, result.mReport);
  return canvas->Finish();
}

}  // namespace Pavex::Tool
