#!/usr/bin/env bash
# The example host as a CMake project of its own, in C alone, finds the package, is built against
# the shared and against the static library, and runs.
. "${KOVA_SOURCE_DIR:?}/tests/install/installed.bash"
need cmake ninja gcc readelf
install_into "$work/first"
# The package may be moved: nothing in it is tied to the place where it was installed.
mv "$work/first" "$work/prefix"
cp "$source/tests/install/consumer/CMakeLists.txt" "$example" "$work"

cmake -S "$work" -B "$work/build" -G Ninja "-DCMAKE_PREFIX_PATH=$work/prefix" \
    "-DCMAKE_C_FLAGS=${strict[*]:1}" >"$work/configure.log" 2>&1 ||
    fail "configuring: $(cat "$work/configure.log")"
grep -q "^KovaRtspServer 0.1.0 in $work/prefix" <(sed -n 's/^-- //p' "$work/configure.log") ||
    fail "another package was found: $(cat "$work/configure.log")"
cmake --build "$work/build" >"$work/build.log" 2>&1 || fail "building: $(cat "$work/build.log")"

linked_with "$work/build/shared" | grep -qx 'libkovartspserver\.so\.0' || fail "shared is not"
linked_with "$work/build/static" | grep -q kovartspserver && fail "static is not"
runs shared "$work/build/shared"
runs static "$work/build/static"

# A wrong version is not accepted.
sed -i 's/KovaRtspServer 0\.1/KovaRtspServer 0.2/' "$work/CMakeLists.txt"
cmake -S "$work" -B "$work/wrong" -G Ninja "-DCMAKE_PREFIX_PATH=$work/prefix" \
    >"$work/wrong.log" 2>&1 && fail "version 0.2 was found"
grep -q '0\.1\.0' "$work/wrong.log" || fail "refused for another reason: $(cat "$work/wrong.log")"
