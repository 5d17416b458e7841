#!/usr/bin/env bash
# The library's name for linked programs does not follow the version: 1.0.0 is still .so.0. Only
# configured, as the linker's command tells the name.
. "${KOVA_SOURCE_DIR:?}/tests/install/installed.bash"
need cmake ninja

# soname_of <directory>: in which the sources were configured
soname_of() { sed -n 's/^ *SONAME = \(libkovartspserver\)/\1/p' "$1/build.ninja"; }

printf 'set(PROJECT_VERSION %s)\nset(PROJECT_VERSION_MAJOR %s)\n' 1.0.0 1 >"$work/version.cmake"
cmake -S "$source" -B "$work/later" -G Ninja \
    "-DCMAKE_PROJECT_kovartspserver_INCLUDE=$work/version.cmake" \
    -DKOVA_BUILD_TESTS=OFF -DKOVA_BUILD_APPS=OFF -DKOVA_BUILD_EXAMPLES=OFF \
    >"$work/configure.log" 2>&1 || fail "configuring: $(cat "$work/configure.log")"
grep -q 'libkovartspserver\.so\.1\.0\.0' "$work/later/build.ninja" ||
    fail "the version was not taken"
[[ $(soname_of "$work/later") == libkovartspserver.so.0 ]] ||
    fail "1.0.0 is named '$(soname_of "$work/later")'"
[[ $(soname_of "$build") == libkovartspserver.so.0 ]] || fail "this is '$(soname_of "$build")'"
