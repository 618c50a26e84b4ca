// The node detector: a k-d tree over a set of nodes for nearest-node and box queries.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

} // namespace qx7::meshutil
