#!/usr/bin/env bash
# A player that takes nothing but what the RFCs have plays a live stream over TCP, with a login too.
. "${KOVA_SOURCE_DIR:?}/tests/players/live_strict.bash"
strict_plays_live tcp
