# Helpers of the tests that are shell scripts. Sourced, not run.
set -uo pipefail
export LC_ALL=C

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# A tool that is missing is a failure.
need() {
    local tool
    for tool in "$@"; do
        command -v "$tool" >/dev/null || fail "$tool is not installed"
    done
}

# Below the ports that the system gives to clients: none of a retrying player's connections can have
# the port of a host that is away, and connect to itself.
free_port() {
    python3 - <<'END'
import random, socket
for port in random.sample(range(20000, 32000), 100):
    with socket.socket() as probe:
        try:
            probe.bind(("", port))
        except OSError:
            continue
        print(port)
        break
else:
    raise SystemExit(1)
END
}

# await <seconds> <command>...: until the command succeeds
await() {
    local tries=$(($1 * 10))
    shift
    for (( ; tries > 0; tries--)); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}

has_ended() { ! kill -0 "$1" 2>/dev/null; }

# end <seconds> <pid>: lets a child of ours end, and is its status; after that time it is killed
end() {
    kill -TERM "$2" 2>/dev/null
    await "$1" has_ended "$2" || kill -KILL "$2"
    wait "$2"
}
