#!/usr/bin/env bash
# The example host, built outside the tree with what pkg-config tells, against the shared and
# against the static library, runs.
. "${KOVA_SOURCE_DIR:?}/tests/install/installed.bash"
need gcc pkg-config readelf nm
install_into "$work/prefix"
export PKG_CONFIG_LIBDIR=$work/prefix/lib/pkgconfig
cp "$example" "$work/host.c"
cd "$work" || exit 1

read -r -a flags < <(pkg-config --cflags --libs kova_rtsp_server)
gcc "${strict[@]}" -o shared host.c "${flags[@]}" || fail "the example does not compile"
linked_with shared | grep -qx 'libkovartspserver\.so\.0' ||
    fail "linked with: $(linked_with shared)"
runs shared env "LD_LIBRARY_PATH=$work/prefix/lib" ./shared

# Without the shared library at hand the same name finds the static one.
rm "$work"/prefix/lib/libkovartspserver.so*
read -r -a flags < <(pkg-config --static --cflags --libs kova_rtsp_server)
gcc "${strict[@]}" -o static host.c "${flags[@]}" || fail "the example does not link statically"
linked_with static | grep -q kovartspserver && fail "it still needs the shared library"
linked_with static | grep -vE '^(libc|libm|libpthread|ld-linux.*)\.so' && fail "it needs more"
runs static ./static

gcc -static "${strict[@]}" -o all_static host.c "${flags[@]}" || fail "no whole static program"
[[ -z $(linked_with all_static) ]] || fail "it is not static"
runs all_static ./all_static

# The static library offers what the shared one exports and hides the rest.
offered=$(nm -g --defined-only "$work/prefix/lib/libkovartspserver.a" | awk 'NF == 3 {print $3}' |
    sort)
diff -u --label listed --label static <(exported_names "$build") - <<<"$offered" ||
    fail "the static library offers other names"
