"""What a server costs while nobody plays."""

import resource
import socket
import time

from host_and_load import Watch
from servers import LIBRARY

SETTLED = 1.0  # seconds after the last request
RATE = 4000  # kbit/s of the stream that is pushed


def connect(port, count):
    """Connections, each after one OPTIONS and its answer."""
    connections = []
    request = f"OPTIONS rtsp://127.0.0.1:{port}/ RTSP/1.0\r\nCSeq: 1\r\n\r\n".encode()
    for _ in range(count):
        connection = socket.create_connection(("127.0.0.1", port), timeout=10)
        connections.append(connection)
        connection.sendall(request)
        answer = b""
        while not answer.endswith(b"\r\n\r\n"):
            part = connection.recv(4096)
            if not part:
                raise RuntimeError("the server has closed a connection")
            answer += part
    return connections


def watch(server, seconds):
    seen = Watch(server)
    time.sleep(seconds)
    return seen.end()


def connections_row(server, name, count, seconds):
    time.sleep(SETTLED)
    before = server.memory()
    connections = connect(server.port, count)
    time.sleep(SETTLED)
    row = {"path": name, "connections": count, "stream": False, **watch(server, seconds)}
    row["kib_per_connection"] = (row["resident_kib"] - before) / max(1, count)
    for connection in connections:
        connection.close()
    return row


def pushed_row(server, name, seconds):
    server.set_rate(RATE)
    time.sleep(SETTLED)
    figures = watch(server, seconds)
    return {"path": name, "connections": 0, "stream": True, **figures, "kib_per_connection": None}


def measure_idle(servers, count, seconds):
    """Rows for the library without connections, with them, and with a stream that nobody plays, and
    for each other server without and with connections."""
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard) if soft < hard else (soft, hard))
    rows = []
    for name in [LIBRARY, *servers.peers()]:
        for connections in (0, count):
            server = servers.start_empty(name)
            try:
                rows.append(connections_row(server, name, connections, seconds))
            finally:
                server.stop()
    server = servers.start(LIBRARY)
    try:
        rows.append(pushed_row(server, LIBRARY, seconds))
    finally:
        server.stop()
    return rows
