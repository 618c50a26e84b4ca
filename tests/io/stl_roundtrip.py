#!/usr/bin/env python3
"""STL round trips through external tools.

usage: stl_roundtrip.py <stl_roundtrip program> <work dir>

1. Files written by STL_output (text and binary) are read by meshio: the triangles' corners are
   the written coordinates (to float32 or to the 7 printed digits) and the shared points are the
   mesh's nodes.
2. admesh reads the same files: every facet connected, one part, the torus volume, no edge or
   normal to fix; admesh writes them back (text and binary) and STL_input reads those.
3. meshio writes a perturbed torus (text and binary) and STL_input reads it.
Wherever both read the same file, STL_input and meshio give the same points in the same order
and the same triangles (their corners coincide exactly, so both merge the same way).
Exits 77 (skipped) when meshio or admesh is missing.
"""
import math
import os
import shutil
import subprocess
import sys

try:
    import meshio
    import numpy as np
except ImportError:
    print("meshio or numpy missing: skipped")
    sys.exit(77)

tool, work = sys.argv[1], sys.argv[2]
os.makedirs(work, exist_ok=True)
admesh = shutil.which("admesh")
if admesh is None:
    print("admesh missing: skipped")
    sys.exit(77)

failures = []


def check(condition, what):
    if not condition:
        failures.append(what)
        print("FAILED:", what)


def parse_mesh(lines):
    """Nodes and triangles from the helper's dump."""
    k = 0
    code = 0
    if lines[k].startswith("code"):
        code = int(lines[k].split()[1])
        k += 1
    n = int(lines[k].split()[1])
    pos = np.array([[float(x) for x in l.split()] for l in lines[k + 1 : k + 1 + n]]).reshape(n, 3)
    k += 1 + n
    t = int(lines[k].split()[1])
    tri = np.array([[int(x) for x in l.split()] for l in lines[k + 1 : k + 1 + t]], dtype=np.int64)
    return code, pos, tri.reshape(t, 3)


def run_tool(*args):
    out = subprocess.run([tool, *args], check=True, capture_output=True, text=True).stdout
    return parse_mesh(out.splitlines())


def same_as_meshio(path, what):
    """STL_input and meshio read path to the same points and triangles."""
    code, pos, tri = run_tool("read", path)
    check(code == 0, f"{what}: STL_input code {code}")
    m = meshio.read(path, file_format="stl")
    ref_tri = m.get_cells_type("triangle")
    check(pos.shape == m.points.shape, f"{what}: {pos.shape[0]} nodes, meshio {m.points.shape[0]}")
    check(tri.shape == ref_tri.shape, f"{what}: {tri.shape[0]} triangles, meshio {ref_tri.shape[0]}")
    if pos.shape == m.points.shape and tri.shape == ref_tri.shape:
        check(np.array_equal(pos, m.points.astype(np.float64)), f"{what}: points differ")
        check(np.array_equal(tri, ref_tri), f"{what}: triangles differ")
    return pos, tri


def admesh_report(path):
    out = subprocess.run([admesh, path], check=True, capture_output=True, text=True).stdout
    values = {}
    for line in out.splitlines():
        for key in ("Number of facets", "Total disconnected facets", "Number of parts",
                    "Facets reversed", "Normals fixed", "Edges fixed", "Degenerate facets"):
            if line.startswith(key):
                values[key] = line.split(":")[1].split()
        if "Volume" in line:
            values["Volume"] = float(line.split(":")[-1])
    return values


volume = 0.0
for form in ("text", "binary"):
    ours = os.path.join(work, f"ours_{form}.stl")
    _, ref_pos, ref_tri = run_tool("write", ours, form)
    # 1. meshio reads what we write.
    m = meshio.read(ours, file_format="stl")
    tri = m.get_cells_type("triangle")
    check(len(tri) == len(ref_tri), f"meshio reads {len(tri)} of {len(ref_tri)} {form} triangles")
    check(len(m.points) == len(ref_pos), f"meshio finds {len(m.points)} {form} points")
    if len(tri) == len(ref_tri):
        err = np.abs(m.points[tri].astype(np.float64) - ref_pos[ref_tri]).max()
        check(err < (3e-6 if form == "text" else 3e-7), f"{form} corners off by {err}")
    same_as_meshio(ours, f"our {form} file")
    # 2. admesh reads what we write, and writes files we read.
    report = admesh_report(ours)
    nbr = str(len(ref_tri))
    check(report.get("Number of facets") == [nbr, nbr], f"admesh {form}: {report}")
    for key in ("Total disconnected facets", "Facets reversed", "Edges fixed",
                "Degenerate facets"):
        check(report.get(key, ["?"])[0] == "0", f"admesh {form}: {key} {report.get(key)}")
    check(report.get("Number of parts", ["?"])[0] == "1", f"admesh {form}: parts")
    volume = report.get("Volume", 0.0)
    # The inscribed polyhedron of the torus of radii 3 and 1 (24 x 12 facets) holds about 96%
    # of 2 pi^2 R r^2 = 59.2.
    check(55.0 < volume < 59.3, f"admesh {form}: volume {volume}")
    for out_form, flag in (("text", "-a"), ("binary", "-b")):
        theirs = os.path.join(work, f"admesh_{form}_{out_form}.stl")
        subprocess.run([admesh, flag, theirs, ours], check=True, capture_output=True)
        pos, tri = same_as_meshio(theirs, f"admesh {out_form} file")
        check(len(tri) == len(ref_tri), f"admesh {out_form} file: {len(tri)} triangles")
        check(len(pos) == len(ref_pos), f"admesh {out_form} file: {len(pos)} nodes")

# 3. meshio writes, we read: a torus with its nodes moved at random (fixed seed).
nu, nv = 30, 10
u = np.repeat(np.arange(nu) * 2 * math.pi / nu, nv)
v = np.tile(np.arange(nv) * 2 * math.pi / nv, nu)
rng = np.random.default_rng(3)
r = 1.0 + 0.1 * rng.random(nu * nv)
points = np.column_stack([(4 + r * np.cos(v)) * np.cos(u), (4 + r * np.cos(v)) * np.sin(u),
                          r * np.sin(v)])
cells = []
for i in range(nu):
    for k in range(nv):
        a, b = i * nv + k, ((i + 1) % nu) * nv + k
        c, d = ((i + 1) % nu) * nv + (k + 1) % nv, i * nv + (k + 1) % nv
        cells += [[a, b, c], [a, c, d]]
mesh = meshio.Mesh(points, [("triangle", np.array(cells))])
for binary in (False, True):
    path = os.path.join(work, f"meshio_{'binary' if binary else 'text'}.stl")
    meshio.write(path, mesh, file_format="stl", binary=binary)
    pos, tri = same_as_meshio(path, f"meshio {'binary' if binary else 'text'} file")
    check(len(tri) == len(cells) and len(pos) == nu * nv, f"meshio file: {len(pos)} nodes")
    if len(tri) == len(cells):
        err = np.abs(pos[tri] - points[np.array(cells)]).max()
        check(err < (1e-15 if not binary else 1e-6), f"meshio file corners off by {err}")

print("STL round trips:", "FAILED" if failures else "passed")
sys.exit(1 if failures else 0)
