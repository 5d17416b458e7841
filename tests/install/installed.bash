# Helpers of the installation tests: a folder to work in, and the example host built elsewhere.
# Sourced, not run.
. "${KOVA_SOURCE_DIR:?}/tests/support/checks.bash"
. "$KOVA_SOURCE_DIR/tests/support/exports.bash"
source=${KOVA_SOURCE_DIR:?}
build=${KOVA_BUILD_DIR:?}
example=$source/examples/minimal_host.c
strict=(-std=c99 -Wall -Wextra -pedantic -Werror)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# install_into <prefix> [argument]...: what a host is built with, from the build at hand
install_into() {
    local prefix=$1 component
    shift
    for component in Runtime Development; do
        cmake --install "$build" --prefix "$prefix" --component $component "$@" \
            >"$work/install.log" 2>&1 || fail "cmake --install: $(cat "$work/install.log")"
    done
}

# linked_with <program>: the libraries that it needs, by name
linked_with() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'; }

# runs <name> <command>...: the host streams the clip for 3 s, shows an idle stream, which takes
# the clip's parameters, and ends with 0.
runs() {
    local name=$1 port attempt status
    shift
    need python3 timeout
    for attempt in 1 2 3 4 5; do
        port=$(free_port) || fail "no free port"
        timeout 30 "$@" -p "$port" -s 3 "$source/samples/clip.h264" "$source/samples/clip.aac" \
            >"$work/$name.out" 2>"$work/$name.err" </dev/null
        status=$?
        grep -q 'the port is taken' "$work/$name.err" || break
    done
    ((status == 0)) || fail "$name: status $status: $(tail -5 "$work/$name.err" "$work/$name.out")"
    grep -aq '^clients 0, 0 kbit/s, idle$' "$work/$name.out" ||
        fail "$name shows no idle stream: $(tail -5 "$work/$name.out")"
    echo "$name: ran"
}
