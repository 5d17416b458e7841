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
