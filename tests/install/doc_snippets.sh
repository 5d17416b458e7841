#!/usr/bin/env bash
# The C code that the integrators' guide shows compiles against the public header.
set -euo pipefail
exec python3 "${KOVA_SOURCE_DIR:?}/tests/install/doc_snippets.py" \
    "$KOVA_SOURCE_DIR/docs/integration.md" "$KOVA_SOURCE_DIR/include"
