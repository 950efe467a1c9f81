#include "tools/choice/input_error.h"
#include "tools/picture/canvas.h"
#include "tools/picture/showable.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>
#include <cmath>
#include <cstring>
#include <new>

namespace Pavex::Tool {

namespace {

constexpr double kTurn = 6.283185307179586;

cairo_status_t Append(void* bytes, unsigned char const* data, unsigned length) {
  try {
    static_cast<std::string*>(bytes)->append(reinterpret_cast<char const*>(data), length);
  } catch (std::bad_alloc const&) {
    return CAIRO_STATUS_NO_MEMORY;
  }
  return CAIRO_STATUS_SUCCESS;
}

void Require(cairo_status_t status) {
  if (status == CAIRO_STATUS_NO_MEMORY) throw std::bad_alloc();
  if (status != CAIRO_STATUS_SUCCESS)
    throw InputError(std::string("the picture cannot be drawn: ") +
                     cairo_status_to_string(status));
}

struct Destroy {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
  void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using Surface = std::unique_ptr<cairo_surface_t, Destroy>;

// Draws the cells into an image. Each cell gets whole pixels, so no viewer blurs it.
Surface Enlarge(Raster const& raster, int width, int height) {
  Surface image(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
  Require(cairo_surface_status(image.get()));
  unsigned char* const data = cairo_image_surface_get_data(image.get());
  long const stride = cairo_image_surface_get_stride(image.get());
  for (long y = 0; y < height; ++y) {
    for (long x = 0; x < width; ++x) {
      Colour const& colour = raster.At(x * raster.mWidth / width, y * raster.mHeight / height);
      std::uint32_t const pixel = static_cast<std::uint32_t>(colour.mRed) << 16U |
                                  static_cast<std::uint32_t>(colour.mGreen) << 8U |
                                  colour.mBlue;
      std::memcpy(data + y * stride + x * 4, &pixel, sizeof pixel);
    }
  }
  cairo_surface_mark_dirty(image.get());
  return image;
}

class CairoCanvas final : public Canvas {
 public:
  CairoCanvas(PictureKind kind, double width, double height) : mKind(kind) {
    mSurface = MakeSurface(width, height);
    mContext.reset(cairo_create(mSurface.get()));
    Require(cairo_status(mContext.get()));
    Use(kPaper);
    cairo_paint(mContext.get());
  }

  void Fill(Box const& box, Colour colour) override {
    Use(colour);
    cairo_rectangle(mContext.get(), box.mX, box.mY, box.mWidth, box.mHeight);
    cairo_fill(mContext.get());
  }

  void Frame(Box const& box) override {
    constexpr double kWidth = 0.5;
    Use(kInk);
    cairo_set_line_width(mContext.get(), kWidth);
    cairo_rectangle(mContext.get(), box.mX - kWidth / 2, box.mY - kWidth / 2,
                    box.mWidth + kWidth, box.mHeight + kWidth);
    cairo_stroke(mContext.get());
  }

  void Line(std::vector<Point> const& points, Colour colour, double width) override {
    Use(colour);
    cairo_set_line_width(mContext.get(), width);
    cairo_set_line_join(mContext.get(), CAIRO_LINE_JOIN_ROUND);
    for (Point const& point : points)
      cairo_line_to(mContext.get(), point.mX, point.mY);
    cairo_stroke(mContext.get());
  }

  void Dot(Point const& centre, Colour colour, double radius) override {
    Use(colour);
    cairo_arc(mContext.get(), centre.mX, centre.mY, radius, 0, kTurn);
    cairo_fill(mContext.get());
  }

  void Image(Box const& box, Raster const& raster) override {
    if (raster.mCells.empty()) return;
    auto const pixels = [](double length) {
      return static_cast<int>(std::lround(length * kPixelsPerPoint));
    };
    int const width = pixels(box.mWidth);
    int const height = pixels(box.mHeight);
    Surface const image = Enlarge(raster, width, height);
    cairo_save(mContext.get());
    cairo_translate(mContext.get(), box.mX, box.mY);
    cairo_scale(mContext.get(), box.mWidth / width, box.mHeight / height);
    cairo_set_source_surface(mContext.get(), image.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(mContext.get()), CAIRO_FILTER_NEAREST);
    cairo_paint(mContext.get());
    cairo_restore(mContext.get());
  }

  void Text(Point const& at, std::string const& text, TextStyle const& style) override {
    double const width = Width(text, style);
    double const left = style.mAlign == Align::LEFT     ? 0
                        : style.mAlign == Align::CENTRE ? width / 2
                                                        : width;
    Use(kInk);
    cairo_move_to(mContext.get(), at.mX - left, at.mY);
    cairo_show_text(mContext.get(), Showable(text).c_str());
    cairo_new_path(mContext.get());
  }

  double Width(std::string const& text, TextStyle const& style) const override {
    cairo_select_font_face(mContext.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           style.mBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(mContext.get(), style.mSize);
    cairo_text_extents_t extents;
    cairo_text_extents(mContext.get(), Showable(text).c_str(), &extents);
    return extents.x_advance;
  }

  std::string Finish() override {
    Require(cairo_status(mContext.get()));
    if (mKind == PictureKind::PNG)
      Require(cairo_surface_write_to_png_stream(mSurface.get(), Append, &mBytes));
    cairo_surface_finish(mSurface.get());
    Require(cairo_surface_status(mSurface.get()));
    return std::move(mBytes);
  }

 private:
  Surface MakeSurface(double width, double height) {
    Surface surface;
    if (mKind == PictureKind::SVG) {
      surface.reset(cairo_svg_surface_create_for_stream(Append, &mBytes, width, height));
    } else if (mKind == PictureKind::PDF) {
      surface.reset(cairo_pdf_surface_create_for_stream(Append, &mBytes, width, height));
    } else {
      auto const pixels = [](double length) {
        return static_cast<int>(std::ceil(length)) * kPixelsPerPoint;
      };
      surface.reset(
          cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(width), pixels(height)));
      cairo_surface_set_device_scale(surface.get(), kPixelsPerPoint, kPixelsPerPoint);
    }
    Require(cairo_surface_status(surface.get()));
    return surface;
  }

  void Use(Colour colour) {
    cairo_set_source_rgb(mContext.get(), colour.mRed / 255.0, colour.mGreen / 255.0,
                         colour.mBlue / 255.0);
  }

  PictureKind mKind;
  std::string mBytes;  // outlives the surface, which writes into it
  Surface mSurface;
  std::unique_ptr<cairo_t, Destroy> mContext;
};

}  // namespace

bool CanDraw() {
  return true;
}

std::unique_ptr<Canvas> MakeCanvas(PictureKind kind, double width, double height) {
  return std::make_unique<CairoCanvas>(kind, width, height);
}

}  // namespace Pavex::Tool
