#!/usr/bin/env bash
# Compares the library's size with the figures in cmake/sizes.txt:
#
#     sizes.sh <target> <stripped library>
#
# Prints one line of the table and fails when text or file have grown by more than 5 %, or when the
# text is larger than the table's limit for the target. SIZE names the target's size program.
set -euo pipefail
target=$1
library=$2
sections=$("${SIZE:-size}" -A "$library")
# section <name>...: the sum of their sizes
section() {
    awk -v names="$*" 'BEGIN { split(names, list); for (n in list) wanted[list[n]] = 1 }
        $1 in wanted { sum += $2 } END { print sum + 0 }' <<<"$sections"
}
text=$(section .text)
constants=$(section .rodata)
data=$(section .data .sdata .bss .sbss .data.rel.ro .got)
file=$(stat -c %s "$library")
printf '%-24s %8d %8d %8d %8d\n' "$target" "$text" "$constants" "$data" "$file"

status=0
read -r _ most_text most_file limit < <(grep "^$target " "${KOVA_SOURCE_DIR:?}/cmake/sizes.txt") || {
    echo "cmake/sizes.txt does not know $target"
    exit 1
}
if ((text * 100 > most_text * 105)); then
    echo "$target: $text bytes of text, more than 5 % above $most_text"
    status=1
fi
if ((file * 100 > most_file * 105)); then
    echo "$target: a file of $file bytes, more than 5 % above $most_file"
    status=1
fi
if [[ -n $limit ]] && ((text > limit)); then
    echo "$target: $text bytes of text, the limit is $limit"
    status=1
fi
exit $status
