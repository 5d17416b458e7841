"""Tells what bench/fanout.py has measured."""

import json
import subprocess
import time

from machine import description

TABLE = (
    ("Players", "players", "{}"),
    ("Transport", "transport", "{}"),
    ("Path", "path", "{}"),
    ("CPU µs per packet", "microseconds_per_packet", "{:.2f}"),
    ("Ratio", "ratio", "{:.2f}"),
    ("Core", "core", "{:.1%}"),
    ("Loss", "loss", "{:.2%}"),
    ("Worst gap, ms", "worst_gap_ms", "{:.0f}"),
    ("Resident KiB", "resident_kib", "{:.0f}"),
    ("Wake-ups/s", "wakeups_per_second", "{:.0f}"),
)
IDLE_TABLE = (
    ("Server", "path", "{}"),
    ("Idle connections", "connections", "{}"),
    ("Stream pushed", "stream", "{}"),
    ("Core", "core", "{:.2%}"),
    ("Wake-ups/s", "wakeups_per_second", "{:.1f}"),
    ("Resident KiB", "resident_kib", "{:.0f}"),
    ("KiB per connection", "kib_per_connection", "{:.1f}"),
)
JOINERS_TABLE = (
    ("Players", "players", "{}"),
    ("Transport", "transport", "{}"),
    ("Joining", "joiners", "{}"),
    ("Waiting costs 1 ms", "waiting", "{}"),
    ("Worst gap before, ms", "quiet_gap_ms", "{}"),
    ("Worst gap while they join, ms", "joining_gap_ms", "{}"),
    ("Worst gap with all, ms", "together_gap_ms", "{}"),
    ("Late", "late", "{:.2%}"),
    ("Lost", "lost", "{}"),
    ("Longest join, ms", "most_join_ms", "{}"),
    ("Core", "core", "{:.1%}"),
)
LOOPS_TABLE = (
    ("Players", "players", "{}"),
    ("Transport", "transport", "{}"),
    ("Network threads", "threads", "{}"),
    ("CPU µs per packet", "microseconds_per_packet", "{:.2f}"),
    ("Ratio", "ratio", "{:.2f}"),
    ("Least share", "least_share", "{:.1%}"),
    ("Most share", "most_share", "{:.1%}"),
    ("Lost", "lost", "{}"),
)


def cell(value, form):
    if value is None:
        return ""
    if isinstance(value, bool):
        return "yes" if value else "no"
    return form.format(value)


def print_rows(rows, columns):
    print("|", " | ".join(head for head, _, _ in columns), "|")
    print("|---" * len(columns) + "|")
    for row in rows:
        print("|", " | ".join(cell(row[key], form) for _, key, form in columns), "|")


def print_table(rows, seconds):
    print_rows(rows, TABLE)
    faulty = [row for row in rows if row["faulty_players"]]
    print()
    for row in faulty:
        print(
            f"- {row['players']} players, {row['transport']}, {row['path']}:"
            f" {row['faulty_players']} heard nothing or lost their connection."
        )
    full = max((one["players_core"] for row in rows for one in row["samples"]), default=0)
    others = max((one["others_core"] for row in rows for one in row["samples"]), default=0)
    print(
        f"{time.strftime('%Y-%m-%d')}, {description()}; {seconds:.0f} s. The players took at most"
        f" {full:.0%} of their core, other programs {others:.0%} of one."
    )


def print_idle(rows):
    print_rows(rows, IDLE_TABLE)
    print(f"\n{time.strftime('%Y-%m-%d')}, {description()}.")


def print_joiners(rows):
    print_rows(rows, JOINERS_TABLE)
    print(f"\n{time.strftime('%Y-%m-%d')}, {description()}.")


def print_loops(rows):
    print_rows(rows, LOOPS_TABLE)
    print(f"\n{time.strftime('%Y-%m-%d')}, {description()}.")


def print_json(rows, seconds):
    machine = {"date": time.strftime("%Y-%m-%d"), "machine": description(), "seconds": seconds}
    print(json.dumps({**machine, "rows": rows}, indent=1))


def draw(rows, path):
    """Writes the processor time against the players as an SVG file, by gnuplot."""
    transports = list(dict.fromkeys(row["transport"] for row in rows))
    script = [
        f"set terminal svg size {480 * len(transports)},400 dynamic background rgb 'white'",
        f"set output '{path}'",
        f"set multiplot layout 1,{len(transports)}",
        "set key top left",
        "set grid",
        "set xlabel 'players'",
        "set ylabel 'processor time, % of a core'",
        "set xrange [0:*]",
        "set yrange [0:*]",
    ]
    for number, transport in enumerate(transports):
        names = list(dict.fromkeys(row["path"] for row in rows if row["transport"] == transport))
        for line, name in enumerate(names):
            script.append(f"$t{number}l{line} << END")
            script += [
                f"{row['players']} {100 * row['core']:.3f}"
                for row in rows
                if row["transport"] == transport and row["path"] == name
            ]
            script.append("END")
        lines = (f"$t{number}l{n} with linespoints title '{name}'" for n, name in enumerate(names))
        script.append(f"set title 'over {transport.upper()}'")
        script.append("plot " + ", ".join(lines))
    script.append("unset multiplot")
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=True, timeout=60)
