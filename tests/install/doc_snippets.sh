#!/usr/bin/env bash
# The C code that the documents show compiles against the public headers.
set -euo pipefail
cd "${KOVA_SOURCE_DIR:?}"
exec python3 tests/install/doc_snippets.py include \
    README.md live 1 docs/live.md live 5 docs/migrating.md live 2 docs/integration.md classic 5
