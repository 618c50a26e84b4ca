// Mesh files: readers and writers (medit, legacy VTK, STL, NASTRAN, EnSight, FEMAP neutral,
// Wavefront OBJ).
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

#include <cstdio>

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ medit files

// (end of medit files)

// ------------------------------------------------------------------------------------ legacy VTK files

// (end of legacy VTK files)

// ------------------------------------------------------------------------------------ STL files

// (end of STL files)

// ------------------------------------------------------------------------------------ NASTRAN bulk data

// (end of NASTRAN bulk data)

// ------------------------------------------------------------------------------------ EnSight geometry

// (end of EnSight geometry)

// ------------------------------------------------------------------------------------ FEMAP neutral files

// (end of FEMAP neutral files)

// ------------------------------------------------------------------------------------ Wavefront OBJ files

// (end of Wavefront OBJ files)

} // namespace qx7::meshutil
