#pragma once

/// Prepares an accepted RTSP connection: frames leave at once, not when the peer has
/// acknowledged what went before (TCP_NODELAY), and the system finds out when the peer is
/// gone: after 30 s of silence it asks every 10 s, and the third lost answer ends the
/// connection. What the system does not have, it refuses: the connection works without.
void KovaTcpPrepare(int nSocket);
