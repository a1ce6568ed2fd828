#!/bin/bash
# PackageTest.sh BUILD SOURCE - installs the build, moves the tree, and builds and runs the examples against it as a stranger
# would: by CMake package and by pkg-config, shared and static; then the Python one. Checks the exported names and, where
# there is dpkg-deb, the package that cpack makes.
set -euo pipefail
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved"
prefix=$work/moved
library=$(dirname "$(find "$prefix" -name 'libvornmake.so')")

# Exactly the exported functions, nothing else.
expected="MOKSetMemory MOKTimerRead VornMake VornMakeClose VornMakeFlush VornMakePutVideo VornMakeSetMaxCPUs VornMix mokfree mokmalloc"
names=$(nm -D --defined-only "$library/libvornmake.so" | awk '$2 == "T" || $2 == "D" || $2 == "B" || $2 == "W" { print $3 }' | LC_ALL=C sort | tr '\n' ' ')
if [ "${names% }" != "$expected" ]; then
    # A sanitizer's own names are exported beside ours.
    case "$names" in *san_*) ;; *) fail "exported: $names" ;; esac
fi

# The header alone.
for standard in c89 c99 c17; do
    echo '#include <vornmake.h>' | cc -std=$standard -pedantic-errors -Wall -Werror -I"$prefix/include" -fsyntax-only -x c -
done
for standard in c++11 c++20; do
    echo '#include <vornmake.h>' | c++ -std=$standard -pedantic-errors -Wall -Werror -I"$prefix/include" -fsyntax-only -x c++ -
done

flags=${PACKAGE_TEST_FLAGS:-}
mkdir "$work/user"
cat >"$work/user/CMakeLists.txt" <<TXT
cmake_minimum_required(VERSION 3.16)
project(user C)
find_package(vornmake REQUIRED)
add_executable(shared $source/examples/make_movie.c)
target_link_libraries(shared PRIVATE vornmake::vornmake m)
add_executable(static $source/examples/make_movie.c)
target_link_libraries(static PRIVATE vornmake::vornmake_static m)
TXT
cmake -S "$work/user" -B "$work/user/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_FLAGS="$flags" >/dev/null
cmake --build "$work/user/build" >/dev/null
export PKG_CONFIG_PATH=$library/pkgconfig
# shellcheck disable=SC2046
cc $flags "$source/examples/make_movie.c" $(pkg-config --cflags --libs vornmake) -lm -Wl,-rpath,"$library" -o "$work/pcshared"
cc $flags "$source/examples/make_movie.c" $(pkg-config --cflags vornmake) "$library/libvornmake.a" -lstdc++ -lm -lpthread -o "$work/pcstatic"
c++ $flags -std=c++20 "$source/examples/make_movie.cpp" $(pkg-config --cflags --libs vornmake) -Wl,-rpath,"$library" -o "$work/cpp"

cd "$work"
user/build/shared shared.vrn >/dev/null
for program in user/build/static ./pcshared ./pcstatic; do
    $program other.vrn >/dev/null
    cmp shared.vrn other.vrn || fail "$program makes another movie"
done
./cpp cpp.vrn >/dev/null
if [ -z "$flags" ]; then python3 "$source/examples/make_movie.py" "$library/libvornmake.so" python.vrn >/dev/null; fi
if [ -x "$prefix/bin/vorn" ]; then
    for movie in *.vrn; do "$prefix/bin/vorn" verify -q "$movie" || fail "$movie breaks a rule"; done
fi

# manual SHARE ZSH-FOLDER: documents, man pages and completions stand where programs look for them.
manual() {
    for name in doc/vornmake/docs/format.md man/man1/vorn.1 man/man1/vorn-make.1 bash-completion/completions/vorn "zsh/$2/_vorn"; do
        [ -s "$1/$name" ] || fail "$1 lacks $name"
    done
}
if [ -z "$flags" ] && [ -x "$prefix/bin/vorn" ]; then manual "$prefix/share" site-functions; fi

if [ -z "$flags" ] && command -v dpkg-deb >/dev/null && command -v dpkg-shlibdeps >/dev/null && command -v file >/dev/null; then
    (cd "$build" && cpack -G DEB -B "$work/deb" >/dev/null)
    dpkg-deb -x "$work"/deb/*.deb "$work/unpacked"
    [ -e "$work/unpacked/usr/include/vornmake.h" ] || fail "the package lacks the header"
    "$work/unpacked/usr/bin/vorn" --version >/dev/null || fail "the packaged program doesn't run"
    manual "$work/unpacked/usr/share" vendor-completions
else
    echo "skipped: the Debian package (needs dpkg-dev and file, and a build without sanitizers)"
fi
echo "the package works"
