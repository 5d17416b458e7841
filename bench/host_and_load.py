"""Starts the servers that are measured and kova_load_players, and talks to them."""

import json
import os
import re
import subprocess
import threading
import time

BUILD = os.environ.get("KOVA_BUILD_DIR", "build/bench")


class Ended(RuntimeError):
    """A program ended, or took too long, before it answered."""

    def __init__(self, command, status):
        super().__init__(f"{command[0:4]} ended with {status}, or took too long")
        self.status = status


class Program:
    """A program that answers lines with lines. What it prints besides goes to a file or nowhere."""

    def __init__(self, command, seconds, core=None, log=subprocess.DEVNULL):
        pinned = [] if core is None else ["taskset", "-c", str(core)]
        self.process = subprocess.Popen(
            pinned + command,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=log,
            text=True,
            bufsize=1,
        )
        # Whatever happens, nobody waits for ever: without the program there is no answer.
        self.guard = threading.Timer(seconds, self.process.kill)
        self.guard.daemon = True
        self.guard.start()

    def line(self):
        line = self.process.stdout.readline()
        if not line:
            self.guard.cancel()
            raise Ended(self.process.args, self.process.wait())
        return line.strip()

    def tell(self, command):
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()
        return self.line()

    def stop(self):
        """Ends it, whatever it does."""
        self.guard.cancel()
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.process.stdout.close()
        try:
            self.process.stdin.close()
        except BrokenPipeError:
            pass

    def finish(self):
        """Lets it end, and returns its exit status."""
        if self.process.stdin and not self.process.stdin.closed:
            try:
                self.process.stdin.close()
            except BrokenPipeError:
                pass
        self.process.stdout.read()
        status = self.process.wait()
        self.guard.cancel()
        return status


class Server(Program):
    """A server that is measured. It tells its port, and obeys."""

    def __init__(self, command, seconds, streams=1, core=None, log=subprocess.DEVNULL):
        super().__init__(command, seconds, core, log)
        self.port = int(self.line().removeprefix("port "))
        self.urls = [f"rtsp://127.0.0.1:{self.port}/s{n + 1}" for n in range(streams)]

    def set_rate(self, kilobits):
        self.tell(f"rate {kilobits}")

    def cpu(self):
        """Processor time so far, all threads, user and system, in seconds."""
        return time.clock_gettime(~self.process.pid << 3 | 2)  # as clock_getcpuclockid(3) makes it

    def memory(self):
        """Resident KiB."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return int(re.search(r"\nVmRSS:\s*(\d+) kB", status.read()).group(1))

    def switches(self):
        """How often each of its threads has gone to sleep so far, by their ids."""
        counts = {}
        tasks = f"/proc/{self.process.pid}/task"
        for task in os.listdir(tasks):
            try:
                with open(f"{tasks}/{task}/status", encoding="ascii") as status:
                    found = re.search(r"\nvoluntary_ctxt_switches:\s*(\d+)", status.read())
            except (FileNotFoundError, ProcessLookupError):
                continue  # it has just ended
            counts[task] = int(found.group(1))
        return counts


class Watch:
    """What a server takes, from now to end()."""

    def __init__(self, server):
        self.server = server
        self.switches = server.switches()
        self.begin, self.cpu = time.monotonic(), server.cpu()

    def end(self):
        seconds, cpu = time.monotonic() - self.begin, self.server.cpu() - self.cpu
        new = self.server.switches()
        switches = sum(count - self.switches.get(task, 0) for task, count in new.items())
        return {
            "seconds": seconds,
            "cpu_seconds": cpu,
            "core": cpu / seconds,
            "wakeups_per_second": switches / seconds,
            "resident_kib": self.server.memory(),
        }


class Host(Server):
    """The library."""

    PROGRAM = "kova_bench_host"

    def __init__(self, seconds, streams=1, rate=0, sound=False, core=None, log=subprocess.DEVNULL):
        command = [f"{BUILD}/{self.PROGRAM}", "-n", str(streams), "-k", str(rate)]
        super().__init__(command + (["-s"] if sound else []), seconds, streams, core, log)


class UnpaidHost(Host):
    """The library, but that players who wait cost the others nothing."""

    PROGRAM = "kova_bench_host_unpaid"


class Load(Program):
    def __init__(self, urls, transport, seconds, options=(), core=None):
        command = [f"{BUILD}/kova_load_players", "--transport", transport]
        super().__init__(command + [*options, *urls], seconds, core)

    def ask(self, command):
        return json.loads(self.tell(command))

    def begin(self, command):
        """As ask(), but that answer() waits for the answer."""
        self.process.stdin.write(command + "\n")
        self.process.stdin.flush()

    def answer(self):
        return json.loads(self.line())
