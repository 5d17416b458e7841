"""The servers that bench/fanout.py compares."""

import os
import sys

from clip import record
from host_and_load import BUILD, Ended, Host, Server, UnpaidHost

LIBRARY = "library"
UNPAID = "library, waiting free"
PEERS = {"live": f"{BUILD}/kova_live_host", "GStreamer": f"{BUILD}/kova_gst_server"}
BARE = {"udp": ("sendto", "sendmmsg", "gso"), "tcp": ("send", "writev")}
BASE = {"udp": "sendto", "tcp": "send"}  # what the others are measured by
NOT_HERE = 3  # the exit status of a bare loop that the system does not have
MOST_SECONDS = 120  # of one server


class Servers:
    """Starts any of them."""

    def __init__(self, clip, core):
        """clip: a path, for make_clip() to write and the bare loops to send"""
        self.clip = clip
        self.core = core

    def start(self, name):
        if name == LIBRARY:
            return Host(MOST_SECONDS, core=self.core)
        if name == UNPAID:
            return UnpaidHost(MOST_SECONDS, core=self.core)
        if name in PEERS:
            return Server([PEERS[name]], MOST_SECONDS, core=self.core)
        return Server([f"{BUILD}/kova_bare_server", name, self.clip], MOST_SECONDS, core=self.core)

    def start_empty(self, name):
        """Without a stream."""
        if name == LIBRARY:
            return Host(MOST_SECONDS, streams=0, core=self.core)
        return Server([PEERS[name], "-n", "0"], MOST_SECONDS, streams=0, core=self.core)

    def make_clip(self, rate):
        """Records what the library sends at this rate."""
        host = Host(MOST_SECONDS, rate=rate)
        try:
            # Half of the second between two key frames; what comes before the rate is smaller.
            record(host.urls[0], self.clip, rate * 125 / 2, 30)
        finally:
            host.stop()

    def here(self, transport):
        """The names of those that this machine has, the library first."""
        return [LIBRARY, *self.peers(), *filter(self.has_bare, BARE[transport])]

    def peers(self):
        """Those that could be built."""
        return [name for name, program in PEERS.items() if os.path.exists(program)]

    def has_bare(self, name):
        try:
            self.start(name).finish()
        except Ended as end:
            if end.status != NOT_HERE:
                raise
            print(f"fanout: this system has no {name}", file=sys.stderr)
            return False
        return True
