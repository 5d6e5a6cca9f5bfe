#!/bin/sh
# Builds the Debian packages: quintral (the utility), libquintral1 and libquintral-dev. Usage:
#
#     scripts/build-packages.sh [OUTPUT]
#
# The folder OUTPUT (default: build/packages) is made anew. It then holds the packages, the source
# package and the SPDX document. The sources are the files that git tracks, as they are at the
# moment. The version is that of CMakeLists.txt, the changelog is CHANGELOG.md.
#
# All dates in the packages are the release date in CHANGELOG.md, until then that of the last
# commit; or SOURCE_DATE_EPOCH. The build is done in a new folder in TMPDIR.
set -eu
CDPATH='' cd -- "$(dirname -- "$0")/.."
. scripts/set-up.sh
clean_environment
need git python3 dpkg-dev debhelper g++ cmake ninja-build

[ $# -le 1 ] || fail "usage: $0 [OUTPUT]"
output=${1:-build/packages}
version=$(sed -n 's/^project(quintral VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
[ -n "$version" ] || fail "no version in CMakeLists.txt"
released=$(sed -n "s/^## $version, \([0-9-]*\)\$/\1/p" CHANGELOG.md)
if [ -z "${SOURCE_DATE_EPOCH:-}" ]; then
  if [ -n "$released" ]; then
    SOURCE_DATE_EPOCH=$(date -u -d "$released" +%s)
  else
    SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
  fi
fi
export SOURCE_DATE_EPOCH

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
trap 'exit 1' HUP INT QUIT PIPE TERM

# debhelper gives the build another home; ccache is to find its own files all the same.
if [ "$(basename "${CMAKE_CXX_COMPILER_LAUNCHER:-}")" = ccache ]; then
  CCACHE_DIR=$(ccache --get-config cache_dir)
  export CCACHE_DIR CCACHE_BASEDIR="$folder" CCACHE_NOHASHDIR=1
fi

umask 022
sources=$folder/quintral-$version
mkdir "$sources"
git ls-files -z ':!*.gitignore' ':!*.gitattributes' >"$folder/names" # dpkg-source drops these two
tar -c --null --files-from="$folder/names" | tar -x -C "$sources" --no-same-permissions
cp -R "$sources/packaging/debian" "$sources/debian"
scripts/debian-changelog.py "$version" "$SOURCE_DATE_EPOCH" >"$sources/debian/changelog"
scripts/spdx.py "$version" "$SOURCE_DATE_EPOCH" <"$folder/names" \
  >"$sources/debian/quintral.spdx.json"
chmod -R u=rwX,go=rX "$sources" # whatever the umask of the checkout was
(
  cd "$sources"
  dpkg-buildpackage -us -uc -j"$(nproc)"
) >"$folder/log" 2>&1 || {
  tail -n 40 "$folder/log"
  fail "the packages do not build"
}

rm -rf "$output"
mkdir -p "$output"
cp "$sources/debian/quintral.spdx.json" "$output/quintral-$version.spdx.json"
rm -rf "$sources" "$folder/names"
mv "$folder/log" "$output/build.log"
mv "$folder"/* "$output"
echo "== packages in $output"
(cd "$output" && sha256sum ./*.deb)
