"""Eight players over each transport, three seconds: all tracks arrive, without a gap in the
sequence numbers, sessions are kept alive, and every TEARDOWN is answered."""

import json
import sys

from host_and_load import Host, Load

PLAYERS = 8
SECONDS = 3
BOUND = 90  # the whole test, on the slowest machine

failures = []


def expect(what, seen, wanted):
    if seen != wanted:
        failures.append(f"{what}: {seen}, not {wanted}")


host = Host(BOUND, streams=2, rate=500, sound=True)
options = ["--players", str(PLAYERS), "--seconds", str(SECONDS), "--keep-alive", "1"]
loads = {transport: Load(host.urls, transport, BOUND, options) for transport in ("udp", "tcp")}
for transport, load in loads.items():
    try:
        result = json.loads(load.line())
    except (RuntimeError, ValueError) as error:
        failures.append(f"{transport}: {error}")
        continue
    print(transport, result)
    expect(f"{transport}: players", result["players"], PLAYERS)
    expect(f"{transport}: players without data", result["silent"], 0)
    expect(f"{transport}: lost packets", result["lost"], 0)
    expect(f"{transport}: packets out of order", result["disorder"], 0)
    expect(f"{transport}: broken connections", (result["broken"], result["trouble"]), (0, ""))
    expect(f"{transport}: answers to TEARDOWN", result["left"], PLAYERS)
    # Half of what is pushed is there, on a slow machine too: pictures of 500 kbit/s and sound.
    expect(f"{transport}: enough bytes", result["bytes"] > PLAYERS * SECONDS * 62500 / 2, True)
    expect(f"{transport}: exit status", load.finish(), 0)
expect("the host's exit status", host.finish(), 0)

for failure in failures:
    print("FAILED:", failure)
sys.exit(1 if failures else 0)
