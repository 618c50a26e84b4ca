#!/usr/bin/env python3
"""Side by side: our readers (bench_io_readers) and meshio reading the same files.

usage: compare_readers.py <path to bench_io_readers> [meshio repetitions, default 1]

The benchmark program writes the files (into $MESHUTIL_BENCH_DIR, default
/tmp/meshutil_bench_readers; cube side $MESHUTIL_BENCH_N, default 100 = 1M nodes) and times
our readers; this script then times meshio.read on the very same files and prints one table.
meshio has no FEMAP neutral reader: that row shows ours only. Times are CPU seconds per read
(the development machines are shared 2-core VMs whose wall times depend on other work).

Figures, 2-core development VM (load about 12), n = 100 (1M nodes, 5.8M tetrahedra), files
written by medit_output, NASTRAN_output, WavefrontOBJ_output (1M-node triangulated square)
and FEMAP_output (125k-node cube), meshio 5.0.0:

    format     file MB   elements  ours CPU s meshio CPU s  speed-up
    nastran      358.5    5821794       2.500      49.281     19.7x
    medit        220.1    5821794       0.518       2.950      5.7x
    obj           99.0    1996002       0.247       9.438     38.2x
    femap        115.7     705894       0.329           -         -
"""
import glob
import json
import os
import subprocess
import sys
import time

bench = sys.argv[1]
reps = int(sys.argv[2]) if len(sys.argv) > 2 else 1
out = subprocess.run([bench, "--benchmark_format=json"], check=True, capture_output=True,
                     text=True).stdout
ours = {b["name"].split("/")[0]: b for b in json.loads(out)["benchmarks"]}

directory = os.environ.get("MESHUTIL_BENCH_DIR", "/tmp/meshutil_bench_readers")
side = os.environ.get("MESHUTIL_BENCH_N", "100")
files = {"read_nastran": ("nastran", "cube_%s.nas" % side),
         "read_medit": ("medit", "cube_%s.mesh" % side),
         "read_obj": ("obj", "cube_%s.obj" % side),
         "read_femap": (None, "cube_%s.neu" % side)}

try:
    import meshio
except ImportError:
    meshio = None

print("%-8s %9s %10s %11s %11s %9s" % ("format", "file MB", "elements", "ours CPU s",
                                       "meshio CPU s", "speed-up"))
for name, (fmt, fname) in files.items():
    b = ours[name]
    path = os.path.join(directory, fname)
    mb = os.path.getsize(path) / 1e6
    t_ours = b["cpu_time"] / 1e3  # CPU milliseconds per read (the machine is shared)
    t_meshio = None
    if meshio is not None and fmt is not None:
        best = None
        for _ in range(reps):
            t0 = time.process_time()
            meshio.read(path, file_format=fmt)
            dt = time.process_time() - t0
            best = dt if best is None else min(best, dt)
        t_meshio = best
    print("%-8s %9.1f %10d %11.3f %11s %9s" % (
        name[5:], mb, int(b.get("elements", 0)), t_ours,
        "-" if t_meshio is None else "%.3f" % t_meshio,
        "-" if t_meshio is None else "%.1fx" % (t_meshio / t_ours)))
