#!/usr/bin/env bash
# pack.sh BUILD ARCHIVE [PAGES]: packs what is built, and the report's pages if they are named, into one archive.
#
# The same commit gives the same bytes: names are sorted, times are those of the commit, nobody owns anything.
set -euo pipefail
build=$(realpath "$1")
archive=$(realpath -m "$2")
pages=${3:+$(realpath "$3")}
sources=$(realpath "$(dirname "$0")/..")
time=$(git -C "$sources" log -1 --format=%ct 2>/dev/null || echo 0)
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
name=tuvo-$version
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT

cmake --install "$build" --prefix "$stage/$name" >/dev/null
mkdir -p "$stage/$name/share/doc/tuvo"
cp "$sources/README.md" "$sources"/docs/*.md "$stage/$name/share/doc/tuvo/"
[ -n "$pages" ] && mkdir "$stage/$name/share/doc/tuvo/report" &&
    cp "$pages"/*.html "$pages"/*.svg "$pages"/*.css "$stage/$name/share/doc/tuvo/report/"
(cd "$stage/$name" && find . -type f ! -name SHA256SUMS | LC_ALL=C sort | xargs sha256sum >SHA256SUMS)
chmod -R u=rwX,go=rX "$stage"
mkdir -p "$(dirname "$archive")"
tar -C "$stage" --sort=name --mtime="@$time" --owner=0 --group=0 --numeric-owner --format=gnu -cf - "$name" | xz -T1 -6 >"$archive"
