#!/usr/bin/env bash
# Runs the README as a new user would, in a scratch directory beside the build: the demo writes
# demo.kyn, each C++ program of the README is saved under the name on its first line, each "sh"
# block runs as written (installing into $HOME/kyn, a scratch home), and then every C++ program
# is built against that installation with pkg-config and run. "python" blocks run with the
# installed package on PYTHONPATH. Finally an installed program runs with no environment at all.
# A block that needs a part the build left out (a program of build/bin, the Python package, the
# Blender add-on) or a program the machine lacks (blender) is skipped with a line that says so,
# and the test then ends as skipped (status 77).
# Usage: readme_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1
build_dir=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export HOME=$scratch/home
mkdir -p "$HOME"
cd "$scratch"
ln -s "$build_dir" build

./build/bin/kyndemo demo.kyn >/dev/null

# Splits the README into its fenced blocks: block-<n>.<language>.
awk -v dir="$scratch" '
    /^```/ && !inside { inside = 1; language = substr($0, 4); n++; next }
    /^```/ && inside { inside = 0; next }
    inside { print > sprintf("%s/block-%02d.%s", dir, n, language) }
' "$source_dir/README.md"

programs=()
for block in block-*.cpp; do
    [ -e "$block" ] || continue
    name=$(head -n 1 "$block" | sed -n 's|^// \([A-Za-z0-9_]*\.cpp\):.*|\1|p')
    [ -n "$name" ] || { echo "a C++ block of the README does not start with '// NAME.cpp:'"; exit 1; }
    cp "$block" "$name"
    programs+=("$name")
done

skipped=0
# The first program of build/bin that a block names and the build did not make, if any; or
# Dask, when a Python program that uses kyn.dask finds none.
missing_program() {
    { grep -o '\./build/bin/[A-Za-z0-9_.]*' "$1" || true; } | sort -u | while read -r program; do
        [ -e "$program" ] || { echo "${program#./build/bin/}"; break; }
        case $program in
            *.py)
                if grep -q 'kyn\.dask' "$program" &&
                    ! /usr/bin/python3 -c 'import dask.array, distributed' 2>/dev/null; then
                    echo "Dask (python3-dask, python3-distributed)"
                    break
                fi
                ;;
        esac
    done
}

for block in block-*.sh; do
    [ -e "$block" ] || continue
    missing=$(missing_program "$block")
    if [ -n "$missing" ]; then
        echo "== skipping $block: the build has no $missing"
        skipped=1
        continue
    fi
    if grep -q blender "$block" && ! { command -v blender && [ -d build/share/kyn/blender ]; } \
        >/dev/null; then
        echo "== skipping $block: no blender program (Debian: blender), or the build has no add-on"
        skipped=1
        continue
    fi
    echo "== running $block"
    bash -eu "$block"  # as a user types it: a pipe into head is no failure
done

export PKG_CONFIG_PATH=$HOME/kyn/lib/pkgconfig
[ -d "$PKG_CONFIG_PATH" ] || cmake --install build --prefix "$HOME/kyn" >/dev/null
for program in "${programs[@]}"; do
    echo "== building and running $program"
    g++ -std=c++17 -Wall -Wextra -Werror "$program" -o "${program%.cpp}" \
        $(pkg-config --cflags --libs kyn)
    "./${program%.cpp}"
done

for block in block-*.python; do
    [ -e "$block" ] || continue
    if [ ! -d "$HOME/kyn/lib/python3/dist-packages/kyn" ]; then
        echo "== skipping $block: the build has no Python package"
        skipped=1
        continue
    fi
    echo "== running $block"
    PYTHONPATH=$HOME/kyn/lib/python3/dist-packages /usr/bin/python3 "$block"
done

echo "== an installed program with no environment"
env -i "$HOME/kyn/bin/kyninfo" demo.kyn >/dev/null
if [ $skipped -ne 0 ]; then
    echo "the README runs as written, but for the blocks skipped above"
    exit 77
fi
echo "the README runs as written"
