#!/usr/bin/python3
"""Side by side: VTK's face-hashing filters and ours on the same 1M-tetrahedron cube.

Builds the cube of bench_connectivity (55^3 cubes, 6 tetrahedra each) in VTK, times
vtkDataSetSurfaceFilter (hashes every face to extract the free surface) and BuildLinks (the
node-to-cell lists), then runs bench_connectivity on the same mesh and prints one table.
Run with the system Python (it has Debian's python3-vtk9 and python3-numpy):
    bench/compare_connectivity.py build/bench/bench_connectivity
"""
import json
import subprocess
import sys
import time

import numpy as np
from vtkmodules.util import numpy_support
from vtkmodules.vtkCommonCore import vtkPoints
from vtkmodules.vtkCommonDataModel import VTK_TETRA, vtkCellArray, vtkUnstructuredGrid
from vtkmodules.vtkFiltersGeometry import vtkDataSetSurfaceFilter

N = 55
PERMS = [(0, 1, 2), (1, 2, 0), (2, 0, 1), (0, 2, 1), (2, 1, 0), (1, 0, 2)]


def tetra_cube(n):
    """The cube split around each cell's main diagonal, as tests/connectivity/grid_meshes.h."""
    i, j, k = np.meshgrid(np.arange(n), np.arange(n), np.arange(n), indexing="ij")
    base = np.stack([i.ravel("F"), j.ravel("F"), k.ravel("F")], axis=1)
    tets = []
    for p, perm in enumerate(PERMS):
        x = base.copy()
        nodes = [x.copy()]
        for s in range(3):
            x[:, perm[s]] += 1
            nodes.append(x.copy())
        if p >= 3:
            nodes[2], nodes[3] = nodes[3], nodes[2]
        tets.append(np.stack([a[:, 0] + (n + 1) * (a[:, 1] + (n + 1) * a[:, 2]) for a in nodes], 1))
    conn = np.stack(tets, axis=1).reshape(-1, 4)
    g = np.arange(n + 1, dtype=float)
    pts = np.stack(np.meshgrid(g, g, g, indexing="ij"), -1).transpose(2, 1, 0, 3).reshape(-1, 3)
    return pts, conn


def best_of(fn, repeat=3):
    times = []
    for _ in range(repeat):
        t0 = time.perf_counter()
        fn()
        times.append(time.perf_counter() - t0)
    return min(times)


def main():
    bench = sys.argv[1] if len(sys.argv) > 1 else "build/bench/bench_connectivity"
    pts, conn = tetra_cube(N)
    points = vtkPoints()
    points.SetData(numpy_support.numpy_to_vtk(pts, deep=True))
    cells = vtkCellArray()
    offsets = np.arange(0, 4 * len(conn) + 1, 4, dtype=np.int64)
    cells.SetData(numpy_support.numpy_to_vtkIdTypeArray(offsets, deep=True),
                  numpy_support.numpy_to_vtkIdTypeArray(conn.ravel().astype(np.int64), deep=True))
    grid = vtkUnstructuredGrid()
    grid.SetPoints(points)
    grid.SetCells(VTK_TETRA, cells)

    def surface():
        f = vtkDataSetSurfaceFilter()
        f.SetInputData(grid)
        f.Update()
        return f.GetOutput().GetNumberOfCells()

    def links():
        grid.BuildLinks()

    rows = [("VTK vtkDataSetSurfaceFilter (free faces)", best_of(surface)),
            ("VTK BuildLinks (node-to-cell lists)", best_of(links))]
    out = subprocess.run([bench, "--benchmark_filter=(get_neighbors|get_mesh_boundaries|"
                          "get_connected_elements|sort_reference)/0/",
                          "--benchmark_min_warmup_time=0.3", "--benchmark_format=json"],
                         check=True, capture_output=True, text=True).stdout
    for b in json.loads(out)["benchmarks"]:
        rows.append((b["name"], b["real_time"] / 1e3 if b["time_unit"] == "ms" else b["real_time"]))
    print(f"{len(conn)} tetrahedra, {surface()} free faces in VTK's surface")
    print(f"| {'job':<48} | wall time (s) |")
    print(f"|{'-' * 50}|{'-' * 15}|")
    for name, t in rows:
        print(f"| {name:<48} | {t:13.3f} |")


if __name__ == "__main__":
    main()
