#!/bin/bash
# Holds the meeting of tools/meeting, and looks whether what the README shows of it is what one sees:
# the same lines in the same order, whatever the numbers in them.
#
# usage: transcript.sh SOURCE_ROOT PROGRAM
#
# Exit status 77 where a part of it cannot be shown.
set -euo pipefail
numbers() { sed -E 's/[0-9]+/N/g'; }

seen=$("$1/tools/meeting" "$2" 2>&1 | numbers)
block=''
shown=0
while IFS= read -r line; do
    if [[ $line != '```' ]]; then
        block+=${block:+$'\n'}$line
        continue
    fi
    ((++shown))
    [[ $seen == *"$block"* ]] || {
        [[ $seen != *'is left out.'* ]] || exit 77
        echo "tools/meeting prints"
        echo "$seen"
        echo "and the README shows"
        echo "$block"
        exit 1
    }
    block=''
done < <(sed -n '/^```text$/,/^```$/{/^```text$/!p}' "$1/README.md" | numbers)
[ "$shown" -gt 0 ] || { echo "the README shows nothing"; exit 1; }
