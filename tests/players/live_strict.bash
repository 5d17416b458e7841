# How a strict player is judged over one transport, udp or tcp. Sourced, not run.
. "${KOVA_SOURCE_DIR:?}/tests/players/live.bash"

# strict <name> <transport> <address> [option]...: strict/strict_reader.py tells what is checked
strict() {
    timeout 60 python3 -B "$players/strict/strict_reader.py" "${@:2}" >"$work/$1.out" \
        2>"$work/$1.err"
}

# strict_plays_live <transport>: without a login, with a pause; with both kinds of it
strict_plays_live() {
    local private
    need python3
    with_login
    private=${private_url/$login@/}
    strict open "$1" "$url" --pause &
    pids+=($!)
    strict sha256 "$1" "$private" --login 'viewer:open sesame' --algorithm SHA-256 &
    pids+=($!)
    strict md5 "$1" "$private" --login 'viewer:open sesame' --algorithm MD5 &
    pids+=($!)
    strict wrong "$1" "$private" --login 'viewer:sesame' && fail "a wrong password was good enough"
    grep -q 'DESCRIBE .*: 401, not 200' "$work/wrong.err" || fail "wrong: $(cat "$work/wrong.err")"
    players_end
    cat "$work"/*.out
    await_gone
    all_said_goodbye "$1"
}
