// Connectivity analysis: element boundaries and neighbours, mesh boundaries, subdomains,
// node-to-element links, colour interfaces, node graph, sorting of elements by shape.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

} // namespace qx7::meshutil
