#!/usr/bin/env bash
# Installs the open tools the benchmarks compare against, from Debian's packages:
# nanoflann and CGAL (k-d trees), meshio and VTK (mesh files, quality), admesh (STL).
# CI does not run this; run it once before the side-by-side benchmarks.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
apt-get update -q
apt-get install -y -q libbenchmark-dev libnanoflann-dev libcgal-dev python3-meshio python3-vtk9 \
    python3-numpy admesh hyperfine
