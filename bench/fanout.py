"""What it costs to send one stream to many players: the library, other servers, and bare loops over
the same packets. docs/scaling.md tells how to read the table.

    fanout.py [--players N,...] [--transports udp,tcp] [--paths NAME,...] [--repeats N]
              [--seconds S] [--rate KBITS] [--json] [--plot [FILE]]
    fanout.py --idle N [--seconds S] [--json]
    fanout.py --joiners N [--transports udp,tcp] [--rate KBITS] [--json]
    fanout.py --loops N [--transports udp,tcp] [--repeats N] [--seconds S] [--rate KBITS] [--json]

The server is pinned to one core and the players, all in another process, to another. Each
measurement has a server of its own, and all servers take their turns, so that what disturbs
the machine for a while disturbs all of them. Figures are medians of the repeats.
"""

import argparse
import os
import shutil
import statistics
import sys
import tempfile
import time

from fanout_report import draw, print_idle, print_joiners, print_json, print_loops, print_table
from host_and_load import Load, Watch
from idle import measure_idle
from joiners import measure_joiners
from loops import measure_loops
from machine import core_busy, pick_cores
from servers import BARE, BASE, MOST_SECONDS, Servers

FLOWING = 1.4  # seconds until a new rate has come out of the library's one second of delay
PLOT = "docs/fanout.svg"
RATE = 4000  # kbit/s of the pictures
JOINERS_RATE = 300  # or a thousand players would fill their core


def busy(cores):
    return sum(core_busy(core) for core in set(cores))


def watch(server, load, seconds, cores):
    """One measurement of players who are there."""
    both, seen = busy(cores), Watch(server)
    result = load.ask(f"measure {seconds}")
    figures = seen.end()
    others = busy(cores) - both - figures["cpu_seconds"] - result["cpu"]
    packets = max(1, result["packets"])
    return {
        **figures,
        "packets": result["packets"],
        "bytes": result["bytes"],
        "microseconds_per_packet": 1e6 * figures["cpu_seconds"] / packets,
        "loss": result["lost"] / (result["lost"] + packets),
        "worst_gap_ms": result["worst_gap_ms"],
        "players_core": result["cpu"] / figures["seconds"],
        "others_core": max(0.0, others / figures["seconds"]),
        "faulty_players": result["silent"] + result["broken"],
    }


def sample(servers, name, transport, players, options):
    """One measurement, from the start of a server to its end."""
    cores = pick_cores()
    programs = [servers.start(name)]
    server = programs[0]
    try:
        load = Load(server.urls, transport, MOST_SECONDS, ["--obey"], core=cores[1])
        programs.append(load)
        joined = load.ask(f"players {players}")
        if not joined["done"] or joined["players"] != players:
            raise RuntimeError(f"{players} players could not join: {joined}")
        server.set_rate(options.rate)
        time.sleep(FLOWING)
        figures = watch(server, load, options.seconds, cores)
        server.set_rate(0)
        load.ask("quit")
        load.finish()
        server.finish()
    finally:
        for program in reversed(programs):
            program.stop()
    print(
        f"  {players:5} {transport} {name:10} {figures['microseconds_per_packet']:6.2f} us a packet,"
        f" core {100 * figures['core']:5.1f} %, players' core {100 * figures['players_core']:3.0f} %,"
        f" others {100 * figures['others_core']:3.0f} %",
        file=sys.stderr,
    )
    return figures


def measure(servers, names, transport, players, options):
    """A row for each server, but for those that could not serve so many. Ratios are taken within a
    repeat: its measurements are neighbours."""
    samples = {name: [] for name in names}
    for _ in range(options.repeats):
        for name in list(samples):
            try:
                samples[name].append(sample(servers, name, transport, players, options))
            except (RuntimeError, OSError) as trouble:
                print(f"fanout: {name} is left out: {trouble}", file=sys.stderr)
                del samples[name]
    rows = []
    for name in samples:
        row = {"players": players, "transport": transport, "path": name}
        for key in samples[name][0]:
            row[key] = statistics.median(one[key] for one in samples[name])
        row["loss"] = statistics.mean(one["loss"] for one in samples[name])
        row["faulty_players"] = sum(one["faulty_players"] for one in samples[name])
        pairs = zip(samples[name], samples.get(BASE[transport], []))
        key = "microseconds_per_packet"
        ratios = [one[key] / base[key] for one, base in pairs]
        row["ratio"] = statistics.median(ratios) if ratios else None
        row["samples"] = samples[name]
        rows.append(row)
    return rows


def measure_all(servers, options):
    servers.make_clip(options.rate)
    rows = []
    for transport in options.transports:
        names = servers.here(transport)
        if options.paths:
            names = [name for name in names if name in options.paths]
        for players in options.players:
            rows += measure(servers, names, transport, players, options)
    return rows


def numbers(text):
    return [int(number) for number in text.split(",")]


def words(text):
    return text.split(",")


def read_options():
    parser = argparse.ArgumentParser(
        prog="scripts/bench fanout",
        description="What it costs to send one stream to many players.",
    )
    parser.add_argument("--players", type=numbers, default=[50, 100, 200, 400])
    parser.add_argument("--transports", type=words, default=list(BARE))
    parser.add_argument("--paths", type=words, help="only these, as the table names them")
    parser.add_argument("--repeats", type=int, default=5)
    parser.add_argument("--seconds", type=float, help="of one measurement (2; 5 with --idle)")
    parser.add_argument("--rate", type=int, help=f"kbit/s of the pictures ({RATE})")
    parser.add_argument("--idle", type=int, metavar="N", help="N connections that ask for nothing")
    parser.add_argument("--joiners", type=int, metavar="N", help="N players who come to others")
    parser.add_argument("--loops", type=int, metavar="N", help="N network threads, and one")
    parser.add_argument("--json", action="store_true", help="instead of a table")
    parser.add_argument("--plot", nargs="?", const=PLOT, metavar="FILE", help=f"({PLOT})")
    options = parser.parse_args()
    if options.seconds is None:
        options.seconds = 2 if options.idle is None else 5
    if options.rate is None:
        options.rate = RATE if options.joiners is None else JOINERS_RATE
    special = [options.idle, options.joiners, options.loops]
    if sum(one is not None for one in special) > 1:
        parser.error("one of --idle, --joiners and --loops at a time")
    if not set(options.transports) <= set(BARE) or min(options.players) < 1 or options.repeats < 1:
        parser.error("transports are udp and tcp; there is one player and one repeat at least")
    if options.plot and (special != [None] * 3 or not shutil.which("gnuplot")):
        parser.error("a plot needs gnuplot, and players")
    return options


def main():
    options = read_options()
    cores = pick_cores()
    os.sched_setaffinity(0, {cores[1]})
    begin = time.monotonic()
    with tempfile.TemporaryDirectory() as folder:
        servers = Servers(os.path.join(folder, "clip"), cores[0])
        if options.idle is not None:
            rows = measure_idle(servers, options.idle, options.seconds)
        elif options.joiners is not None:
            rows = measure_joiners(servers, options.joiners, options, cores)
        elif options.loops is not None:
            rows = measure_loops(options.loops, options, cores)
        else:
            rows = measure_all(servers, options)
    seconds = time.monotonic() - begin
    if options.json:
        print_json(rows, seconds)
    elif options.idle is not None:
        print_idle(rows)
    elif options.joiners is not None:
        print_joiners(rows)
    elif options.loops is not None:
        print_loops(rows)
    else:
        print_table(rows, seconds)
    if options.plot:
        draw(rows, options.plot)
    if not rows:
        sys.exit("fanout: nothing could be measured")


main()
