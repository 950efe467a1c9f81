// The picture of a solve: the solution next to the times of the steps.

#pragma once

#include "tools/picture/canvas.h"
#include "tools/solve/plane.h"
#include "tools/solve/solve_job.h"

#include <string>

namespace Pavex::Tool {

// The bytes of the file. The solution is an image of the plane or of the middle plane of a
// grid, else a line through the components. Only where CanDraw().
std::string DrawSolve(SolveResult const& result, PictureKind kind);

// One pixel for each value, the last row of values on top.
Raster Paint(Plane const& plane);

}  // namespace Pavex::Tool
