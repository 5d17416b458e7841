# Helpers of the player tests: a host that streams the sample clip, and how to judge a player.
# Sourced, not run.
. "${KOVA_SOURCE_DIR:?}/tests/support/checks.bash"
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

# A host ends on SIGTERM within its shut-down time; every wait here has an end.
stop_host() {
    local status
    [[ -n $host_pid ]] || return 0
    end 10 "$host_pid"
    status=$?
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

host_is_ready() { grep -aEq '^clients -?[0-9]+, [0-9]+ kbit/s, (idle|flowing)$' "$work/host.log"; }

ready_or_ended() { "$1" || has_ended "$host_pid"; }

# start_server <port> <ready> <command>...: runs the command, with the port where it says PORT, and
# waits until the command <ready> succeeds. Without a port it takes a free one.
start_server() {
    local fixed=$1 ready=$2
    shift 2
    need python3 timeout
    for _ in 1 2 3 4 5; do
        port=${fixed:-$(free_port)}
        [[ -n $port ]] || fail "no free port"
        url=rtsp://127.0.0.1:$port/live
        : >"$work/host.log"
        "${@/#PORT/$port}" >"$work/host.log" 2>"$work/host.err" </dev/null &
        host_pid=$!
        await 10 ready_or_ended "$ready" || fail "the host shows no idle stream"
        "$ready" && return 0
        wait "$host_pid"
        host_pid=
        grep -q 'is taken' "$work/host.err" || fail "the host ended: $(cat "$work/host.err")"
        [[ -z $fixed ]] || fail "port $fixed is taken"
    done
    fail "no free port in five attempts"
}

run_host() {
    [[ -x $host_program ]] || fail "$host_program is not built"
    start_server "$1" host_is_ready \
        "${host_runner[@]}" "$host_program" -p PORT "$clip_h264" "$clip_aac"
}

# The sample clip, on a free port, and on the port where it was before.
start_host() { run_host ''; }
start_host_again() { run_host "$port"; }

# shown_behind <lines> <pattern>: whether a status line behind so many of them matches
shown_behind() { grep -a '^clients ' "$work/host.log" | tail -n "+$(($1 + 1))" | grep -Eq "$2"; }

# await_status <pattern> <seconds>: until a new status line of the host matches
await_status() {
    local pattern=$1 seconds=$2 seen
    seen=$(grep -ac '^clients ' "$work/host.log")
    await "$seconds" shown_behind "$seen" "$pattern" ||
        fail "the host never showed '$pattern'; last: $(grep -a '^clients ' "$work/host.log" | tail -1)"
}

# judge <name>: the player's messages must be empty. FFmpeg's library draws its UDP ports at random,
# and says so when somebody on this machine has one already; it takes the next one then.
judge() {
    if grep -v 'bind failed: Address already in use' "$work/$1.err"; then
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

# judge_whole <name>: no message, and no frame missing. FFmpeg gives the first picture no time of
# its own; all others are one 25th of a second apart, the sound's frames 21 or 22 ms.
judge_whole() {
    judge "$1"
    awk -F ', *' -v name="$1" '
        /^[01],/ {
            if (++count[$1] > 2 - $1) steps[$1, $2 - last[$1]]++
            last[$1] = $2
        }
        END {
            printf "%s: %d pictures, %d sound frames\n", name, count[0], count[1]
            for (step in steps) {
                split(step, part, SUBSEP)
                good = part[1] == 0 ? part[2] == 1 : part[2] == 1008 || part[2] == 1056
                if (!good) { print "FAILED: track " part[1] ": a step of " part[2]; bad = 1 }
            }
            exit bad || count[0] < 50 || count[1] < 90
        }' "$work/$1.frames" || fail "$1 has gaps or is too short"
}

# judge_frames <name> <seconds>: no message, no gap, and as many frames as that time has. A player
# begins with the next key frame (at most a second away), the sound with the next packet.
judge_frames() {
    local pictures sounds
    judge_whole "$1"
    pictures=$(frames "$1" 0)
    sounds=$(frames "$1" 1)
    ((pictures >= 24 * ($2 - 1) && pictures <= 26 * $2)) || fail "$1: $pictures pictures"
    ((sounds >= 45 * ($2 - 1) && sounds <= 49 * $2)) || fail "$1: $sounds sound frames"
}
