#!/usr/bin/python3
"""Shape qualities side by side: VTK's mesh-quality filter (python3-vtk9, Shape measure) and our
shape_qualities, on the same meshes (the ones bench_quality.cpp generates: 998,250 tetrahedra and
1,000,000 hexahedra of a perturbed unit cube, 999,698 triangles of a wavy surface). The
hexahedra are timed twice on our side: as an EL_HEXA8 matrix and as an EL_SOLID_MIX one.

Usage: bench/compare_quality.py [path/to/bench_quality]   (default build-bench/bench/bench_quality)

VTK is timed on vtkMeshQuality.Update() alone (the grid is built beforehand), best of 5, CPU
time; ours is the CPU time per iteration that Google Benchmark reports for the same meshes. The
measures differ (VTK's Shape is a Jacobian-based measure, ours the measures of this library), both
map the ideal element to 1.
"""
import json
import subprocess
import sys
import time

import numpy as np
import vtk
from vtk.util import numpy_support


def grid_nodes(n):
    """Perturbed grid of the unit cube, node (i, j, k) at i + (n+1) (j + (n+1) k)."""
    m = n + 1
    h = 1.0 / n
    k, j, i = np.meshgrid(np.arange(m), np.arange(m), np.arange(m), indexing="ij")
    i, j, k = i.ravel().astype(float), j.ravel().astype(float), k.ravel().astype(float)
    inner = (i > 0) & (j > 0) & (k > 0) & (i < n) & (j < n) & (k < n)
    a = np.where(inner, 0.2 * h, 0.0)
    x = i * h + a * np.sin(1.3 * i + 2.1 * j + 0.7 * k)
    y = j * h + a * np.sin(0.9 * i + 1.7 * j + 2.9 * k)
    z = k * h + a * np.sin(2.3 * i + 0.5 * j + 1.1 * k)
    return np.column_stack([x, y, z])


def cell_corners(n):
    """(n^3, 8) corners of the cells, bottom 0-3 counter-clockwise, top 4-7."""
    m = n + 1
    k, j, i = np.meshgrid(np.arange(n), np.arange(n), np.arange(n), indexing="ij")
    base = (i + m * (j + m * k)).ravel()
    dx = np.array([0, 1, 1, 0, 0, 1, 1, 0])
    dy = np.array([0, 0, 1, 1, 0, 0, 1, 1])
    dz = np.array([0, 0, 0, 0, 1, 1, 1, 1])
    return base[:, None] + dx + m * (dy + m * dz)


def tetrahedra(n):
    # The six tetrahedra of bench_quality.cpp with their first two nodes swapped: VTK orients a
    # tetrahedron the other way round.
    tets = np.array([[0, 1, 2, 6], [0, 2, 3, 6], [0, 3, 7, 6], [0, 7, 4, 6], [0, 4, 5, 6], [0, 5, 1, 6]])
    c = cell_corners(n)
    return c[:, tets].reshape(-1, 4)


def wavy_surface(n):
    m = n + 1
    j, i = np.meshgrid(np.arange(m), np.arange(m), indexing="ij")
    x, y = i.ravel() / n, j.ravel() / n
    pts = np.column_stack([x, y, 0.1 * np.sin(3.0 * x) * np.cos(2.0 * y)])
    jj, ii = np.meshgrid(np.arange(n), np.arange(n), indexing="ij")
    a = (ii + m * jj).ravel()
    t1 = np.column_stack([a, a + 1, a + m + 1])
    t2 = np.column_stack([a, a + m + 1, a + m])
    return pts, np.stack([t1, t2], axis=1).reshape(-1, 3)


def vtk_grid(points, cells, cell_type):
    grid = vtk.vtkUnstructuredGrid()
    p = vtk.vtkPoints()
    p.SetData(numpy_support.numpy_to_vtk(np.ascontiguousarray(points), deep=1))
    grid.SetPoints(p)
    nv = cells.shape[1]
    flat = np.hstack([np.full((cells.shape[0], 1), nv), cells]).astype(np.int64).ravel()
    ca = vtk.vtkCellArray()
    ca.SetCells(cells.shape[0], numpy_support.numpy_to_vtkIdTypeArray(flat, deep=1))
    grid.SetCells(cell_type, ca)
    return grid


def time_vtk(grid, kind):
    best = float("inf")
    mean = 0.0
    for _ in range(5):
        f = vtk.vtkMeshQuality()
        f.SetInputData(grid)
        getattr(f, "Set%sQualityMeasureToShape" % kind)()
        t0 = time.process_time()
        f.Update()
        best = min(best, time.process_time() - t0)
        q = numpy_support.vtk_to_numpy(f.GetOutput().GetCellData().GetArray("Quality"))
        mean = float(q.mean())
    return best, mean


def main():
    exe = sys.argv[1] if len(sys.argv) > 1 else "build-bench/bench/bench_quality"
    out = subprocess.run(
        [exe, "--benchmark_filter=^(mixed_)?shape_", "--benchmark_format=json", "--benchmark_repetitions=5",
         "--benchmark_report_aggregates_only=false"],
        check=True, capture_output=True, text=True).stdout
    ours = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("run_type") == "iteration":
            name = b["run_name"]
            cpu = b["cpu_time"] / 1000.0  # ms -> s
            ours[name] = min(ours.get(name, float("inf")), cpu)

    rows = []
    pts = grid_nodes(55)
    rows.append(("tetrahedra", 6 * 55 ** 3, "shape_tetrahedra",
                 time_vtk(vtk_grid(pts, tetrahedra(55), vtk.VTK_TETRA), "Tet")))
    pts = grid_nodes(100)
    hexa = time_vtk(vtk_grid(pts, cell_corners(100), vtk.VTK_HEXAHEDRON), "Hex")
    rows.append(("hexahedra", 100 ** 3, "shape_hexahedra", hexa))
    # The same hexahedra passed to us as a mixed solid matrix.
    rows.append(("hexahedra, mixed", 100 ** 3, "mixed_shape_hexahedra", hexa))
    pts, tris = wavy_surface(707)
    rows.append(("triangles in space", len(tris), "shape_triangles_in_space",
                 time_vtk(vtk_grid(pts, tris, vtk.VTK_TRIANGLE), "Triangle")))

    print("%-20s %10s %12s %12s %8s %10s" % ("mesh", "elements", "VTK (s)", "ours (s)", "ratio",
                                             "VTK mean q"))
    for name, count, bench, (t_vtk, mean) in rows:
        t_ours = ours.get(bench, float("nan"))
        print("%-20s %10d %12.4f %12.4f %7.1fx %10.4f" % (name, count, t_vtk, t_ours,
                                                          t_vtk / t_ours, mean))


if __name__ == "__main__":
    main()
