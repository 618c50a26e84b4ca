// meshutil: finite-element mesh utilities. Including this header gives the whole library.
#pragma once

#include <meshutil/connectivity.h>
#include <meshutil/containers.h>
#include <meshutil/editing.h>
#include <meshutil/elements.h>
#include <meshutil/io.h>
#include <meshutil/metrics.h>
#include <meshutil/node_detector.h>
#include <meshutil/quality.h>
