#!/bin/bash
# Holds the meeting of tools/meeting, and looks whether what the README shows of it is what one sees:
# the same lines in the same order, whatever the numbers in them.
#
# usage: transcript.sh SOURCE_ROOT PROGRAM
set -euo pipefail
numbers() { sed -E 's/[0-9]+/N/g'; }

shown=$(sed -n '/^```text$/,/^```$/{/^```/!p}' "$1/README.md" | numbers)
seen=$("$1/tools/meeting" "$2" 2>&1 | numbers)
[[ -n $shown && $seen == *"$shown"* ]] || {
    echo "tools/meeting prints"
    echo "$seen"
    echo "and the README shows"
    echo "$shown"
    exit 1
}
