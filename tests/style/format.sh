#!/usr/bin/env bash
# Every source is formatted as .clang-format says.
set -euo pipefail
exec "${KOVA_SOURCE_DIR:?}/scripts/format" --check
