#!/usr/bin/env bash
# What is installed, and where: prefix and DESTDIR are followed, and no file tells the place in
# which it was built or staged.
. "${KOVA_SOURCE_DIR:?}/tests/install/installed.bash"
need cmake pkg-config readelf

DESTDIR=$work/stage install_into /opt/kova
installed=$(cd "$work/stage" && find . ! -type d | sort)
expected="\
./opt/kova/include/kova_live.h
./opt/kova/include/kova_rtsp_server.h
./opt/kova/lib/cmake/KovaRtspServer/KovaRtspServerConfig.cmake
./opt/kova/lib/cmake/KovaRtspServer/KovaRtspServerConfigVersion.cmake
./opt/kova/lib/cmake/KovaRtspServer/KovaRtspServerTargets-relwithdebinfo.cmake
./opt/kova/lib/cmake/KovaRtspServer/KovaRtspServerTargets.cmake
./opt/kova/lib/libkovartspserver.a
./opt/kova/lib/libkovartspserver.so
./opt/kova/lib/libkovartspserver.so.0
./opt/kova/lib/libkovartspserver.so.0.1.0
./opt/kova/lib/pkgconfig/kova_live.pc
./opt/kova/lib/pkgconfig/kova_rtsp_server.pc"
[[ $installed == "$expected" ]] ||
    fail "installed: $(diff <(echo "$expected") <(echo "$installed"))"

lib=$work/stage/opt/kova/lib
[[ $(readlink "$lib/libkovartspserver.so") == libkovartspserver.so.0 ]] ||
    fail "link for the linker"
[[ $(readlink "$lib/libkovartspserver.so.0") == libkovartspserver.so.0.1.0 ]] ||
    fail "SONAME link"
readelf -d "$lib/libkovartspserver.so" | grep -qE 'RPATH|RUNPATH' && fail "it has a search path"
for header in kova_rtsp_server kova_live; do
    cmp "$source/include/$header.h" "$work/stage/opt/kova/include/$header.h" ||
        fail "another header"
done
for text in "$lib"/cmake/KovaRtspServer/* "$lib"/pkgconfig/*; do
    grep -nF -e "$work" -e "$source" -e "$build" "$text" && fail "$text tells where it was made"
done

# A second installation elsewhere, from the same build, tells the other prefix.
install_into "$work/other"
for place in "$work/stage/opt/kova" "$work/other"; do
    prefix=${place#"$work/stage"}
    export PKG_CONFIG_LIBDIR=$place/lib/pkgconfig
    for name in kova_rtsp_server kova_live; do
        [[ $(pkg-config --variable=prefix $name) == "$prefix" ]] || fail "prefix of $place"
        [[ $(pkg-config --modversion $name) == 0.1.0 ]] || fail "version of $place"
        [[ $(pkg-config --cflags $name | xargs) == "-I$prefix/include" ]] ||
            fail "flags of $place: $(pkg-config --cflags $name)"
        [[ $(pkg-config --libs $name | xargs) == "-L$prefix/lib -lkovartspserver" ]] ||
            fail "libraries of $place: $(pkg-config --libs $name)"
    done
done
[[ $(pkg-config --libs --static kova_rtsp_server | xargs) == \
    "-L$work/other/lib -lkovartspserver -lm -pthread" ]] ||
    fail "libraries for static linking: $(pkg-config --libs --static kova_rtsp_server)"
# The same through a sysroot, as cross builds use it.
[[ $(PKG_CONFIG_LIBDIR=$work/stage/opt/kova/lib/pkgconfig PKG_CONFIG_SYSROOT_DIR=$work/stage \
    pkg-config --cflags kova_rtsp_server | xargs) == "-I$work/stage/opt/kova/include" ]] ||
    fail "the sysroot is not followed"
