// The parts that the pictures share: heads and marked axes.

#pragma once

#include "tools/picture/canvas.h"

#include <string>
#include <vector>

namespace Pavex::Tool {

constexpr double kMargin = 24;
constexpr TextStyle kPlain{};
constexpr TextStyle kTitle{15, Align::LEFT, true};
constexpr TextStyle kPanelTitle{12, Align::LEFT, true};
constexpr double kLine = 16;  // from one line of text to the next

// A mark on one side of a box, at a part (0 to 1) of its length from the left or from the top.
struct Mark {
  double mPart;
  std::string mLabel;
};

enum class Side { LEFT, RIGHT, ABOVE, BELOW };

// In the middle of each index (counted from 0) that is marked along `extent` ones.
std::vector<Mark> IndexMarks(long extent, int most);

// At values from `high`, on top, down to `low`.
std::vector<Mark> ValueMarks(double low, double high, int most);

// A label that would touch the one before it is left out.
void DrawMarks(Canvas& canvas, Box const& box, Side side, std::vector<Mark> const& marks);

// What the marks of that side count: behind their labels, for the left side above them.
void DrawName(Canvas& canvas, Box const& box, Side side, std::string const& name);

// The lines of `text` from the top of the canvas, the first one as a title; what is too long
// for `width` loses its beginning, which of a path matters least. Returns where the last line
// ends.
double DrawHead(Canvas& canvas, std::string const& text, double width);

// `text`, or as much of its end as fits into `width` behind three dots.
std::string Fitting(Canvas const& canvas, std::string const& text, TextStyle const& style,
                    double width);

}  // namespace Pavex::Tool
