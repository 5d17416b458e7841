#!/usr/bin/env bash
# The files, folders and sections that the documents name exist.
set -euo pipefail
exec python3 "${KOVA_SOURCE_DIR:?}/tests/style/doc_paths.py" "$KOVA_SOURCE_DIR"
