"""scripts/bench fanout with two players, with connections that ask for nothing, with players who join
others, and with two network threads: each path that this machine has is measured, and whatever is sent arrives. Nothing here
depends on the figures."""

import json
import os
import socket
import subprocess
import sys
import tempfile

from host_and_load import BUILD

PLAYERS = 2
CONNECTIONS = 5
JOINERS = 4
BOUND = 240  # the whole test, on the slowest machine
UDP_SEGMENT = 103

failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen}, not {wanted}")


def cuts_datagrams():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        try:
            probe.setsockopt(socket.IPPROTO_UDP, UDP_SEGMENT, 1400)
            return True
        except OSError:
            return False


def start(*options):
    command = [sys.executable, "-B", os.path.join(os.path.dirname(__file__), "fanout.py")]
    return subprocess.Popen([*command, *options, "--json"], stdout=subprocess.PIPE, text=True)


def rows_of(process):
    try:
        output, _ = process.communicate(timeout=BOUND)
    except subprocess.TimeoutExpired:
        process.kill()  # the programs that it started end with it: nobody tells them anything
        raise
    expect(f"exit status of {process.args}", process.returncode, 0)
    return json.loads(output)["rows"] if process.returncode == 0 else []


peers = ["live", *(["GStreamer"] if os.path.exists(f"{BUILD}/kova_gst_server") else [])]
udp = ["library", *peers, "sendto", "sendmmsg", *(["gso"] if cuts_datagrams() else [])]
tcp = ["library", *peers, "send", "writev"]

with tempfile.TemporaryDirectory() as folder:
    plot = os.path.join(folder, "fanout.svg")
    sizes = ["--players", str(PLAYERS), "--repeats", "1", "--seconds", "3", "--rate", "500"]
    playing = start(*sizes, "--plot", plot)
    idle = start("--idle", str(CONNECTIONS), "--seconds", "1")
    joining = start("--joiners", str(JOINERS))
    played_rows, idle_rows = rows_of(playing), rows_of(idle)
    joining_rows = rows_of(joining)
    loops_rows = rows_of(start("--loops", "2", "--repeats", "1", "--seconds", "1", "--rate", "300"))
    with open(plot, encoding="utf-8") as drawn:
        picture = drawn.read()

paths = [(row["transport"], row["path"]) for row in played_rows]
expect("paths", paths, [*(("udp", name) for name in udp), *(("tcp", name) for name in tcp)])
for row in played_rows:
    name = f"{row['transport']}, {row['path']}"
    print(name, {key: value for key, value in row.items() if key != "samples"})
    expect(f"{name}: players", row["players"], PLAYERS)
    expect(f"{name}: packets came", row["packets"] > 0, True)
    expect(f"{name}: loss", row["loss"], 0)
    expect(f"{name}: players without data", row["faulty_players"], 0)
    for key in ("microseconds_per_packet", "ratio", "core", "worst_gap_ms", "resident_kib"):
        expect(f"{name}: {key} is measured", row[key] > 0, True)
    expect(f"{name}: wake-ups are measured", row["wakeups_per_second"] > 0, True)
    if row["path"] in ("sendto", "send"):
        expect(f"{name}: ratio to itself", row["ratio"], 1)
for name in {*udp, *tcp}:
    expect(f"{name} in the plot", f">{name}<" in picture, True)

servers = ["library", *peers]
cases = [(name, count, False) for name in servers for count in (0, CONNECTIONS)]
seen = [(row["path"], row["connections"], row["stream"]) for row in idle_rows]
expect("idle servers", seen, [*cases, ("library", 0, True)])

cases = [(transport, waiting) for transport in ("udp", "tcp") for waiting in (True, False)]
expect("joined", [(row["transport"], row["waiting"]) for row in joining_rows], cases)
for row in joining_rows:
    print("joining", row)
    expect("joiners", row["joiners"], JOINERS)
    expect("lost while they join", row["lost"], 0)
    for key in ("quiet_gap_ms", "joining_gap_ms", "together_gap_ms"):
        expect(f"{key} is measured", row[key] > 0, True)

cases = [(transport, threads) for transport in ("udp", "tcp") for threads in (1, 2)]
expect("loops", [(row["transport"], row["threads"]) for row in loops_rows], cases)
for row in loops_rows:
    print("loops", row)
    expect("each thread works", row["least_share"] > 0, True)
    expect("shares of all threads", round(sum(row["samples"][0]["shares"]), 6), 1)
    if row["threads"] == 1:
        expect("ratio to itself", row["ratio"], 1)

for failure in failures:
    print("FAILED:", failure)
sys.exit(1 if failures else 0)
