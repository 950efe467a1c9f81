// The canvas of the pictures, for every kind of file.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Pavex::Tool {

enum class PictureKind { SVG, PNG, PDF };

struct Colour {
  std::uint8_t mRed;
  std::uint8_t mGreen;
  std::uint8_t mBlue;

  bool operator==(Colour const& other) const {
    return mRed == other.mRed && mGreen == other.mGreen && mBlue == other.mBlue;
  }
};

// A position on a canvas in points, counted from its upper left corner to the right and down.
struct Point {
  double mX;
  double mY;
};

struct Box {
  double mX;
  double mY;
  double mWidth;
  double mHeight;

  double Right() const { return mX + mWidth; }
  double Bottom() const { return mY + mHeight; }
};

// One point has this many pixels in a PNG file and in the rasters of the other kinds.
constexpr int kPixelsPerPoint = 2;

// Coloured cells, row by row from the top.
struct Raster {
  long mWidth = 0;
  long mHeight = 0;
  std::vector<Colour> mCells;

  Colour& At(long column, long row) {
    return mCells[static_cast<std::size_t>(row * mWidth + column)];
  }
  Colour const& At(long column, long row) const {
    return mCells[static_cast<std::size_t>(row * mWidth + column)];
  }
};

enum class Align { LEFT, CENTRE, RIGHT };

struct TextStyle {
  double mSize = 11;
  Align mAlign = Align::LEFT;
  bool mBold = false;
};

constexpr Colour kInk{34, 34, 34};
constexpr Colour kPaper{255, 255, 255};

// A canvas of any kind. One thread uses it. Throws std::bad_alloc or InputError if the picture
// cannot be drawn.
class Canvas {
 public:
  virtual ~Canvas() = default;

  virtual void Fill(Box const& box, Colour colour) = 0;
  // Draws a thin line around the box, outside it.
  virtual void Frame(Box const& box) = 0;
  virtual void Line(std::vector<Point> const& points, Colour colour, double width) = 0;
  virtual void Dot(Point const& centre, Colour colour, double radius) = 0;
  // Fills the box with the cells. Each cell has sharp edges.
  virtual void Image(Box const& box, Raster const& raster) = 0;
  // Writes a text. `at` is on the base line, at the left end, the middle or the right end of
  // the text. Bytes that cannot be shown become question marks.
  virtual void Text(Point const& at, std::string const& text, TextStyle const& style) = 0;
  virtual double Width(std::string const& text, TextStyle const& style) const = 0;

  // The bytes of the file. Call it last.
  virtual std::string Finish() = 0;
};

// Whether this build can draw pictures.
bool CanDraw();

// Makes a white canvas. Call it only if CanDraw().
std::unique_ptr<Canvas> MakeCanvas(PictureKind kind, double width, double height);

}  // namespace Pavex::Tool
