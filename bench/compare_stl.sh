#!/usr/bin/env bash
# Side by side: reading the closed tori of bench_stl (250k, 1M, 2M triangles; binary, and the 1M
# text file) with STL_input, with a plain read-and-hash-merge reference, with admesh (exact facet
# matching), meshio and VTK's STL reader with point merging. Prints CPU seconds of the read
# alone (the python tools are timed inside the interpreter, admesh as a whole process) and the
# number of unique points each tool ends with, which must agree.
#
#   bench/compare_stl.sh [build dir with bench/bench_stl] [file dir]
# Needs: bench/setup.sh run once (admesh, python3-meshio, python3-vtk9).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}
dir=${2:-${STL_BENCH_DIR:-/tmp/meshutil_stl_bench}}
bench=$build/bench/bench_stl
python=/usr/bin/python3
[[ -x $python ]] || python=python3
[[ -x $bench ]] || { echo "no $bench: configure with -DMESHUTIL_BUILD_BENCH=ON and build"; exit 1; }
"$bench" --write "$dir"

"$python" - "$bench" "$dir" <<'EOF'
import os, resource, subprocess, sys, time
bench, d = sys.argv[1], sys.argv[2]

def ours(flag, path):
    cpu, nodes, tris = subprocess.run([bench, flag, path], check=True, capture_output=True,
                                      text=True).stdout.split()
    return float(cpu), int(nodes)

def admesh(path):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(["admesh", "--exact", path], check=True, capture_output=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime
    off = os.path.join(d, "admesh.off")
    subprocess.run(["admesh", "--exact", "--write-off=" + off, path], check=True,
                   capture_output=True)
    with open(off) as f:
        f.readline()
        nodes = int(f.readline().split()[0])
    os.remove(off)
    return cpu, nodes

def in_python(code, path):
    # A fresh interpreter per measurement: the import is not timed, the read alone is.
    script = "import sys, time\n" + code + """
t0 = time.process_time()
n = read(sys.argv[1])
print(time.process_time() - t0, n)
"""
    cpu, nodes = subprocess.run([sys.executable, "-c", script, path], check=True,
                                capture_output=True, text=True).stdout.split()
    return float(cpu), int(nodes)

meshio_code = """import meshio
def read(p): return len(meshio.read(p, file_format="stl").points)
"""
vtk_code = """from vtkmodules.vtkIOGeometry import vtkSTLReader
def read(p):
    r = vtkSTLReader(); r.SetFileName(p); r.MergingOn(); r.Update()
    return r.GetOutput().GetNumberOfPoints()
"""

files = [("binary", 250000), ("binary", 1000000), ("binary", 2000000), ("text", 1000000)]
tools = [("STL_input", lambda p: ours("--read", p)),
         ("hash-merge reference", lambda p: ours("--reference", p)),
         ("admesh --exact", admesh),
         ("meshio", lambda p: in_python(meshio_code, p)),
         ("VTK vtkSTLReader, merging", lambda p: in_python(vtk_code, p))]
print(f"{'file':<16}{'tool':<28}{'CPU s':>8}{'points':>10}")
ok = True
for form, n in files:
    path = os.path.join(d, f"torus_{n}" + (".txt.stl" if form == "text" else ".stl"))
    counts = set()
    for name, run in tools:
        if name == "hash-merge reference" and form == "text":
            continue
        cpu, nodes = run(path)
        counts.add(nodes)
        print(f"{form + ' ' + str(n // 1000) + 'k':<16}{name:<28}{cpu:>8.3f}{nodes:>10}")
    if len(counts) != 1:
        ok = False
        print(f"  MISMATCH: the tools end with different point counts {sorted(counts)}")
sys.exit(0 if ok else 1)
EOF
