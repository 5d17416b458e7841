"""What several network threads of the live engine take for what one does."""

import os
import statistics
import time

from host_and_load import BUILD, Load, Server
from servers import MOST_SECONDS

PLAYERS = 200
FLOWING = 0.5  # seconds until players have what they play


def thread_seconds(pid):
    """Processor time of each network thread so far."""
    seconds = {}
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/comm", encoding="ascii") as name:
            if not name.read().startswith("kova-live-"):
                continue
        with open(f"/proc/{pid}/task/{task}/schedstat", encoding="ascii") as stat:
            seconds[task] = int(stat.read().split()[0]) / 1e9
    return seconds


def sample(threads, transport, players, options, cores):
    """Microseconds of all network threads for a packet, and the share of each."""
    command = [f"{BUILD}/kova_live_host", "-t", str(threads), "-k", str(options.rate)]
    programs = [Server(command, MOST_SECONDS, core=cores[0])]
    server = programs[0]
    try:
        load = Load(server.urls, transport, MOST_SECONDS, ["--obey"], core=cores[1])
        programs.append(load)
        joined = load.ask(f"players {players}")
        if joined["players"] != players:
            raise RuntimeError(f"{players} players could not join: {joined}")
        time.sleep(FLOWING)
        before = thread_seconds(server.process.pid)
        result = load.ask(f"measure {options.seconds}")
        after = thread_seconds(server.process.pid)
    finally:
        for program in reversed(programs):
            program.stop()
    taken = [after[task] - before[task] for task in sorted(after, key=int)]
    if len(taken) != threads:
        raise RuntimeError(f"{len(taken)} network threads, not {threads}")
    return {
        "microseconds_per_packet": 1e6 * sum(taken) / max(1, result["packets"]),
        "shares": [one / sum(taken) for one in taken],
        "lost": result["lost"],
    }


def measure_loops(threads, options, cores):
    """A row for one thread and one for several, for each transport. Medians of the repeats; a ratio
    is taken within a repeat."""
    rows = []
    for transport in options.transports:
        samples = {count: [] for count in (1, threads)}
        for _ in range(options.repeats):
            for count in samples:
                samples[count].append(sample(count, transport, PLAYERS, options, cores))
        key = "microseconds_per_packet"
        for count, taken in samples.items():
            ratios = [one[key] / base[key] for one, base in zip(taken, samples[1])]
            rows.append(
                {
                    "transport": transport,
                    "players": PLAYERS,
                    "threads": count,
                    key: statistics.median(one[key] for one in taken),
                    "ratio": statistics.median(ratios),
                    "least_share": statistics.median(min(one["shares"]) for one in taken),
                    "most_share": statistics.median(max(one["shares"]) for one in taken),
                    "lost": sum(one["lost"] for one in taken),
                    "samples": taken,
                }
            )
    return rows
