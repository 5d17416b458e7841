#!/usr/bin/env bash
# The Debian packages are built in a copy of the tree, have no lintian errors, carry the symbols
# and the files that they should, and what they hold works: a host is built against the -dev
# package and runs with the library package, and kovastream streams.
. "${KOVA_SOURCE_DIR:?}/tests/install/installed.bash"
need dpkg-buildpackage dpkg-deb dpkg-architecture dh lintian gcc pkg-config python3 timeout \
    systemd-analyze
tree=$work/kovartspserver-0.1.0
mkdir "$tree"
(cd "$source" && cp -r CMakeLists.txt README.md CHANGELOG.md apps classic cmake docs examples foundation \
    include live packaging rtp samples "$tree" &&
    cp -r packaging/debian "$tree/debian") || fail "the tree cannot be copied"

(cd "$tree" && DEB_BUILD_OPTIONS="nocheck parallel=$(nproc)" \
    dpkg-buildpackage -us -uc -b >"$work/deb.log" 2>&1) ||
    fail "dpkg-buildpackage: $(tail -40 "$work/deb.log")"

lintian --allow-root --fail-on error "$work"/kovartspserver_*.changes >"$work/lintian.log" 2>&1
status=$?
cat "$work/lintian.log"
((status == 0)) || fail "lintian: status $status"

# Installed into a root of their own, which has nothing else: dependencies are this machine's.
packages=(libkovartspserver0 libkovartspserver-dev kovartspserver-tools)
mkdir -p "$work/root/var/lib/dpkg/info" "$work/root/var/lib/dpkg/updates"
touch "$work/root/var/lib/dpkg/status" "$work/root/var/lib/dpkg/available"
in_root() {
    dpkg --root="$work/root" --force-script-chrootless --force-depends --force-not-root \
        --log=/dev/null "$@" >"$work/dpkg.log" 2>&1 || fail "dpkg $1: $(cat "$work/dpkg.log")"
}
in_root --install "$work"/*r0_*.deb "$work"/*-dev_*.deb "$work"/*-tools_*.deb
for package in "${packages[@]}"; do
    dpkg --root="$work/root" -s "$package" | grep -qx 'Status: install ok installed' ||
        fail "$package is not installed: $(cat "$work/dpkg.log")"
    dpkg-deb -c "$work"/${package}_0.1.0-1_*.deb | awk '{print $6}' >"$work/$package.files"
done
triplet=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
lib=usr/lib/$triplet
holds() { grep -qx "\./$2" "$work/$1.files" || fail "$1 has no $2"; }
holds libkovartspserver0 "$lib/libkovartspserver.so.0.1.0"
holds libkovartspserver0 "$lib/libkovartspserver.so.0"
holds libkovartspserver-dev "$lib/libkovartspserver.so"
holds libkovartspserver-dev "$lib/libkovartspserver.a"
holds libkovartspserver-dev "$lib/pkgconfig/kova_rtsp_server.pc"
holds libkovartspserver-dev "$lib/pkgconfig/kova_live.pc"
holds libkovartspserver-dev "$lib/cmake/KovaRtspServer/KovaRtspServerConfig.cmake"
holds libkovartspserver-dev usr/include/kova_rtsp_server.h
holds libkovartspserver-dev usr/include/kova_live.h
holds kovartspserver-tools usr/bin/kovastream
holds kovartspserver-tools lib/systemd/system/kovastream.service
holds kovartspserver-tools etc/kovastream.conf
depends=$(dpkg-deb -f "$work"/kovartspserver-tools_*.deb Depends)
[[ $depends == *'libkovartspserver0 (>= 0.1.0)'* ]] || fail "the tools depend on: $depends"

# The symbols file is what the library exports.
dpkg-deb -e "$work"/libkovartspserver0_0.1.0-1_*.deb "$work/control"
diff -u <(exported_names "$build") \
    <(sed -n 's/^ \(.*\)@Base 0\.1\.0$/\1/p' "$work/control/symbols" | sort) || fail "symbols"

export PKG_CONFIG_LIBDIR=$work/root/$lib/pkgconfig PKG_CONFIG_SYSROOT_DIR=$work/root
read -r -a flags < <(pkg-config --cflags --libs kova_rtsp_server)
gcc "${strict[@]}" -o "$work/host" "$example" "${flags[@]}" || fail "the example does not compile"
runs packaged env "LD_LIBRARY_PATH=$work/root/$lib" "$work/host"

# The sample clip is looked for where the package puts it: not there, kovastream says so.
export LD_LIBRARY_PATH=$work/root/$lib
streamer=$work/root/usr/bin/kovastream
[[ $(timeout 10 "$streamer" --version) == 'kovastream 0.1.0' ]] || fail "kovastream --version"
if [[ ! -e /usr/share/kovastream ]]; then
    said=$(timeout 10 "$streamer" 2>&1 </dev/null)
    [[ $said == *'/usr/share/kovastream/clip.h264'* ]] || fail "without an input: $said"
fi
port=$(free_port) || fail "no free port"
timeout 30 "$streamer" --port "$port" --duration 3 --status json \
    "live=$work/root/usr/share/kovastream/clip.h264+$work/root/usr/share/kovastream/clip.aac" \
    >"$work/stream.json" 2>"$work/stream.err" </dev/null ||
    fail "kovastream: status $?: $(tail -5 "$work/stream.err")"
grep -q '"status" *: *"idle"' "$work/stream.json" || fail "kovastream: $(cat "$work/stream.json")"

# systemd understands the unit (with a program that exists on this machine).
sed "s|/usr/bin/kovastream|$streamer|" "$work/root/lib/systemd/system/kovastream.service" \
    >"$work/kovastream.service"
complaints=$(systemd-analyze verify --man=no "$work/kovastream.service" 2>&1 |
    grep -F "$work/kovastream.service")
[[ -z $complaints ]] || fail "systemd unit: $complaints"

# They go without a trace.
in_root --purge "${packages[@]}"
left=$(cd "$work/root" && find . -path ./var/lib/dpkg -prune -o ! -type d -print)
[[ -z $left ]] || fail "left behind: $left"
