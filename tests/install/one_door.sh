#!/usr/bin/env bash
# Each interface can be built alone: the library then has its own name, exports that interface's
# functions and nothing else, is installed with its header and package files only, and a host is
# linked with it, dynamically and statically.
. "${KOVA_SOURCE_DIR:?}/tests/install/installed.bash"
need cmake ninja gcc pkg-config readelf nm

# built_alone <name> <option>: builds and installs into $work/<name>
built_alone() {
    local folder=$work/$1
    cmake -S "$source" -B "$folder/build" -G Ninja -DCMAKE_BUILD_TYPE=Debug "-D$2=OFF" \
        -DKOVA_STATIC=ON -DKOVA_BUILD_TESTS=OFF -DKOVA_BUILD_EXAMPLES=OFF -DKOVA_BUILD_APPS=OFF \
        -DKOVA_BUILD_BENCH=OFF >"$work/$1.log" 2>&1 || fail "configuring: $(cat "$work/$1.log")"
    cmake --build "$folder/build" >"$work/$1.log" 2>&1 || fail "building: $(tail -40 "$work/$1.log")"
    KOVA_BUILD_DIR=$folder/build bash "$source/tests/style/exports.sh" ||
        fail "$1: the shared library is not as it should be"
    build=$folder/build install_into "$folder/prefix"
    (cd "$folder/prefix" && find include lib -maxdepth 2 ! -type d | LC_ALL=C sort) >"$work/$1.files"
}

# host_of <name> <pkg-config name> <source> <library>: the host is linked with either form
host_of() {
    local prefix=$work/$1/prefix flags offered
    export PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig
    read -r -a flags < <(pkg-config --cflags --libs "$2")
    gcc "${strict[@]}" -o "$work/$1.shared" "$3" "${flags[@]}" || fail "$1: no shared host"
    linked_with "$work/$1.shared" | grep -qx "lib$4\.so\.0" || fail "$1: linked with another"
    offered=$(nm -g --defined-only "$prefix/lib/lib$4.a" | awk 'NF == 3 {print $3}' | LC_ALL=C sort)
    diff -u --label listed --label static <(exported_names "$work/$1/build") - <<<"$offered" ||
        fail "$1: the static library offers other names"
    rm "$prefix/lib/lib$4.so"*
    read -r -a flags < <(pkg-config --static --cflags --libs "$2")
    gcc "${strict[@]}" -o "$work/$1.static" "$3" "${flags[@]}" || fail "$1: no static host"
    linked_with "$work/$1.static" | grep -q kova && fail "$1: it still needs the shared library"
    return 0
}

built_alone live KOVA_CLASSIC
diff -u --label expected --label installed - "$work/live.files" <<END || fail "the live interface"
include/kova_live.h
lib/libkovalive.a
lib/libkovalive.so
lib/libkovalive.so.0
lib/libkovalive.so.0.1.0
lib/pkgconfig/kova_live.pc
END
host_of live kova_live "$source/examples/live_camera.c" kovalive

built_alone classic KOVA_LIVE
diff -u --label expected --label installed - "$work/classic.files" <<END || fail "the classic one"
include/kova_rtsp_server.h
lib/libkovartspserver.a
lib/libkovartspserver.so
lib/libkovartspserver.so.0
lib/libkovartspserver.so.0.1.0
lib/pkgconfig/kova_rtsp_server.pc
END
host_of classic kova_rtsp_server "$example" kovartspserver
echo "each interface alone: built, installed and linked with"
