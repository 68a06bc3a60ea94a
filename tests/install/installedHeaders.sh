#!/usr/bin/env bash
# Installs the build into a fresh prefix and checks what an application compiles against: no
# installed header names a library the host keeps to itself, and all of them compile together
# with nothing but Qt and Boost on the include path.
# Usage: installedHeaders.sh BUILD_DIR CXX
set -euo pipefail
build=$1
cxx=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
include="$prefix/include"

leaks=$(grep -rlE '#include <(embree[0-9]*/|assimp/|mpi\.h|OpenImageIO/|lcms2|exempi|libav|EGL/|GL/)' \
    "$include" || true)
if [ -n "$leaks" ]; then
    echo "installed headers with third-party includes:" >&2
    echo "$leaks" >&2
    exit 1
fi
for private in kaRTScene_p.h kaRTIntegrator_p.h kaClusterTransport_p.h kaRenderNode.h; do
    if [ -n "$(find "$include" -name "$private")" ]; then
        echo "internal header installed: $private" >&2
        exit 1
    fi
done

flags=()
while IFS= read -r dir; do flags+=("-I$dir"); done < <(find "$include" -type d)
unit="$prefix/everyHeader.cpp"
(cd "$include" && find . -name '*.h' | sort | sed 's|^\./||; s|.*|#include "&"|') > "$unit"
count=$(wc -l < "$unit")
# shellcheck disable=SC2046
"$cxx" -std=c++17 -fsyntax-only -fPIC $(pkg-config --cflags Qt5Widgets) "${flags[@]}" "$unit"
echo "$count installed headers compile with Qt and Boost alone"
