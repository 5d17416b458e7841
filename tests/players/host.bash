# Helpers of the player tests: a host that streams the sample clip, and how to judge a player.
# Sourced, not run. A tool that is missing is a failure.
set -uo pipefail
export LC_ALL=C
host_program=${KOVA_BUILD_DIR:?}/kova_minimal_host
clip_h264=${KOVA_SOURCE_DIR:?}/samples/clip.h264
clip_aac=${KOVA_SOURCE_DIR:?}/samples/clip.aac
players=${KOVA_SOURCE_DIR:?}/tests/players
# A host for another processor is run by KOVA_EMULATOR, a command with its arguments.
read -ra host_runner <<<"${KOVA_EMULATOR:-stdbuf -oL}"
work=$(mktemp -d)
host_pid=
port=
url=
pids=() # players in the background

fail() {
    echo "FAILED: $*"
    exit 1
}

need() {
    local tool
    for tool in "$@"; do
        command -v "$tool" >/dev/null || fail "$tool is not installed"
    done
}

# A host ends on SIGTERM within its shut-down time; every wait here has an end.
stop_host() {
    local tries
    [[ -n $host_pid ]] || return 0
    kill -TERM "$host_pid" 2>/dev/null
    for ((tries = 0; tries < 100; tries++)); do
        kill -0 "$host_pid" 2>/dev/null || break
        sleep 0.1
    done
    if kill -0 "$host_pid" 2>/dev/null; then
        kill -KILL "$host_pid"
        wait "$host_pid" 2>/dev/null
        host_pid=
        return 1
    fi
    wait "$host_pid"
    local status=$?
    host_pid=
    return $status
}

clean_up() {
    local status=$? pid
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null
    done
    stop_host || { echo "FAILED: the host did not end cleanly"; status=1; }
    if ((status != 0)) && [[ -s $work/host.log ]]; then
        echo "---- the host's last lines"
        grep -av 'Client Waiting' "$work/host.log" | tail -20
    fi
    rm -rf "$work"
    exit $status
}
trap clean_up EXIT

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("", 0)); print(s.getsockname()[1])'
}

# Starts the host on a free port and waits until its stream has a description.
start_host() {
    local attempt tries
    need python3 timeout
    [[ -x $host_program ]] || fail "$host_program is not built"
    for attempt in 1 2 3 4 5; do
        port=$(free_port) || fail "no free port"
        url=rtsp://127.0.0.1:$port/live
        : >"$work/host.log"
        "${host_runner[@]}" "$host_program" -p "$port" "$clip_h264" "$clip_aac" \
            >"$work/host.log" 2>"$work/host.err" </dev/null &
        host_pid=$!
        for ((tries = 0; tries < 100; tries++)); do
            grep -aq 'clients 0, 0 kbit/s, idle' "$work/host.log" && return 0
            kill -0 "$host_pid" 2>/dev/null || break
            sleep 0.1
        done
        kill -0 "$host_pid" 2>/dev/null && fail "the host shows no idle stream"
        wait "$host_pid"
        host_pid=
        grep -q 'the port is taken' "$work/host.err" || fail "the host ended: $(cat "$work/host.err")"
    done
    fail "no free port in five attempts"
}

# Waits until a new status line of the host matches.
await_status() {
    local pattern=$1 seconds=$2 seen tries
    seen=$(grep -ac '^clients ' "$work/host.log")
    for ((tries = 0; tries < seconds * 10; tries++)); do
        grep -a '^clients ' "$work/host.log" | tail -n "+$((seen + 1))" | grep -Eq "$pattern" &&
            return 0
        sleep 0.1
    done
    fail "the host never showed '$pattern'; last: $(grep -a '^clients ' "$work/host.log" | tail -1)"
}

# judge <name>: the player's messages must be empty
judge() {
    if [[ -s $work/$1.err ]]; then
        cat "$work/$1.err"
        fail "$1 complained"
    fi
}

# decode <name> <transport> <seconds>: decodes picture and sound, one line per frame
decode() {
    timeout 60 ffmpeg -nostdin -xerror -v error -rtsp_transport "$2" -i "$url" -t "$3" \
        -map 0:v -map 0:a -fps_mode passthrough -f framecrc -y "$work/$1.frames" \
        2>"$work/$1.err" </dev/null
}

# frames <name> <track>: the number of decoded frames (0 the picture, 1 the sound)
frames() { grep -c "^$2," "$work/$1.frames"; }

# judge_frames <name> <seconds>: no message, and as many frames as that time has. A player begins
# with the next key frame (at most a second away), the sound with the next packet.
judge_frames() {
    local pictures sounds
    judge "$1"
    pictures=$(frames "$1" 0)
    sounds=$(frames "$1" 1)
    echo "$1: $pictures pictures, $sounds sound frames in $2 s"
    ((pictures >= 24 * ($2 - 1) && pictures <= 26 * $2)) || fail "$1: $pictures pictures"
    ((sounds >= 45 * ($2 - 1) && sounds <= 49 * $2)) || fail "$1: $sounds sound frames"
}
