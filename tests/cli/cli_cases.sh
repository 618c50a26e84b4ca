#!/usr/bin/env bash
# Runs the built meshutil tool on generated files, one case per call:
#   cli_cases.sh MESHUTIL WORKDIR CASE
# Exit 0 when the case passes, 77 when the build lacks what the case needs (skipped), else 1.
set -uo pipefail
tool=$1
work=$2/$3
case_name=$3
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
# Under the sanitizers a report must not pass for an ordinary failure (status 1).
export ASAN_OPTIONS="${ASAN_OPTIONS:+$ASAN_OPTIONS:}exitcode=134"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:+$UBSAN_OPTIONS:}exitcode=134"

fail() {
    echo "FAIL [$case_name]: $*" >&2
    exit 1
}
skip() {
    echo "SKIP [$case_name]: $*"
    exit 77
}

# run EXPECTED_STATUS ARGS...: runs the tool, keeps stdout in out.txt and stderr in err.txt, and
# checks the exit status. A status above 128 (a signal: crash, sanitizer abort) always fails.
run() {
    local want=$1
    shift
    "$tool" "$@" > out.txt 2> err.txt
    local got=$?
    if ((got > 128)); then
        cat err.txt >&2
        fail "meshutil $* crashed (status $got)"
    fi
    if [[ $got != "$want" ]]; then
        cat out.txt err.txt >&2
        fail "meshutil $* exited with $got, expected $want"
    fi
}

contains() { # FILE TEXT
    grep -qF -- "$2" "$1" || {
        cat "$1" >&2
        fail "'$2' not found in $1"
    }
}

# Formats the build can read or write, from the table of the general help.
formats_table=$("$tool" --help | sed -n '/^formats:/,$p')
can_read() { grep -E "^  $1 " <<< "$formats_table" | grep -q 'read'; }
can_write() { grep -E "^  $1 " <<< "$formats_table" | grep -q 'write'; }
need_read() { can_read "$1" || skip "no $1 reader"; }
need_write() { can_write "$1" || skip "no $1 writer"; }
# need_command CMD ARGS...: skips when the build says the command is not available.
need_command() {
    "$tool" "$@" > /dev/null 2> probe.txt
    if grep -q 'not available in this build' probe.txt; then skip "$1 not in this build"; fi
}

# The value of a "key   value" line of info's text output.
info_value() { sed -n "s/^$1  *\([0-9][0-9]*\).*/\1/p" out.txt | head -n 1; }

json_ok() { # FILE: parses as JSON (when a python is at hand)
    local py
    py=$(command -v python3 || true)
    [[ -z $py ]] && return 0
    "$py" -c 'import json,sys; json.load(open(sys.argv[1]))' "$1" || fail "$1 is not valid JSON"
}

# Extension of a format name.
ext_of() {
    case $1 in
        medit) echo mesh ;; stl) echo stl ;; nastran) echo nas ;; obj) echo obj ;;
        femap) echo neu ;; vtk) echo vtk ;; ensight) echo geo ;;
    esac
}

case $case_name in
help)
    run 0 --help
    contains out.txt "usage: meshutil <command>"
    for c in info convert quality boundary sizes demo generate; do
        run 0 "$c" --help
        contains out.txt "usage: meshutil $c"
        run 0 help "$c"
        contains out.txt "usage: meshutil $c"
    done
    run 0 --version
    contains out.txt "meshutil 4.7.2.1"
    ;;
usage_errors)
    run 2 frobnicate
    contains err.txt "unknown command 'frobnicate'"
    run 2 info
    contains err.txt "missing argument"
    run 2 info a.mesh b.mesh
    contains err.txt "unexpected argument 'b.mesh'"
    run 2 info --bogus a.mesh
    contains err.txt "unknown option '--bogus'"
    run 2 convert a.stl
    contains err.txt "Try 'meshutil convert --help'"
    run 2 quality a.mesh --worst
    contains err.txt "--worst needs a value"
    run 2 quality a.mesh --worst -3
    run 2 sizes a.mesh b.mesh --gradation -1
    contains err.txt "--gradation"
    run 2 sizes a.mesh b.mesh --direction sideways
    run 2 convert a.stl b.stl --merge=-1
    run 2 generate sphere x.mesh
    contains err.txt "unknown kind 'sphere'"
    run 2 demo --n 0
    ;;
missing_file)
    any=0
    for f in stl medit nastran obj femap; do
        can_read $f || continue
        any=1
        run 1 info "does-not-exist.$(ext_of $f)"
        contains err.txt "cannot open 'does-not-exist.$(ext_of $f)': No such file or directory"
        run 1 convert "does-not-exist.$(ext_of $f)" out.mesh
        contains err.txt "No such file or directory"
    done
    ((any)) || skip "no reader"
    ;;
unknown_extension)
    printf 'solid x\nendsolid x\n' > mesh.xyz
    run 1 info mesh.xyz
    contains err.txt "cannot tell the format of 'mesh.xyz'"
    run 1 info mesh.xyz --format nosuchformat
    contains err.txt "unknown format 'nosuchformat'"
    run 1 info noextension
    contains err.txt "cannot tell the format of 'noextension'"
    # Formats that are written but never read.
    run 1 info model.vtk
    contains err.txt "the vtk format cannot be read"
    ;;
corrupt_file)
    # Bytes that are no mesh in any format; a truncated and a wrongly announced binary STL.
    head -c 3000 /dev/urandom > junk.bin 2> /dev/null || printf 'garbage' > junk.bin
    printf 'this is not a mesh\n\x01\x02\x03' > bad.txt
    any=0
    for f in stl medit nastran obj femap; do
        can_read $f || continue
        any=1
        e=$(ext_of $f)
        cp bad.txt "bad.$e"
        "$tool" info "bad.$e" > out.txt 2> err.txt
        st=$?
        ((st > 128)) && fail "info bad.$e crashed"
        if ((st != 0)); then
            [[ $st == 1 ]] || fail "info bad.$e exited with $st"
            contains err.txt "cannot read 'bad.$e'"
            grep -q 'returned -[0-9]* (' err.txt || fail "no library code in: $(cat err.txt)"
        fi
        cp junk.bin "junk.$e"
        "$tool" info "junk.$e" > out.txt 2> err.txt
        st=$?
        ((st > 128)) && fail "info junk.$e crashed"
    done
    ((any)) || skip "no reader"
    if can_read stl; then
        # A binary STL that announces 1000 triangles and holds one.
        { head -c 80 /dev/zero; printf '\xe8\x03\x00\x00'; head -c 50 /dev/zero; } > short.stl
        run 1 info short.stl
        contains err.txt "STL_input returned -3"
        : > empty.stl
        run 1 info empty.stl
        contains err.txt "STL_input returned"
    fi
    ;;
demo)
    run 0 demo demo-dir
    contains out.txt "tetrahedral cube, 10 cells a side: 1331 nodes, 6000 tetrahedra"
    n=$(ls demo-dir | wc -l)
    ((n > 0)) || skip "no writer: the demo writes nothing yet"
    if can_write medit; then
        [[ -s demo-dir/cube.mesh ]] || fail "demo wrote no cube.mesh"
        head -n 1 demo-dir/cube.mesh | grep -q '^MeshVersionFormatted 1' || fail "cube.mesh header"
    fi
    if grep -q 'size field' out.txt; then
        [[ -s demo-dir/cube.sol ]] || fail "demo wrote no cube.sol"
        # The header: dimension 3, one component, one value per node, 2.
        [[ "$(head -n 1 demo-dir/cube.sol)" == "3 1 1331 2" ]] || fail "cube.sol header"
        contains out.txt "gradation"
    fi
    # Without a folder the demo makes a new one each time.
    run 0 demo
    [[ -d meshutil-demo ]] || fail "no meshutil-demo folder"
    run 0
    [[ -d meshutil-demo-2 ]] || fail "no meshutil-demo-2 folder"
    ;;
info)
    need_write medit
    need_read medit
    run 0 generate cube cube.mesh --n 4
    run 0 info cube.mesh
    contains out.txt "nodes                 125, 3-D coordinates"
    contains out.txt "tetrahedra          384 (EL_TETRA4)"
    contains out.txt "bounding box          [0, 1] x [0, 1] x [0, 1]"
    if grep -q '^free boundaries' out.txt; then
        # 6 sides of 4 x 4 squares, two triangles each.
        [[ $(info_value 'free boundaries') == 192 ]] || fail "free faces"
        [[ $(info_value 'non-manifold') == 0 ]] || fail "non-manifold faces"
        [[ $(info_value 'subdomains') == 1 ]] || fail "subdomains"
    fi
    if grep -q '^unused nodes' out.txt; then
        [[ $(info_value 'unused nodes') == 0 ]] || fail "unused nodes"
        [[ $(info_value 'degenerated elements') == 0 ]] || fail "degenerated"
    fi
    if grep -q '^shape quality' out.txt; then
        grep -q '#' out.txt || fail "no histogram bars"
        contains out.txt "edge lengths          604 edges"
    fi
    run 0 info cube.mesh --json
    json_ok out.txt
    contains out.txt '"nodes":125'
    contains out.txt '"EL_TETRA4":384'
    # A surface: the torus is closed, one piece.
    run 0 generate torus torus.mesh --n 3
    run 0 info torus.mesh
    contains out.txt "triangles           144 (EL_TRIA3)"
    if grep -q '^free boundaries' out.txt; then
        [[ $(info_value 'free boundaries') == 0 ]] || fail "torus free edges"
        [[ $(info_value 'subdomains') == 1 ]] || fail "torus subdomains"
    fi
    ;;
quality)
    need_write medit
    need_read medit
    need_command quality x.mesh
    run 0 generate cube cube.mesh --n 3
    run 0 quality cube.mesh --worst 5 --sol q.sol
    contains out.txt "cube.mesh: 162 elements"
    contains out.txt "worst elements:"
    [[ $(grep -c 'EL_TETRA4' out.txt) == 5 ]] || fail "not 5 worst elements"
    # Listed worst first: the qualities do not decrease down the list.
    awk '/EL_TETRA4/ {print $3}' out.txt | sort -g -c || fail "worst list not in order"
    [[ "$(head -n 1 q.sol)" == "3 1 64 2" ]] || fail "q.sol header"
    run 0 quality cube.mesh --json --all
    json_ok out.txt
    [[ $(grep -o '"element":' out.txt | wc -l) == 162 ]] || fail "--all does not list all"
    ;;
boundary)
    need_write medit
    need_read medit
    need_command boundary x.mesh y.mesh
    run 0 generate cube cube.mesh --n 3
    run 0 boundary cube.mesh skin.mesh
    contains out.txt "108 boundary elements"
    run 0 info skin.mesh
    contains out.txt "triangles           108 (EL_TRIA3)"
    if grep -q '^unused nodes' out.txt; then
        # Only the surface nodes stay: 4^3 - 2^3.
        contains out.txt "nodes                 56,"
        [[ $(info_value 'free boundaries') == 0 ]] || fail "the skin of a cube is closed"
    fi
    # The boundary of the boundary is empty.
    run 0 boundary skin.mesh rim.mesh
    contains out.txt "no free boundary"
    # A square's boundary: 4 x 3 edges.
    run 0 generate square sq.mesh --n 3
    run 0 boundary sq.mesh sqb.mesh
    contains out.txt "12 boundary elements"
    ;;
sizes)
    need_write medit
    need_read medit
    need_command sizes x.mesh y.mesh
    run 0 generate cube cube.mesh --n 5
    run 0 sizes cube.mesh out.mesh --p 1 --gradation 0.2
    contains out.txt "size field"
    contains out.txt "gradation      g = 0.2 (down)"
    [[ -s out.mesh ]] || fail "no out.mesh"
    [[ "$(head -n 1 out.sol)" == "3 1 216 2" ]] || fail "out.sol header"
    run 0 sizes cube.mesh out2.mesh --gradation none --sol field.sol
    [[ -s field.sol ]] || fail "no field.sol"
    grep -q '^gradation' out.txt && fail "gradation ran with --gradation none"
    # Direction up never lowers a size: the minimum stays.
    run 0 sizes cube.mesh up.mesh --direction up --p min
    ;;
convert_pairs)
    # Every pair of formats read and written converts a surface and a volume back and forth with
    # the same counts. STL holds triangles only, so volumes skip it.
    formats=()
    for f in medit stl nastran obj femap; do
        can_read $f && can_write $f && formats+=("$f")
    done
    ((${#formats[@]} > 0)) || skip "no format both read and written"
    first=${formats[0]}
    for kind in torus cube; do
        run 0 generate $kind "$kind.$(ext_of "$first")" --n 3
        run 0 info "$kind.$(ext_of "$first")" --json
        ref=$(grep -o '"nodes":[0-9]*,"dimension":[0-9]*,"elements":{[^}]*}' out.txt)
        for a in "${formats[@]}"; do
            for b in "${formats[@]}"; do
                [[ $kind == cube && ($a == stl || $b == stl) ]] && continue
                src="$kind.$(ext_of "$first")"
                run 0 convert "$src" "$kind-a.$(ext_of "$a")"
                run 0 convert "$kind-a.$(ext_of "$a")" "$kind-ab.$(ext_of "$b")"
                run 0 convert "$kind-ab.$(ext_of "$b")" "$kind-aba.$(ext_of "$a")"
                run 0 info "$kind-aba.$(ext_of "$a")" --json
                got=$(grep -o '"nodes":[0-9]*,"dimension":[0-9]*,"elements":{[^}]*}' out.txt)
                [[ $got == "$ref" ]] || fail "$kind $a -> $b -> $a: $got, expected $ref"
            done
        done
    done
    if can_write stl && can_read stl; then
        run 0 generate torus t.stl --binary --n 3
        run 0 info t.stl
        contains out.txt "triangles           144 (EL_TRIA3)"
        contains out.txt "nodes                 72,"
    fi
    ;;
write_only)
    # Formats written but not read: the files exist and start as their format says.
    any=0
    if can_write vtk; then
        any=1
        run 0 generate cube c.vtk --n 2
        [[ "$(head -n 1 c.vtk)" == "# vtk DataFile Version 2.0" ]] || fail "vtk header"
    fi
    if can_write ensight; then
        any=1
        run 0 generate cube c.geo --n 2
        [[ "$(head -n 1 c.geo)" == "EnSight Mesh File." ]] || fail "ensight header"
    fi
    if can_write nastran; then
        any=1
        run 0 generate cube c.nas --n 2
        contains c.nas "BEGIN BULK"
        contains c.nas "CTETRA,1,1,"
    fi
    if can_write stl; then
        any=1
        run 1 generate cube c.stl --n 2
        contains err.txt "STL holds triangles"
    fi
    ((any)) || skip "no writer"
    ;;
merge)
    need_write medit
    need_read medit
    need_command convert x.mesh y.mesh --merge 0
    # A square written as a medit file; converting with a tolerance larger than the cells
    # collapses everything but a few elements, a tiny one changes nothing.
    run 0 generate square sq.mesh --n 4
    run 0 convert sq.mesh same.mesh --merge 1e-9
    contains out.txt "merged 0 nodes"
    run 0 convert sq.mesh coarse.mesh --merge 0.3
    contains out.txt "merged"
    run 0 info coarse.mesh
    ;;
*)
    fail "unknown case"
    ;;
esac
echo "PASS [$case_name]"
