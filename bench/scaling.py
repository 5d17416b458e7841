"""How many players one process on one core serves. Prints Markdown tables; docs/scaling.md tells
how to read them.

    scaling.py [--rates KBITS,...] [--limit SECONDS]

The host is pinned to one core and the players to another. For each transport and bit rate, the
host's processor time is measured with few players; then the most players are searched for whom no
packet is lost or late while the host takes less than 90 % of its core.
"""

import argparse
import os
import sys
import time

from host_and_load import Host, Load
from machine import core_busy, description, pick_cores

MOST = 1024  # playing clients of one server
FEW = (1, 64)
FULL = 0.90  # of the host's core
AIM = 0.72  # what the next guess aims at
NEAR = 1.12  # bad over good, at which the search ends
STEPS = 6  # of one search
FLOWING = 1.4  # seconds until a new rate has come out of the one second of delay
SPAN = 1.5  # seconds of one measurement
LATE = 200  # milliseconds


HOST_CORE, LOAD_CORE = pick_cores()


def both_busy():
    return sum(core_busy(core) for core in {HOST_CORE, LOAD_CORE})


class Point:
    """One measurement."""

    def __init__(self, players, result, seconds, host_cpu, busy):
        """busy: seconds of both cores together"""
        self.players = players
        self.packets = result["packets"]
        self.cpu = host_cpu / seconds
        self.load_cpu = result["cpu"] / seconds
        self.others = max(0.0, busy / seconds - self.cpu - self.load_cpu)
        self.per_packet = host_cpu / max(1, result["packets"])
        faults = [
            f"{result['lost']} lost" * (result["lost"] > 0),
            f"{100 * result['late'] / max(1, self.packets):.0f} % late" * (result["late"] > 0),
            f"{result['silent']} without data" * (result["silent"] > 0),
            f"{result['broken']} broken" * (result["broken"] > 0),
            f"{result['players']} joined" * (result["players"] != players),
            f"core {100 * self.cpu:.0f} %" * (self.cpu >= FULL),
            f"players' core {100 * self.load_cpu:.0f} %" * (self.load_cpu >= FULL),
        ]
        self.faults = ", ".join(fault for fault in faults if fault)
        self.cpu = max(self.cpu, 1e-6)
        self.most_late = result["most_late_ms"]


class Bench:
    """One host and its players, over one transport."""

    def __init__(self, transport, streams=1):
        self.host = Host(600, streams=streams, core=HOST_CORE)
        options = ["--obey", "--late", str(LATE)]
        self.load = Load(self.host.urls, transport, 600, options, core=LOAD_CORE)
        self.broken = 0

    def point(self, players, rate):
        joined = self.load.ask(f"players {players}")
        if not joined["done"]:
            raise RuntimeError(f"{players} players could not join: {joined}")
        self.host.set_rate(rate)
        time.sleep(FLOWING)
        begin, cpu, busy = time.monotonic(), self.host.cpu(), both_busy()
        result = self.load.ask(f"measure {SPAN}")
        seconds = time.monotonic() - begin
        result["broken"], self.broken = result["broken"] - self.broken, result["broken"]
        point = Point(players, result, seconds, self.host.cpu() - cpu, both_busy() - busy)
        self.host.set_rate(0)
        if not self.load.ask("settle 10")["done"]:
            point.faults += ", does not recover"
        print(
            f"  {players:5} players: core {100 * point.cpu:5.1f} %,"
            f" {1e6 * point.per_packet:5.2f} us a packet, latest {point.most_late} ms,"
            f" players' core {100 * point.load_cpu:3.0f} %, others {100 * point.others:3.0f} %"
            f"  {point.faults}",
            file=sys.stderr,
        )
        return point

    def finish(self):
        last = self.load.ask("quit")
        if self.load.finish() != 0 or self.host.finish() != 0 or not last["done"]:
            raise RuntimeError(f"the end was not clean: {last}")


class Row:
    """All about one transport and bit rate."""

    def __init__(self, transport, rate):
        self.transport = transport
        self.rate = rate
        self.few = {}
        self.best = None
        self.bad = None
        self.late = False  # the time was up

    def take(self, point):
        if point.faults:
            if self.bad is None or point.players < self.bad.players:
                self.bad = point
        elif self.best is None or point.players > self.best.players:
            self.best = point
        # Fewer players failed than others went well with: that was no fault of theirs.
        if self.best and self.bad and self.bad.players <= self.best.players:
            self.bad = None

    def guess(self):
        """The next number to try, or nothing."""
        if self.best is None or self.best.players == MOST:
            return None
        good = self.best.players
        bad = self.bad.players if self.bad else MOST + 1
        if self.bad and bad <= good * NEAR:
            return None
        aimed = min(4 * good, int(good * AIM / max(self.best.cpu, 0.001)))
        if aimed <= good * 1.1 or aimed >= bad:
            aimed = (good + bad) // 2 if self.bad else int(good * 1.25)
        return min(MOST, aimed)


def search(bench, transport, rate, until):
    row = Row(transport, rate)
    print(f"{transport} {rate} kbit/s", file=sys.stderr)
    retried = False
    for players in FEW:
        point = bench.point(players, rate)
        # What few players cannot be served was disturbed.
        row.few[players] = bench.point(players, rate) if point.faults else point
        row.take(row.few[players])
    for _ in range(STEPS):
        players = row.guess()
        if players is None:
            break
        if time.monotonic() > until:
            row.late = True
            break
        point = bench.point(players, rate)
        # One that failed while the core had room may have been disturbed.
        if point.faults and point.cpu < FULL and not retried:
            retried = True
            point = bench.point(players, rate)
        row.take(point)
    return row


def spread(rate):
    """One stream for sixteen players, and sixteen streams with one each."""
    points = []
    for streams in (1, 16):
        print(f"udp {rate} kbit/s, {streams} stream(s)", file=sys.stderr)
        bench = Bench("udp", streams)
        points.append(bench.point(16, rate))
        bench.finish()
    return points


def percent(share):
    return f"{100 * share:.1f} %" if share < 0.0995 else f"{100 * share:.0f} %"


def print_tables(rows, spread_points, spread_rate):
    head = [f"{n} player{'s' * (n > 1)}" for n in FEW]
    head = ["Transport", "Mbit/s each", *head, "Most players", "Core then", "Why no more"]
    print("|", " | ".join(head), "|")
    print("|---" * (len(FEW) + 5) + "|")
    for row in rows:
        few = " | ".join(percent(row.few[n].cpu) for n in FEW)
        most, core = ("none", "") if row.best is None else (row.best.players, percent(row.best.cpu))
        why = f"{row.bad.players}: {row.bad.faults}" if row.bad else "not tried"
        if row.best and row.best.players == MOST:
            why = "the library's maximum"
        elif row.late:
            why += " (time was up)"
        name = row.transport.upper()
        print(f"| {name} | {row.rate / 1000:g} | {few} | {most} | {core} | {why} |")
    print()
    print("| Transport | Mbit/s each | Core for a player and Mbit/s | Microseconds a packet |")
    print("|---|---|---|---|")
    for row in rows:
        at = row.best or row.few[FEW[-1]]
        cost = at.cpu / at.players / (row.rate / 1000)
        print(
            f"| {row.transport.upper()} | {row.rate / 1000:g} | {100 * cost:.3f} %"
            f" | {1e6 * at.per_packet:.1f} |"
        )
    print()
    for rate in sorted({row.rate for row in rows}):
        cpu = {row.transport: row.few[FEW[-1]].cpu for row in rows if row.rate == rate}
        if len(cpu) == 2:
            print(
                f"- {FEW[-1]} players at {rate / 1000:g} Mbit/s: TCP takes"
                f" {cpu['tcp'] / cpu['udp']:.2f} times the processor time of UDP."
            )
    one, many = spread_points
    print(
        f"- 16 players at {spread_rate / 1000:g} Mbit/s over UDP: {percent(one.cpu)} for one stream"
        f" that all play, {percent(many.cpu)} for 16 streams with one player each"
        f" ({many.cpu / one.cpu:.1f} times)."
    )


def print_machine(rows, seconds):
    points = [p for row in rows for p in [*row.few.values(), row.best, row.bad] if p]
    others = max(point.others for point in points)
    print()
    print(
        f"{time.strftime('%Y-%m-%d')}, {description()};"
        f" {seconds:.0f} s. Other programs took at most {percent(others)} of a core"
        f"{': the numbers of players are lower bounds' * (others > 0.1)}."
    )


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--rates", default="500,2000,4000,8000")
    parser.add_argument("--limit", type=float, default=230)
    options = parser.parse_args()
    rates = [int(rate) for rate in options.rates.split(",")]
    os.sched_setaffinity(0, {LOAD_CORE})
    begin = time.monotonic()
    spread_points = spread(2000)
    rows = []
    searches = [(transport, rate) for transport in ("udp", "tcp") for rate in rates]
    bench = None
    for number, (transport, rate) in enumerate(searches):
        if number % len(rates) == 0:
            bench = Bench(transport)
        # Each may take its share of the time that is left.
        left = begin + options.limit - time.monotonic()
        share = left / (len(searches) - number)
        rows.append(search(bench, transport, rate, time.monotonic() + share - 4))
        if number % len(rates) == len(rates) - 1:
            bench.finish()
    print_tables(rows, spread_points, 2000)
    print_machine(rows, time.monotonic() - begin)


main()
