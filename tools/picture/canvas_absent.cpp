// The canvas of a build without Cairo.

#include "tools/choice/input_error.h"
#include "tools/picture/canvas.h"

namespace Pavex::Tool {

bool CanDraw() {
  return false;
}

std::unique_ptr<Canvas> MakeCanvas(PictureKind, double, double) {
  throw InputError("this pavex was built without Cairo");
}

}  // namespace Pavex::Tool
