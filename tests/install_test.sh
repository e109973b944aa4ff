#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks what a desktop and a
# host get: the files, the validators' verdicts, the manual page against the
# installed program's --help, find_package(glwaveedit), and the .deb.
# usage: install_test.sh BUILD_DIR
set -euo pipefail
build=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix
id=io.github.glwaveedit.GLWaveEdit
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null
for file in bin/glwaveedit share/applications/$id.desktop share/icons/hicolor/scalable/apps/$id.svg \
            share/metainfo/$id.metainfo.xml share/man/man1/glwaveedit.1 include/glwaveedit/glwaveedit.h; do
  [ -s "$prefix/$file" ] || fail "not installed: $file"
done
desktop-file-validate "$prefix/share/applications/$id.desktop"
appstreamcli validate --no-net "$prefix/share/metainfo/$id.metainfo.xml" >/dev/null ||
  fail "$(appstreamcli validate --no-net "$prefix/share/metainfo/$id.metainfo.xml")"

# Every option --help names is in the manual page, which renders without a warning.
"$prefix/bin/glwaveedit" --help >"$tmp/help"
MANWIDTH=100 man -E ascii --warnings=w -l "$prefix/share/man/man1/glwaveedit.1" 2>"$tmp/warnings" >"$tmp/man"
[ ! -s "$tmp/warnings" ] || fail "man: $(cat "$tmp/warnings")"
options=$(grep -oE -- '(^| )--?[a-z][a-z-]*' "$tmp/help" | tr -d ' ' | sort -u)
[ "$(echo "$options" | wc -l)" -ge 10 ] || fail "too few options in --help: $options"
for option in $options; do
  grep -qE -- "(^| )$option([ ,]|$)" "$tmp/man" || fail "the manual page leaves out $option"
done

# A host finds the library with find_package and links it.
mkdir "$tmp/host"
printf '%s\n' 'cmake_minimum_required(VERSION 3.16)' 'project(Host CXX)' 'find_package(glwaveedit 0.1 REQUIRED)' \
  'add_executable(host host.cpp)' 'target_link_libraries(host PRIVATE glwaveedit::glwaveedit)' >"$tmp/host/CMakeLists.txt"
printf '%s\n' '#include "glwaveedit.h"' 'int main() { GLWaveEdit editor; return editor.CanUndo() ? 1 : 0; }' \
  >"$tmp/host/host.cpp"
cmake -S "$tmp/host" -B "$tmp/host/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$tmp/host/build" >/dev/null || fail "a host cannot build against the installed library"
"$tmp/host/build/host" || fail "the host built against the installed library fails"

# The Debian package: the program with its desktop files, dependencies read off
# the shared libraries, and a binary that runs from the extracted tree alone.
(cd "$build" && cpack -G DEB -B "$tmp/deb" >/dev/null)
deb=$(echo "$tmp"/deb/glwaveedit_*.deb)
dpkg-deb --contents "$deb" >"$tmp/contents"
for file in usr/bin/glwaveedit usr/share/applications/$id.desktop usr/share/man/man1/glwaveedit.1 \
            usr/share/icons/hicolor/scalable/apps/$id.svg usr/share/metainfo/$id.metainfo.xml; do
  grep -q " \./$file\$" "$tmp/contents" || fail "$file not in the package"
done
! grep -q "include/" "$tmp/contents" || fail "the package carries the library's headers"
dpkg-deb --field "$deb" Depends | grep -q "libavcodec.*libsdl2\|libsdl2.*libavcodec" || fail "Depends: $(dpkg-deb --field "$deb" Depends)"
dpkg-deb -x "$deb" "$tmp/root"
env -u LD_LIBRARY_PATH "$tmp/root/usr/bin/glwaveedit" --help | cmp -s - "$tmp/help" || fail "the packaged program's --help differs"
echo "installed, validated and packaged: $(basename "$deb")"
