#!/bin/bash
# Compares what a shared library exports with what its public headers mark with VINTOK_API, VINTOK_TLS_API or VINTOK_CLUSTER_API.
#
# usage: exports.sh SHARED_LIBRARY ARCHIVE_OF_THE_SAME_OBJECTS HEADER...
set -euo pipefail
shared=$1
archive=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# "class NAME" or "name NAME" (a function or an object) for every mark in the headers.
awk '
{ sub(/\/\/.*/, "") }
/^#/ { next }
statement == "" && !/VINTOK_((TLS|CLUSTER)_)?API/ { next }
{ statement = statement " " $0 }
/[;{]/ {
    if (match(statement, /(class|struct) VINTOK_((TLS|CLUSTER)_)?API [A-Za-z_0-9]+/)) {
        n = split(substr(statement, RSTART, RLENGTH), word, " ")
        print "class", word[n]
    } else {
        sub(/[;{=([].*/, "", statement)
        n = split(statement, word, /[ *&]+/)
        while (n > 1 && word[n] == "")
            --n
        print "name", word[n]
    }
    statement = ""
}' "$@" | sort -u >"$work/marked"

# "type<TAB>symbol", demangled, without the version.
symbols() {
    nm --demangle --defined-only "$@" | sed -En '/ A VINTOK_/d; s/@@?VINTOK_[0-9]+$//; s/^[0-9a-f]+ ([A-Za-z]) (.*)$/\1\t\2/p'
}
symbols --dynamic "$shared" | sort -u >"$work/exported"
symbols --extern-only "$archive" | sort -u >"$work/defined"
for list in marked exported defined; do
    [ -s "$work/$list" ] || { echo "exports.sh: the list of $list names is empty" >&2; exit 1; }
done

awk -F '\t' -v marked_file="$work/marked" -v exported_file="$work/exported" '
BEGIN {
    while ((getline line < marked_file) > 0) {
        split(line, word, " ")
        marked[word[2]] = word[1]
    }
    while ((getline < exported_file) > 0)
        exported[$2] = 1
    for (symbol in exported) {
        name = owner(symbol)
        if (name in marked)
            seen[name] = 1
        else
            complain("exported, but not marked in a public header: " symbol)
    }
    for (name in marked)
        if (marked[name] == "name" && !(name in seen))
            complain("marked in a public header, but not exported: " name)
}
# Inline functions (W) stay with whoever includes them.
$1 != "W" && owner($2) in marked && !($2 in exported) {
    complain("belongs to what is marked in a public header, but is not exported: " $2)
}
END { exit failed }

# The class or function of ours that a symbol belongs to; "" for what is not ours.
function owner(symbol) {
    if (symbol ~ /^vintok_[a-z0-9_]+$/)
        return symbol
    sub(/^((vtable|VTT|typeinfo|typeinfo name|guard variable) for|(non-virtual|virtual) thunk to) /,
        "", symbol)
    if (symbol !~ /^vintok::/)
        return ""
    sub(/^vintok::/, "", symbol)
    return match(symbol, /^(operator[^ A-Za-z_0-9(]+|[A-Za-z_0-9]+)/) ? substr(symbol, 1, RLENGTH) : ""
}
function complain(text) {
    print text
    failed = 1
}' "$work/defined"
