// A build without Cairo.

#include "tools/canvas.h"
#include "tools/input_error.h"

namespace Pavex::Tool {

bool CanDraw() {
  return false;
}

std::unique_ptr<Canvas> MakeCanvas(PictureKind, double, double) {
  throw InputError("this pavex was built without Cairo");
}

}  // namespace Pavex::Tool
