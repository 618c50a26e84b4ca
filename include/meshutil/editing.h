// Mesh editing: merging, index compaction, degenerated elements, transformations, copies,
// symmetry, clipping, simplification.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

} // namespace qx7::meshutil
