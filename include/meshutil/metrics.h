// Anisotropic metrics: primitives, fields, gradation, isotropic size generation.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

} // namespace qx7::meshutil
