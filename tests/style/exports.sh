#!/usr/bin/env bash
# The library exports what cmake/exports.txt lists for the classic interface and
# cmake/exports_live.txt for the live one, as far as it was built with them, neither more nor less.
# It needs no other library than the C library with its maths and threads, and has neither text
# relocations nor a wish for executable stacks. For another processor's library NM names that
# processor's nm.
set -euo pipefail
export LC_ALL=C
build=${KOVA_BUILD_DIR:?}
. "${KOVA_SOURCE_DIR:?}/tests/support/exports.bash"
soname=lib$(library_name "$build").so.0
library=$build/$soname
status=0

for list in exports exports_live; do
    if ! sort -c -u "$KOVA_SOURCE_DIR/cmake/$list.txt"; then
        echo "$list.txt is not sorted"
        status=1
    fi
done
if grep -v '^KovaLive' "$KOVA_SOURCE_DIR/cmake/exports_live.txt"; then
    echo "is not a name of the live interface"
    status=1
fi
exported=$("${NM:-nm}" -D --defined-only "$library" | awk '{print $NF}' | sort)
if ! diff -u --label listed --label exported <(exported_names "$build") - <<<"$exported"; then
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

named=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [[ $named != "$soname" ]]; then
    echo "its name is '$named'"
    status=1
fi
exit $status
