#!/bin/bash
# Compares what the plugin library offers to be linked against with the committed list, tests/data/exports.txt.
# What is gone breaks whoever was built against it; what is there by mistake somebody will build against.
#
#   check.sh [--update] NM CXXFILT LIBRARY LIST
#
# To accept a deliberate change run
#
#   cmake --build <build directory> --target update_exports
#
# and commit the list with it.
set -euo pipefail
export LC_ALL=C

update=false
if [ "$1" = --update ]; then
    update=true
    shift
fi
nm=$1
cxxfilt=$2
library=$3
list=$4

symbols=$("$nm" --dynamic --defined-only --format=posix "$library" | cut -d ' ' -f 1,2)

# No list makes these acceptable: a host knows the commands by their base class alone.
if grep DCmd <<<"$symbols"; then
    echo "The library exports a command class."
    exit 1
fi

# The build type decides which inline functions (W) and type descriptions of Qt's are left over, a sanitizer marks
# what it watches, and coverage brings its runtime along. Constructors and destructors are there more than once.
exports=$(awk '$2 != "W" && $1 !~ /^(__odr_asan\.|__gcov_|mangle_path$)/ { print $1 }' <<<"$symbols" | "$cxxfilt" |
    grep -vE '^(typeinfo|typeinfo name) for Q[A-Z]' | sort)

if $update; then
    echo "$exports" >"$list"
    echo "Wrote $list"
    exit 0
fi

if ! diff -u --label "what is to be exported" --label "what is exported" "$list" - <<<"$exports"; then
    echo
    echo "To accept a deliberate change: cmake --build <build directory> --target update_exports"
    exit 1
fi
