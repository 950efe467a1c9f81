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
constexpr double kLine = 16;  // distance of two lines of text

// A mark on one side of a box, at a part (0 to 1) of its length from the left or from the top.
struct Mark {
  double mPart;
  std::string mLabel;
};

enum class Side { LEFT, RIGHT, ABOVE, BELOW };

// At most `most` marks along `extent` indices, which count from 0. Each mark is in the middle
// of its index.
std::vector<Mark> IndexMarks(long extent, int most);

// At most `most` marks at values from `high`, at the top, down to `low`.
std::vector<Mark> ValueMarks(double low, double high, int most);

// Draws marks with their labels. Leaves out a label that would touch the one before it.
void DrawMarks(Canvas& canvas, Box const& box, Side side, std::vector<Mark> const& marks);

// Writes what the marks of that side count: after their labels, or above them on the left side.
void DrawName(Canvas& canvas, Box const& box, Side side, std::string const& name);

// Writes the lines of `text` from the top of the canvas on, the first one as a title. A line
// that is too long for `width` loses its beginning, the least important part of a path. Returns
// where the last line ends.
double DrawHead(Canvas& canvas, std::string const& text, double width);

// `text`, or three dots and as much of its end as fits into `width`.
std::string Fitting(Canvas const& canvas, std::string const& text, TextStyle const& style,
                    double width);

}  // namespace Pavex::Tool
