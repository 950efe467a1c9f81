// The picture of a solve: the solution next to the times of the steps.

#pragma once

#include "tools/picture/canvas.h"
#include "tools/solve/plane.h"
#include "tools/solve/solve_job.h"

#include <string>

namespace Pavex::Tool {

// The bytes of the file. The solution is an image of the plane or of the middle plane of a
// grid, otherwise a line through the components. Call it only if CanDraw().
std::string DrawSolve(SolveResult const& result, PictureKind kind);

// An image with one pixel for each value and the last row of values at the top.
Raster Paint(Plane const& plane);

}  // namespace Pavex::Tool
