#!/usr/bin/env bash
# The C test calls every exported function: each name of cmake/exports.txt stands in its sources,
# the declarations not counted.
set -euo pipefail
status=0
names=0
while read -r name; do
    names=$((names + 1))
    if ! grep -qw -- "$name" "${KOVA_SOURCE_DIR:?}"/tests/abi/abi_*.c; then
        echo "not called: $name"
        status=1
    fi
done <"${KOVA_SOURCE_DIR:?}/cmake/exports.txt"
echo "$names exported names"
((names > 100)) || status=1
exit $status
