#include "png_image.h"

#include <algorithm>
#include <cairo.h>
#include <cstring>
#include <stdexcept>

namespace Pavex::Tool {

namespace {

cairo_status_t Take(void* rest, unsigned char* data, unsigned length) {
  auto& bytes = *static_cast<std::string*>(rest);
  if (bytes.size() < length) return CAIRO_STATUS_READ_ERROR;
  std::memcpy(data, bytes.data(), length);
  bytes.erase(0, length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

Raster ReadPng(std::string const& bytes) {
  std::string rest = bytes;
  cairo_surface_t* const image = cairo_image_surface_create_from_png_stream(Take, &rest);
  Raster raster;
  if (cairo_surface_status(image) == CAIRO_STATUS_SUCCESS) {
    raster.mWidth = cairo_image_surface_get_width(image);
    raster.mHeight = cairo_image_surface_get_height(image);
    unsigned char const* const data = cairo_image_surface_get_data(image);
    for (long y = 0; y < raster.mHeight; ++y) {
      for (long x = 0; x < raster.mWidth; ++x) {
        std::uint32_t pixel = 0;
        std::memcpy(&pixel, data + y * cairo_image_surface_get_stride(image) + x * 4, 4);
        raster.mCells.push_back({static_cast<std::uint8_t>(pixel >> 16U),
                                 static_cast<std::uint8_t>(pixel >> 8U),
                                 static_cast<std::uint8_t>(pixel)});
      }
    }
  }
  cairo_surface_destroy(image);
  if (raster.mCells.empty()) throw std::runtime_error("no PNG");
  return raster;
}

}  // namespace Pavex::Tool
