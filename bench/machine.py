"""What a measurement has to know of the machine."""

import os
import subprocess


def pick_cores():
    """One for the server and one for its players: two where there are two."""
    cores = sorted(os.sched_getaffinity(0))
    return cores[0], cores[-1]


def core_busy(core):
    """Seconds that a core has spent on anything, or that the machine below took away."""
    with open("/proc/stat", encoding="ascii") as stat:
        for line in stat:
            if line.startswith(f"cpu{core} "):
                user, nice, system, _, _, irq, soft, steal = map(int, line.split()[1:9])
                tick = os.sysconf("SC_CLK_TCK")
                return (user + nice + system + irq + soft + steal) / tick
    return 0.0


def description():
    """The processor, the cores and the system, in a line."""
    model = subprocess.run(
        ["lscpu"], capture_output=True, text=True, check=False, env={"LC_ALL": "C"} | os.environ
    ).stdout
    names = [line.split(":", 1)[1].strip() for line in model.splitlines() if "Model name" in line]
    return (
        f"{names[0] if names else 'unknown processor'}, {os.cpu_count()} cores,"
        f" Linux {os.uname().release.split('-')[0]}"
    )
