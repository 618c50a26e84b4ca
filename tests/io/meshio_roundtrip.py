"""Reads the medit, legacy VTK and NASTRAN files written by roundtrip_writer with meshio (and the
complete VTK file with VTK's own reader when it is installed) and compares node coordinates, to
the printed precision, and element connectivities by cell type with what the writers were given.
The expected cells are derived here, independently, from the node orders of each format.
Exit code 77 (skipped) when meshio or numpy cannot be imported."""

import os
import subprocess
import sys
import tempfile

try:
    import meshio
    import numpy as np
except ImportError:
    print("meshio not available: skipped")
    sys.exit(77)

U = 4294967295
(EDGE2, EDGE3, FACE_MIX, TRIA3, QUAD4, TRIA6, QUAD8, QUAD9, SOLID_MIX, TETRA4, TETRA10, PYRAM5,
 PYRAM14, PENTA6, PENTA18, HEXA8, HEXA20, HEXA27) = (3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
                                                      16, 17, 18, 19, 20)
failures = []


def check(cond, what):
    if not cond:
        failures.append(what)


def read_input(path):
    with open(path) as f:
        lines = [l.split() for l in f]
    it = iter(lines)
    n = int(next(it)[1])
    pos = np.array([[float(v) for v in next(it)] for _ in range(n)])
    sets = {}
    for _ in range(3):
        name, count = next(it)
        mats = []
        for _ in range(int(count)):
            t, rows, cols = map(int, next(it))
            cols_data = [list(map(int, next(it))) for _ in range(cols)]
            mats.append((t, rows, cols_data))
        sets[name] = mats
    _, n1, n2 = next(it)
    groups = ([tuple(map(int, next(it))) for _ in range(int(n1))],
              [tuple(map(int, next(it))) for _ in range(int(n2))])
    return pos, sets, groups


def shape(t, col):
    """The plain shape of one column of type t (mixed columns by their undefined rows)."""
    if t == FACE_MIX:
        return TRIA3 if len(col) > 3 and col[3] == U else (QUAD4 if len(col) > 3 else TRIA3)
    if t == SOLID_MIX:
        for row, s in ((4, TETRA4), (5, PYRAM5), (6, PENTA6)):
            if col[row] == U:
                return s
        return HEXA8
    return t


# Format rules, per plain type: (cell type name, local nodes in file order).
MEDIT = {EDGE2: ("line", [0, 1]), EDGE3: ("line", [0, 1]),
         TRIA3: ("triangle", [0, 1, 2]), TRIA6: ("triangle", [0, 1, 2]),
         QUAD4: ("quad", [0, 1, 2, 3]), QUAD8: ("quad", [0, 1, 2, 3]),
         QUAD9: ("quad", [0, 1, 2, 3]),
         TETRA4: ("tetra", [0, 1, 2, 3]), TETRA10: ("tetra", [0, 1, 2, 3]),
         PYRAM5: ("hexahedron", [0, 1, 2, 3, 4, 4, 4, 4]),
         PYRAM14: ("hexahedron", [0, 1, 2, 3, 4, 4, 4, 4]),
         PENTA6: ("hexahedron", [0, 1, 2, 2, 3, 4, 5, 5]),
         PENTA18: ("hexahedron", [0, 1, 2, 2, 3, 4, 5, 5]),
         HEXA8: ("hexahedron", list(range(8))), HEXA20: ("hexahedron", list(range(8))),
         HEXA27: ("hexahedron", list(range(8)))}
VTK_LINEAR = {EDGE2: ("line", 3, [0, 1]), TRIA3: ("triangle", 5, [0, 1, 2]),
              QUAD4: ("quad", 9, [0, 1, 2, 3]), TETRA4: ("tetra", 10, [0, 1, 3, 2]),
              PYRAM5: ("pyramid", 14, [0, 1, 2, 3, 4]), PENTA6: ("wedge", 13, list(range(6))),
              HEXA8: ("hexahedron", 12, list(range(8)))}
# meshio reads VTK wedges with their first and second triangles reversed.
MESHIO_VTK = {"wedge": [0, 2, 1, 3, 5, 4]}
VTK_BASE = {EDGE3: EDGE2, TRIA6: TRIA3, QUAD8: QUAD4, QUAD9: QUAD4, TETRA10: TETRA4,
            PYRAM14: PYRAM5, PENTA18: PENTA6, HEXA20: HEXA8, HEXA27: HEXA8}
# NASTRAN card order, then meshio's own reordering of its quadratic solids.
HEXA20_ORDER = list(range(12)) + [16, 17, 18, 19, 12, 13, 14, 15]
NASTRAN = {EDGE2: ("line", [0, 1]), EDGE3: ("line", [0, 1]),
           TRIA3: ("triangle", [0, 1, 2]), QUAD4: ("quad", [0, 1, 2, 3]),
           TRIA6: ("triangle6", [0, 1, 2, 5, 3, 4]),
           QUAD8: ("quad8", list(range(8))), QUAD9: ("quad8", list(range(8))),
           TETRA4: ("tetra", [0, 2, 1, 3]),
           TETRA10: ("tetra10", [0, 2, 1, 3, 5, 4, 6, 7, 9, 8]),
           PYRAM5: ("pyramid", [0, 1, 2, 3, 4]), PENTA6: ("wedge", list(range(6))),
           PENTA18: ("wedge15", [0, 1, 2, 3, 4, 5, 11, 9, 10, 6, 7, 8, 14, 12, 13]),
           HEXA8: ("hexahedron", list(range(8))),
           HEXA20: ("hexahedron20", HEXA20_ORDER), HEXA27: ("hexahedron20", HEXA20_ORDER)}
MESHIO_NASTRAN = {"wedge15": [0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 13, 14, 9, 10, 11],
                  "hexahedron20": HEXA20_ORDER}


def add(expected, name, cell):
    expected.setdefault(name, []).append(tuple(cell))


def compare_cells(label, got_blocks, expected):
    got = {}
    for block in got_blocks:
        for c in block.data.tolist():
            got.setdefault(block.type, []).append(tuple(c))
    check(sorted(got) == sorted(expected), f"{label}: cell types {sorted(got)} != {sorted(expected)}")
    for name in expected:
        check(sorted(got.get(name, [])) == sorted(expected[name]),
              f"{label}: {name} cells differ")


def compare_points(label, points, pos, rel, absolute):
    check(points.shape == pos.shape, f"{label}: points shape {points.shape}")
    if points.shape == pos.shape:
        err = np.abs(points - pos) - (rel * np.abs(pos) + absolute)
        check(np.all(err <= 0), f"{label}: coordinates off by up to {np.max(err)} beyond tolerance")


def main():
    writer = sys.argv[1]
    with tempfile.TemporaryDirectory() as d:
        subprocess.check_call([writer, d])
        pos, sets, groups = read_input(os.path.join(d, "roundtrip_input.txt"))
        print_precision = 5.0000001e-7  # "%E": 7 significant digits; "%f": 6 decimals

        # medit: every type, mixed ones split, pyramids and wedges as collapsed hexahedra.
        m = meshio.read(os.path.join(d, "rt.mesh"))
        compare_points("medit", m.points, pos, print_precision, 1e-300)
        expected = {}
        for t, rows, cols in sets["all"]:
            for col in cols:
                name, nodes = MEDIT[shape(t, col)]
                add(expected, name, [col[i] for i in nodes])
        compare_cells("medit", m.cells, expected)

        # Legacy VTK, linear types, through meshio.
        m = meshio.read(os.path.join(d, "rt_linear.vtk"))
        compare_points("vtk", m.points, pos, 0.0, print_precision)
        expected = {}
        for t, rows, cols in sets["linear"]:
            for col in cols:
                name, code, nodes = VTK_LINEAR[shape(t, col)]
                cell = [col[i] for i in nodes]
                if name in MESHIO_VTK:
                    cell = [cell[i] for i in MESHIO_VTK[name]]
                add(expected, name, cell)
        compare_cells("vtk", m.cells, expected)

        # Legacy VTK, every type (poly-vertex cells included), through VTK's reader if present.
        try:
            from vtkmodules.vtkIOLegacy import vtkUnstructuredGridReader
        except ImportError:
            vtkUnstructuredGridReader = None
        if vtkUnstructuredGridReader is not None:
            r = vtkUnstructuredGridReader()
            r.SetFileName(os.path.join(d, "rt_all.vtk"))
            r.Update()
            grid = r.GetOutput()
            pts = np.array([grid.GetPoint(i) for i in range(grid.GetNumberOfPoints())])
            compare_points("vtk reader", pts, pos, 0.0, print_precision)
            got = sorted((grid.GetCellType(i),
                          tuple(grid.GetCell(i).GetPointId(k)
                                for k in range(grid.GetCell(i).GetNumberOfPoints())))
                         for i in range(grid.GetNumberOfCells()))
            want = []
            for t, rows, cols in sets["all"]:
                for col in cols:
                    s = shape(t, col)
                    base = VTK_BASE.get(s, s)
                    _, code, nodes = VTK_LINEAR[base]
                    want.append((code, tuple(col[i] for i in nodes)))
                    if len(col) > len(nodes) and s not in (FACE_MIX, SOLID_MIX) and t == s:
                        want.append((2, tuple(col[len(nodes):])))
            check(got == sorted(want), "vtk reader: cells differ")

        # NASTRAN: groups of one matrix, and mixed face and solid groups.
        for file, matrix, group in (("rt_groups.nas", sets["nastran"][0], groups[0]),
                                    ("rt_mixed.nas", sets["nastran"][1], groups[1])):
            m = meshio.read(os.path.join(d, file))
            compare_points(file, m.points, pos, print_precision, 1e-300)
            cols = matrix[2]
            expected = {}
            for t, j0, j1 in group:
                for col in cols[j0:j1]:
                    name, nodes = NASTRAN[shape(t, col)]
                    cell = [col[i] for i in nodes]
                    if name in MESHIO_NASTRAN:
                        cell = [cell[i] for i in MESHIO_NASTRAN[name]]
                    add(expected, name, cell)
            compare_cells(file, m.cells, expected)

    for f in failures:
        print("FAIL:", f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
