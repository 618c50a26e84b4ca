#!/usr/bin/env python3
"""Side by side: our mesh writers against meshio (.mesh, .vtk, .nas) and VTK's legacy
unstructured-grid writer in ASCII, on the same structured cube of 101^3 nodes split into 5M
tetrahedra (5 per cell, alternating with the cell parity; the cube spans [1, 2]^3, coordinates
jittered so that every number has its full digits; positive, since meshio's NASTRAN writer fails
on a negative number with a two-digit exponent), all writing real files in the same directory.

usage: compare_io_writers.py path/to/bench_io_writers [cells_per_edge=100] [directory=/tmp]

Our figures come from the benchmark program (its file-writing cases); the yardsticks are timed
here, once each. Prints one table of wall-clock seconds and MB/s."""

import json
import os
import subprocess
import sys
import time

import numpy as np


def cube(n):
    p = n + 1
    rng = np.random.default_rng(20261122)
    k, j, i = np.meshgrid(np.arange(p), np.arange(p), np.arange(p), indexing="ij")
    pts = np.stack([i.ravel(), j.ravel(), k.ravel()], axis=1).astype(float)
    pts = 1.0 + (pts + (rng.random(pts.shape) - 0.5) * 0.3) / n
    ck, cj, ci = np.meshgrid(np.arange(n), np.arange(n), np.arange(n), indexing="ij")
    ci, cj, ck = ci.ravel(), cj.ravel(), ck.ravel()
    corners = np.stack([(ci + (c & 1)) + p * ((cj + ((c >> 1) & 1)) + p * (ck + (c >> 2)))
                        for c in range(8)], axis=1)
    even = np.array([[0, 1, 3, 5], [0, 3, 2, 6], [0, 5, 4, 6], [3, 5, 6, 7], [0, 3, 5, 6]])
    odd = np.array([[1, 0, 2, 4], [1, 2, 3, 7], [1, 4, 5, 7], [2, 4, 7, 6], [1, 2, 4, 7]])
    parity = ((ci + cj + ck) & 1).astype(bool)
    tets = np.where(parity[:, None, None], corners[:, odd], corners[:, even]).reshape(-1, 4)
    return pts, tets


def timed(fn, path):
    t0 = time.perf_counter()
    fn(path)
    dt = time.perf_counter() - t0
    size = os.path.getsize(path)
    os.remove(path)
    return dt, size


def main():
    bench = sys.argv[1]
    n = int(sys.argv[2]) if len(sys.argv) > 2 else 100
    d = sys.argv[3] if len(sys.argv) > 3 else "/tmp"
    pts, tets = cube(n)
    print(f"mesh: {len(pts)} nodes, {len(tets)} tetrahedra; files in {d}")

    rows = {}
    try:
        import meshio
        mesh = meshio.Mesh(pts, [("tetra", tets)])
        rows["medit (.mesh)"] = [("meshio", *timed(lambda f: meshio.write(f, mesh, "medit"),
                                                    os.path.join(d, "cmp.mesh")))]
        rows["legacy VTK (.vtk)"] = [("meshio", *timed(
            lambda f: meshio.write(f, mesh, "vtk", binary=False), os.path.join(d, "cmp.vtk")))]
        rows["NASTRAN (.nas)"] = [("meshio", *timed(lambda f: meshio.write(f, mesh, "nastran"),
                                                     os.path.join(d, "cmp.nas")))]
    except ImportError:
        print("meshio not available")
    try:
        from vtkmodules.util.numpy_support import numpy_to_vtk, numpy_to_vtkIdTypeArray
        from vtkmodules.vtkCommonCore import vtkPoints
        from vtkmodules.vtkCommonDataModel import VTK_TETRA, vtkCellArray, vtkUnstructuredGrid
        from vtkmodules.vtkIOLegacy import vtkUnstructuredGridWriter

        points = vtkPoints()
        points.SetData(numpy_to_vtk(pts, deep=True))
        cells = vtkCellArray()
        offsets = np.arange(0, 4 * len(tets) + 1, 4, dtype=np.int64)
        cells.SetData(numpy_to_vtkIdTypeArray(offsets, deep=True),
                      numpy_to_vtkIdTypeArray(tets.astype(np.int64).ravel(), deep=True))
        grid = vtkUnstructuredGrid()
        grid.SetPoints(points)
        grid.SetCells(VTK_TETRA, cells)

        def vtk_write(f):
            w = vtkUnstructuredGridWriter()
            w.SetFileName(f)
            w.SetFileTypeToASCII()
            w.SetInputData(grid)
            w.Write()

        rows.setdefault("legacy VTK (.vtk)", []).append(
            ("VTK", *timed(vtk_write, os.path.join(d, "cmp_vtk.vtk"))))
    except ImportError:
        print("VTK not available")

    env = dict(os.environ, TMPDIR=d, MESHUTIL_BENCH_CELLS=str(n))
    out = subprocess.run([bench, "--benchmark_filter=/0/", "--benchmark_format=json"],
                         capture_output=True, text=True, env=env, check=True).stdout
    ours = {}
    for b in json.loads(out)["benchmarks"]:
        name = b["name"].split("/")[0]
        ours[name] = (b["real_time"], b["cpu_time"], b.get("MB", 0.0))
    keys = {"medit (.mesh)": "medit", "legacy VTK (.vtk)": "vtk", "NASTRAN (.nas)": "nastran",
            "EnSight (.geo)": "ensight"}

    print(f"\n| format | ours (s, wall / cpu) | ours MB/s | yardsticks (s, MB/s) | fastest / ours |")
    print("|---|---|---|---|---|")
    for fmt, key in keys.items():
        real, cpu, mb = ours.get(key, (float("nan"),) * 3)
        others = rows.get(fmt, [])
        cells = ", ".join(f"{tool} {t:.2f} s, {s / 1e6 / t:.0f} MB/s" for tool, t, s in others)
        ratio = f"{min(t for _, t, _ in others) / real:.1f}x" if others else "-"
        print(f"| {fmt} | {real:.2f} / {cpu:.2f} | {mb / real:.0f} | {cells or '-'} | {ratio} |")


if __name__ == "__main__":
    main()
