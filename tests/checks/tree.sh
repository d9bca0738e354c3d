#!/bin/bash
# Checks of the source tree that need no compiler: the seam, the layers, the lists, the sizes.
#
# usage: tree.sh SOURCE_ROOT
set -u
shopt -s lastpipe # `faults` at the end of a pipe sets `failed` of this shell
cd "$1" || exit 1
failed=0

# Prints each line of its input as a fault of the named kind.
faults() {
    local line
    while IFS= read -r line; do
        echo "$1: $line"
        failed=1
    done
}

sources() { find "$@" -type f \( -name '*.[ch]' -o -name '*.cpp' \) 2>/dev/null | sort; }
code() { sources src apps tests bench fuzz; }
[ "$(code | wc -l)" -gt 0 ] || { echo "tree.sh: no sources below $PWD" >&2; exit 1; }

# "file:line:text" of the lines that match, comments included, over the files given on standard input.
matches() { xargs -r grep -nE -- "$1" /dev/null || true; }

# --- the platform seam

systems='\b(_WIN32|_WIN64|WIN32|__WIN32__|__MINGW(32|64)__|_MSC_VER|__linux__|__unix__|__APPLE__)\b'
code | grep -vE '^src/(platform/(posix|win32)/|vintok/Export\.h$)' | matches "$systems" |
    faults "test for a system outside the seam"

system_headers='^ *# *include *<([Ww]indows|winsock2?|ws2tcpip|iphlpapi|unistd|poll|fcntl|dlfcn|pwd|netdb|pthread|ifaddrs|signal|sched|spawn|io|direct|process|(sys|net|netinet|arpa|linux)/[a-z0-9_]+)\.h>'
code | grep -vE '^(src/platform/(posix|win32)|bench)/' | matches "$system_headers" |
    faults "system header outside the seam"

# --- the lists in the build

listed_headers=$(sed -n '/(vintok_public_headers/,/)/p' src/CMakeLists.txt | grep -oE 'vintok/[A-Za-z0-9_]+\.h' | sort)
public_header() { grep -qxF "$1" <<<"$listed_headers"; }

for header in $listed_headers; do
    [ -f "src/$header" ] || echo "$header"
done | faults "listed as public, but missing"

for file in src/vintok/*.h; do
    header=${file#src/}
    public_header "$header" || ! grep -q VINTOK_API "$file" || echo "$header"
done | faults "exports something, but is not installed"

for header in $listed_headers; do
    [ -f "src/$header" ] || continue
    grep -oE '^#include "[^"]+"' "src/$header" | cut -d'"' -f2 | while read -r included; do
        public_header "$included" || echo "$header includes $included"
    done
    [ "$header" = vintok/vintok.h ] || grep -qF "#include \"$header\"" src/vintok/vintok.h ||
        echo "$header is not in vintok/vintok.h"
done | faults "public header"

sources src | grep '\.cpp$' | while read -r file; do
    name=${file#src/}
    shared=$(sed -E 's/(posix|win32)/${system}/' <<<"$name") # of both systems
    cat src/CMakeLists.txt tests/CMakeLists.txt | grep -qF -e "$name" -e "$shared" || echo "$file"
done | faults "not in the build"

# What the headers for C declare is used by the test of that interface.
grep -ohE '\bvintok_[a-z0-9_]+\(' src/vintok-c/vintok*.h | sort -u |
    grep -vxF -f <(grep -oE '\bvintok_[a-z0-9_]+\(' tests/c_api_test.c | sort -u) |
    faults "not in tests/c_api_test.c"

for file in tests/*_test.cpp; do
    subject=$(basename "$file" _test.cpp)
    grep -qE "\b($subject(_test\.cpp)?)\b" tests/CMakeLists.txt tests/checks/CMakeLists.txt || echo "$file"
done | faults "not in the build"

for file in fuzz/*.cpp; do
    grep -qE "\b$(basename "$file" .cpp)\b" fuzz/CMakeLists.txt || echo "$file"
done | faults "not in the build"

for target in $(sed -nE 's/^ *vintok_(sandboxed_)?fuzz\(([a-z_]+).*/\2/p' fuzz/CMakeLists.txt); do
    [ -d "fuzz/corpus/$target" ] || echo "$target"
done | faults "fuzz target without a corpus"

# --- the map

sed -n '/^## A map/,/^## Layers/p' docs/architecture.md | grep -oE '`[A-Za-z_0-9/.-]+/[A-Za-z_0-9.-]+`' | tr -d '`' |
    while read -r named; do [ -e "$named" ] || echo "$named"; done |
    faults "on the map of docs/architecture.md, but missing"

# --- what may include what

sources apps | xargs -r grep -oE '^#include "(vintok|platform)/[^"]+"|^#include <(vintok|platform)/[^>]+>' /dev/null |
    while IFS=: read -r file line; do
        included=$(sed -E 's/.*["<](.*)[">]/\1/' <<<"$line")
        # They pass bytes between connections that must not wait for each other.
        [[ $file =~ ^apps/(multiplexer/|vintok/Passage) && $included == platform/* ]] ||
            [[ $included == platform/SocketErrors.h ]] ||
            [[ $file == apps/inbox/* && $included == platform/Signals.h ]] ||
            public_header "$included" || echo "$file includes $included"
    done | faults "a program reaches behind the public headers"

# What programs share has a folder of its own, and a header's name one place that it can mean.
shared='apps/text apps/http apps/control-text apps/guards apps/inbox apps/record apps/cluster'
for program in apps/vintok apps/ConferenceControl apps/multiplexer $shared; do
    grep -hoE '^#include "[^"/]+"' "$program"/*.cpp "$program"/*.h 2>/dev/null | cut -d'"' -f2 | sort -u |
        while read -r included; do
            places=$(for folder in "$program" $shared; do ls "$folder/$included"; done 2>/dev/null | sort -u | wc -l)
            [ "$places" -eq 1 ] || echo "$program: $included is in $places of its folder and the shared ones"
        done
done | faults "include of a program"

# Each unit with its layer; a unit is the longest name here that a file's name starts with.
layers='
0 Export TCPException Version
1 BufferManager Chunk RawBuffer WireText TCPAddress HTTPAddress HTTPReply HTTPText TextNumber
2 TCPStream TCPMutex TCPCertInfo TCPStatusCallback TCPTransport TCPBackgroundTransport StreamInternal Log AcceptGuard StreamBuffer
2 StreamLoop RelayRun Delivery Deadlines
3 TCPGUID TCPHeader TCPMessage
4 TCPSelect SelectTable TCPServer testTCPServer Listeners
5 UserInfo RosterBase ConferenceRosterEntry TempRosterEntry
6 ConferenceParticipant ConferenceLink ConferenceTypes ConferenceControl messageUtil ClockCorrection Control
7 vintok
'
sources src/vintok | xargs grep -E '^#include "(vintok|platform)/' /dev/null | awk -F '[:"]' -v layers="$layers" '
BEGIN {
    n = split(layers, line, "\n")
    for (i = 1; i <= n; ++i) {
        m = split(line[i], word, " ")
        for (j = 2; j <= m; ++j)
            layer[word[j]] = word[1]
    }
}
function layer_of(path,    name, length_) {
    sub(/.*\//, "", path)
    sub(/\..*/, "", path)
    for (length_ = length(path); length_ > 0; --length_)
        if (substr(path, 1, length_) in layer)
            return layer[substr(path, 1, length_)]
    return -1
}
{
    # Any source may write to the log.
    if ($3 ~ /^platform\// || ($1 ~ /\.cpp$/ && $3 ~ /\/Log\.h$/))
        next
    if (layer_of($1) < 0)
        print $1 " belongs to no layer"
    else if (layer_of($3) > layer_of($1))
        print $1 " includes " $3
}' | sort -u | faults "upward include"

sources src/vintok src/platform | matches '^ *# *include *[<"](openssl|nats|vintok-tls|vintok-cluster)/' |
    faults "the library depends on what stands beside it"

sources src/platform | matches '^#include "vintok/' | faults "the platform seam includes the library"

# --- sizes

code | xargs wc -l | awk '$2 != "total" && $1 > 700 { print $2 ": " $1 " lines" }' | faults "too long"

# The layout is fixed, so the body of a function stands between a line that ends in "{" and the next "}" at the
# indentation of its statement. A statement begins behind the end of another one.
code | xargs awk '
FNR == 1 { split("", start); fresh = 1 }
{ sub(/ *\/\/.*$/, ""); indent = match($0, /[^ ]/) }
/^ *}/ {
    if (indent in start && FNR - start[indent] - 1 > 70)
        print FILENAME ": " FNR - start[indent] - 1 " lines: " text[indent]
    delete start[indent]
}
fresh { statement = $0; statement_indent = indent }
/\{$/ && statement !~ /^ *(namespace|class|struct|enum|union|extern "C"|}|if|for|while|do|switch|else|case) / &&
    statement !~ /= *\{$/ {
    start[statement_indent] = FNR
    text[statement_indent] = statement
}
{ fresh = /[;{}:>]$/ || /^ *$/ || /^#/ }
' | faults "function too long"

lines() { { sources "$@" && find "$@" -name '*.py'; } | xargs cat | grep -c '[^[:space:]]'; }
tests=$(lines tests)
share=$((100 * tests / (tests + $(lines src apps python))))
[ "$share" -le 33 ] || faults "tests" <<<"$share % of src, apps, python and tests are tests; 33 % may be"

# --- text

tracked() { git ls-files --cached --others --exclude-standard 2>/dev/null || find . -type f -not -path './build/*'; }
texts() { tracked | grep -v '^\(\./\)\?fuzz/corpus/' | while IFS= read -r file; do [ -f "$file" ] && echo "$file"; done; }

texts | matches '\b(T[O]DO|FIX[M]E|X[X]X)\b' | faults "left undone"
texts | matches '(^|[ "'"'"'(=])/(home|root|[w]ork|Users)/' | faults "path of somebody's machine"
texts | matches '[[:space:]]+$' | faults "blank at the end of a line"

# --- links in the documents

for document in *.md docs/*.md; do
    [ -f "$document" ] || continue
    grep -oE '\]\([^)#: ]+(#[^)]*)?\)' "$document" | sed -E 's/^\]\(([^)#]+).*$/\1/' |
        while read -r target; do
            [ -e "$(dirname "$document")/$target" ] || echo "$document -> $target"
        done
done | faults "dead link"

exit "$failed"
