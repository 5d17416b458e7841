"""What players notice of a crowd that joins."""

import time

from host_and_load import Load, Watch
from servers import LIBRARY, MOST_SECONDS, UNPAID

PLAYING = 20
PACE = 200  # who join in a second
SETTLED = 1.4  # seconds until the first packets of a new rate have come out
QUIET = 5  # seconds without anybody who joins, before and after
AFTER = 2  # seconds after its last


def join_row(servers, name, transport, count, options, cores):
    programs = [servers.start(name)]
    server = programs[0]
    try:
        server.set_rate(options.rate)
        players = Load(server.urls, transport, MOST_SECONDS, ["--obey"], core=cores[1])
        programs.append(players)
        players.ask(f"players {PLAYING}")
        time.sleep(SETTLED)
        quiet = players.ask(f"measure {QUIET}")
        pace = ["--obey", "--pace", str(PACE)]
        crowd = Load(server.urls, transport, MOST_SECONDS, pace, core=cores[1])
        programs.append(crowd)
        seen = Watch(server)
        crowd.begin(f"players {count}")
        joining = players.ask(f"measure {count / PACE + AFTER}")
        figures = seen.end()
        joined = crowd.answer()
        together = players.ask(f"measure {QUIET}")
    finally:
        for program in reversed(programs):
            program.stop()
    return {
        "transport": transport,
        "waiting": name == LIBRARY,
        "players": PLAYING,
        "joiners": joined["players"],
        "quiet_gap_ms": quiet["worst_gap_ms"],
        "joining_gap_ms": joining["worst_gap_ms"],
        "together_gap_ms": together["worst_gap_ms"],
        "late": joining["late"] / max(1, joining["packets"]),
        "lost": quiet["lost"] + joining["lost"],
        "most_join_ms": joined["most_join_ms"],
        "core": figures["core"],
    }


def measure_joiners(servers, count, options, cores):
    """A row for each transport and for each way of paying for those who wait."""
    return [
        join_row(servers, name, transport, count, options, cores)
        for transport in options.transports
        for name in (LIBRARY, UNPAID)
    ]
