#!/usr/bin/env bash
# The library exports what cmake/exports.txt lists, neither more nor less, needs no other library
# than the C library with its maths and threads, and has neither text relocations nor a wish for
# executable stacks. For another processor's library NM names that processor's nm.
set -euo pipefail
export LC_ALL=C
library=${KOVA_BUILD_DIR:?}/libkovartspserver.so.0
listed=${KOVA_SOURCE_DIR:?}/cmake/exports.txt
status=0

if ! sort -c -u "$listed"; then
    echo "exports.txt is not sorted"
    status=1
fi
exported=$("${NM:-nm}" -D --defined-only "$library" | awk '{print $NF}' | sort)
if ! diff -u --label exports.txt --label exported "$listed" - <<<"$exported"; then
    status=1
fi

needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
if [[ -z $needed ]]; then
    echo "no needed library found"
    status=1
fi
for name in $needed; do
    case $name in
        libc.so | libc.so.* | libm.so.* | libpthread.so.* | ld-linux*.so.* | ld.so.1) ;;
        *)
            echo "needs $name"
            status=1
            ;;
    esac
done

if readelf -d "$library" | grep -q TEXTREL; then
    echo "has text relocations"
    status=1
fi
if readelf -lW "$library" | grep -q 'GNU_STACK.*E'; then
    echo "asks for executable stacks"
    status=1
fi

soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [[ $soname != libkovartspserver.so.0 ]]; then
    echo "its name is '$soname'"
    status=1
fi
exit $status
