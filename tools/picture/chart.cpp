#include "tools/picture/chart.h"

#include "tools/picture/showable.h"
#include "tools/picture/ticks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

namespace Pavex::Tool {

namespace {

constexpr TextStyle kLabel{10};
constexpr double kMarkLength = 4;

struct Placed {
  Point mMark;   // where the mark touches the box
  Point mEnd;    // its other end
  Point mLabel;  // on the base line
  Align mAlign;
};

Placed Place(Box const& box, Side side, double part) {
  double const x = box.mX + part * box.mWidth;
  double const y = box.mY + part * box.mHeight;
  double const low = kLabel.mSize * 0.36;  // centres digits on a line
  switch (side) {
    case Side::LEFT:
      return {{box.mX, y}, {box.mX - kMarkLength, y}, {box.mX - 7, y + low}, Align::RIGHT};
    case Side::RIGHT:
      return {{box.Right(), y},
              {box.Right() + kMarkLength, y},
              {box.Right() + 7, y + low},
              Align::LEFT};
    case Side::ABOVE:
      return {{x, box.mY}, {x, box.mY - kMarkLength}, {x, box.mY - 7}, Align::CENTRE};
    case Side::BELOW:
      break;
  }
  return {{x, box.Bottom()},
          {x, box.Bottom() + kMarkLength},
          {x, box.Bottom() + 6 + kLabel.mSize},
          Align::CENTRE};
}

bool IsWhole(double value) {
  return std::floor(value) == value;
}

}  // namespace

std::vector<Mark> IndexMarks(long extent, int most) {
  std::vector<Mark> marks;
  if (extent == 0) return marks;
  auto const count = static_cast<double>(extent);
  for (Tick const& tick : TicksBetween(0, count - 1, most))
    if (IsWhole(tick.mValue))
      marks.push_back(
          {(tick.mValue + 0.5) / count, std::to_string(static_cast<long>(tick.mValue))});
  return marks;
}

std::vector<Mark> ValueMarks(double low, double high, int most) {
  std::vector<Mark> marks;
  for (Tick const& tick : TicksBetween(low, high, most))
    marks.push_back({1 - PartOf(tick.mValue, low, high), tick.mLabel});
  return marks;
}

void DrawMarks(Canvas& canvas, Box const& box, Side side, std::vector<Mark> const& marks) {
  bool const vertical = side == Side::LEFT || side == Side::RIGHT;
  double const gap = vertical ? 2 : 6;
  std::vector<std::pair<double, double>> taken;  // from and to, along the side
  for (Mark const& mark : marks) {
    Placed const placed = Place(box, side, mark.mPart);
    canvas.Line({placed.mMark, placed.mEnd}, kInk, 0.5);
    TextStyle const style{kLabel.mSize, placed.mAlign};
    double const middle = vertical ? placed.mLabel.mY : placed.mLabel.mX;
    double const length = vertical ? kLabel.mSize : canvas.Width(mark.mLabel, style);
    double const from = middle - length / 2 - gap;
    double const to = middle + length / 2;
    bool const free = std::all_of(taken.begin(), taken.end(), [&](auto const& other) {
      return to <= other.first || from >= other.second;
    });
    if (!free) continue;
    taken.emplace_back(from, to);
    canvas.Text(placed.mLabel, mark.mLabel, style);
  }
}

void DrawName(Canvas& canvas, Box const& box, Side side, std::string const& name) {
  double const middle = box.mX + box.mWidth / 2;
  if (side == Side::BELOW)
    canvas.Text({middle, box.Bottom() + 32}, name, {kLabel.mSize, Align::CENTRE});
  else if (side == Side::ABOVE)
    canvas.Text({middle, box.mY - 22}, name, {kLabel.mSize, Align::CENTRE});
  else
    canvas.Text({box.mX - 7, box.mY - 22}, name, {kLabel.mSize, Align::RIGHT});
}

double DrawHead(Canvas& canvas, std::string const& text, double width) {
  double y = kMargin;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    bool const first = y == kMargin;
    TextStyle const& style = first ? kTitle : kPlain;
    y += first ? kTitle.mSize - 3 : kLine;
    canvas.Text({kMargin, y}, Fitting(canvas, line, style, width), style);
    if (first) y += 3;
  }
  return y;
}

std::string Fitting(Canvas const& canvas, std::string const& text, TextStyle const& style,
                    double width) {
  std::string shown = Showable(text);
  if (canvas.Width(shown, style) <= width) return shown;
  auto const isInside = [](char byte) { return (static_cast<unsigned>(byte) & 0xc0U) == 0x80; };
  for (std::size_t from = 1; from < shown.size(); ++from) {
    if (isInside(shown[from])) continue;
    std::string end = "..." + shown.substr(from);
    if (canvas.Width(end, style) <= width) return end;
  }
  return "";
}

}  // namespace Pavex::Tool
