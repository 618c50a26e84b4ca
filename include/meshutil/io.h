// Mesh files: readers and writers (medit, legacy VTK, STL, NASTRAN, EnSight, FEMAP neutral,
// Wavefront OBJ).
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

} // namespace qx7::meshutil
