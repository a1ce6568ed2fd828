#!/bin/bash
# MachineTest.sh MACHINE BUILD SOURCE - builds library and tests for another machine, a preset's name, in a folder of BUILD,
# and runs them here: 32-bit Linux as it is, Windows under Wine. What is missing to do so is named, and the answer is 77.
# For Windows also: what the DLL exports and wants of the system, and that a C program makes the same movie through it.
set -euo pipefail
machine=$1
source=$3
work=$2/$machine

skip() {
    echo "skipped: $machine needs $*"
    exit 77
}
fail() {
    echo "FAILED: $machine: $*" >&2
    exit 1
}
need() { command -v "$1" >/dev/null || skip "$2"; }

[ -d /usr/src/googletest/googletest ] || skip "googletest"
case $machine in
linux-32)
    echo 'int main() { return 0; }' | c++ -m32 -x c++ - -o /dev/null 2>/dev/null || skip "g++-multilib"
    ;;
windows-64)
    prefix=x86_64-w64-mingw32
    need $prefix-g++-posix g++-mingw-w64-x86-64-posix
    wine=$(PATH=$PATH:/usr/lib/wine command -v wine64) || skip wine64
    ;;
windows-32)
    prefix=i686-w64-mingw32
    need $prefix-g++-posix g++-mingw-w64-i686-posix
    wine=$(PATH=/usr/lib/wine command -v wine) || wine=""
    ;;
*) fail "no such machine" ;;
esac

run=true
targets=(all)
if [ "$machine" = windows-32 ] && [ -z "$wine" ]; then
    run=false
    targets=(vornmake vornmake_static)
fi

cd "$source"
mkdir -p "$work"
if ! { cmake --preset "$machine" -B "$work" && cmake --build "$work" -j2 --target "${targets[@]}"; } >"$work/build.log" 2>&1; then
    tail -n 40 "$work/build.log"
    fail "doesn't build; all of it: $work/build.log"
fi

# A prefix of its own, made anew. What Wine leaves running mustn't hold on to the output of this test.
start_wine() {
    export WINEPREFIX=$work/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
    rm -rf "$WINEPREFIX"
    trap 'wineserver -k >/dev/null 2>&1 || true' EXIT
    "$wine" wineboot --init </dev/null >"$work/wine.log" 2>&1 || fail "Wine doesn't start: $work/wine.log"
}

# The ten functions by their plain names, and no runtime of a compiler among the imports.
check_dll() {
    local tables exports imports
    tables=$($prefix-objdump -p "$work/vornmake.dll")
    exports=$(awk '/Ordinal\/Name Pointer/ { on = 1; next } on && $1 == "[" { print $3 } on && NF == 0 { exit }' <<<"$tables" | LC_ALL=C sort)
    [ "$exports" = "$(sed -n '2,$s/ //gp' cmake/vornmake.def | LC_ALL=C sort)" ] || fail "exports: $exports"
    imports=$(sed -n 's/.*DLL Name: //p' <<<"$tables" | tr '[:upper:]' '[:lower:]' | LC_ALL=C sort | tr '\n' ' ')
    [ "$imports" = "kernel32.dll msvcrt.dll winmm.dll " ] || fail "imports: $imports"
    echo "vornmake.dll exports: ${exports//$'\n'/ }"
    echo "vornmake.dll imports: $imports"
}

# The example in C, linked with the import library and with the static one. What such a line of a caller has to name stands here.
link_example() {
    (
        cd "$work"
        $prefix-gcc "$source/examples/make_movie.c" -I"$source/public" libvornmake.dll.a -o make_movie.exe
        $prefix-gcc -DVORNMAKE_STATIC "$source/examples/make_movie.c" -I"$source/public" -static libvornmake.a -lstdc++ -lwinmm -o static.exe
        # A program that takes in the static library exports nothing.
        [ -z "$($prefix-objdump -p static.exe | grep VornMake)" ]
    ) || fail "a C program doesn't link as it should"
}

# The same program with the library of this machine, with the DLL, and with the static library for Windows.
compare_movies() {
    (
        cd "$work"
        cc "$source/examples/make_movie.c" -I"$source/public" -L"$1" -lvornmake -lm -Wl,-rpath,"$1" -o make_movie
        rm -f here.vrn there.vrn static.vrn
        ./make_movie here.vrn >/dev/null
        "$wine" make_movie.exe there.vrn </dev/null >>wine.log 2>&1
        "$wine" static.exe static.vrn </dev/null >>wine.log 2>&1
        cmp here.vrn there.vrn && cmp here.vrn static.vrn
    ) || fail "a program makes another movie with the library for Windows"
    echo "make_movie: the same $(stat -c %s "$work/here.vrn") bytes from Linux and from $machine, DLL and static"
}

if [ "$machine" != linux-32 ]; then
    check_dll
    link_example
    if $run; then start_wine; fi
fi
if ! $run; then
    echo "$machine: built and linked, not run: no 32-bit Wine here"
    exit 0
fi
ctest --test-dir "$work" --output-on-failure --no-tests=error -V >"$work/run.log" 2>&1 || {
    grep -E 'FAILED|Failure|\*\*\*|tests passed' "$work/run.log" | head -n 60
    fail "tests fail; all of it: $work/run.log"
}
grep -oE 'this machine has .*' "$work/run.log"
passed=$(sed -n 's/.*\[  PASSED  \] \([0-9]*\) test.*/\1/p' "$work/run.log" | awk '{ sum += $1 } END { print sum + 0 }')
[ "$passed" -ge 100 ] || fail "only $passed tests ran"
grep -oa 'movies with pinned hashes.*' "$work/run.log"
echo "$machine: $passed tests passed in $(grep -c '\[  PASSED  \]' "$work/run.log") programs"
if [ "$machine" != linux-32 ]; then compare_movies "$2"; fi
