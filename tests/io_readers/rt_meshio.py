"""Round trips between meshio and our readers/writers.

usage: rt_meshio.py <readers_tool> <obj|medit|nastran> <output dir>

meshio writes a small random mesh; readers_tool reads it with our reader and prints it; the
nodes and elements must match what meshio wrote. For OBJ, our writer also writes the mesh back
and meshio must read the same mesh from it. Exit 77 when meshio is not available.
"""
import os
import subprocess
import sys

try:
    import meshio
    import numpy as np
except ImportError:
    print("meshio or numpy not available: skipped")
    sys.exit(77)

tool, fmt, out = sys.argv[1], sys.argv[2], sys.argv[3]
os.makedirs(out, exist_ok=True)
rng = np.random.default_rng(5)
n = 40
points = rng.uniform(-10.0, 10.0, (n, 3)) * 10.0 ** rng.integers(-3, 4, (n, 1))
if fmt == "nastran":
    points = rng.uniform(-10.0, 10.0, (n, 3)).round(5)  # within meshio's 16-column format


def cells_of(kind, count, nodes):
    return np.array([rng.choice(n, nodes, replace=False) for _ in range(count)], dtype=np.int64)


if fmt == "obj":
    cells = [("triangle", cells_of("triangle", 7, 3)), ("quad", cells_of("quad", 5, 4))]
    ext, rel_tol = ".obj", 0.0
elif fmt == "medit":
    cells = [("line", cells_of("line", 3, 2)), ("triangle", cells_of("triangle", 6, 3)),
             ("tetra", cells_of("tetra", 6, 4)), ("hexahedron", cells_of("hexahedron", 2, 8))]
    ext, rel_tol = ".mesh", 0.0
else:
    cells = [("tetra", cells_of("tetra", 5, 4)), ("triangle", cells_of("triangle", 3, 3)),
             ("quad", cells_of("quad", 3, 4)), ("hexahedron", cells_of("hexahedron", 2, 8)),
             ("line", cells_of("line", 2, 2)), ("tetra10", cells_of("tetra10", 2, 10)),
             ("wedge", cells_of("wedge", 2, 6)), ("pyramid", cells_of("pyramid", 2, 5))]
    ext, rel_tol = ".nas", 1e-7
mesh = meshio.Mesh(points, cells)
if fmt == "medit":
    mesh.cell_data["medit:ref"] = [np.arange(len(c[1])) + 10 * k for k, c in enumerate(cells)]
path = os.path.join(out, "rt_meshio_" + fmt + ext)
meshio.write(path, mesh)


def dump(path):
    text = subprocess.run([tool, "dump", fmt, path], check=True, capture_output=True,
                          text=True).stdout.splitlines()
    count = int(text[0].split()[1])
    pts = np.array([[float(v) for v in line.split()] for line in text[1:1 + count]])
    elements = {}
    for line in text[1 + count:]:
        words = line.split()
        elements.setdefault(words[0], []).append(([int(v) for v in words[2:]], int(words[1])))
    return pts, elements


def check(pts, elements, expected_cells, rel):
    assert pts.shape == points.shape, (pts.shape, points.shape)
    err = np.abs(pts - points).max() / np.abs(points).max()
    assert err <= rel, "coordinates differ by %g" % err
    for kind, data in expected_cells:
        got = [e[0] for e in elements.get(kind, [])]
        assert got == data.tolist(), (kind, got, data.tolist())
    assert sum(len(v) for v in elements.values()) == sum(len(c[1]) for c in expected_cells)


pts, elements = dump(path)
check(pts, elements, cells, rel_tol)
if fmt == "medit":
    for k, (kind, data) in enumerate(cells):
        refs = [e[1] for e in elements[kind]]
        assert refs == mesh.cell_data["medit:ref"][k].tolist(), (kind, refs)

if fmt == "obj":
    # Our writer, then meshio reads: the same nodes (bit for bit) and faces.
    back = os.path.join(out, "rt_meshio_back.obj")
    subprocess.run([tool, "convert", "obj", path, back], check=True)
    m = meshio.read(back)
    assert np.array_equal(m.points, points)
    got = [(c.type, c.data.tolist()) for c in m.cells]
    assert got == [(k, d.tolist()) for k, d in cells], got
print("ok:", fmt)
