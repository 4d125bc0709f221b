#!/bin/bash
# Compares one aspect of a built file with what is committed for it.
#
#   check.sh [--update] ASPECT FILE EXPECTED NM READELF CXXFILT
#
# The aspects are the functions below. To accept a deliberate change run
#
#   cmake --build <build directory> --target update_built_file
#
# and commit the file with what is expected.
set -euo pipefail
shopt -s inherit_errexit
export LC_ALL=C

update=false
if [ "$1" = --update ]; then
    update=true
    shift
fi
aspect=$1
file=$2
expected=$3
nm=$4
readelf=$5
cxxfilt=$6

# What the library offers to be linked against. What is gone breaks whoever was built against it; what is there
# by mistake somebody will build against.
exports() {
    local symbols
    symbols=$("$nm" --dynamic --defined-only --format=posix "$file" | cut -d ' ' -f 1,2)

    # No list makes these acceptable: a host knows the commands by their base class alone.
    if grep DCmd <<<"$symbols" >&2; then
        echo "The library exports a command class." >&2
        exit 1
    fi

    # The build type decides which inline functions (W) and type descriptions of Qt's are left over, a sanitizer marks
    # what it watches, and coverage brings its runtime along. Constructors and destructors are there more than once.
    awk '$2 != "W" && $1 !~ /^(__odr_asan\.|__gcov_|mangle_path$)/ { print $1 }' <<<"$symbols" | "$cxxfilt" |
        grep -vE '^(typeinfo|typeinfo name) for Q[A-Z]' | sort
}

# The values under a tag of the table for the dynamic linker.
dynamic() {
    "$readelf" --dynamic --wide "$file" |
        awk -v tag="($1)" '$2 == tag { sub(/^[^)]*\) +([A-Za-z ]*: )?/, ""); gsub(/[][]/, ""); print }'
}

# The libraries that have to be there when this one is loaded, in the order in which they are looked up. A sanitizer
# brings its own along, and whether cutting a number is a call into libm is the compiler's choice.
needed() {
    dynamic NEEDED | sed -E '/^lib(asan|ubsan|m)\./d'
}

# The folders in which these are looked up besides the system's. A folder of the machine that built the file is none of
# them, nor an empty one, which stands for where a program happens to be started.
run_path() {
    dynamic RPATH | sed 's/^/old kind: /'
    dynamic RUNPATH
}

# answer WHAT COMMAND...: yes or no, by the command's exit code.
answer() {
    if "${@:2}" >/dev/null; then echo "$1: yes"; else echo "$1: no"; fi
}

# What keeps a mistake in the code from being of use to somebody.
hardening() {
    local segments flags calls
    segments=$("$readelf" --program-headers --wide "$file")
    flags="$(dynamic FLAGS) $(dynamic FLAGS_1) $("$readelf" --dynamic --wide "$file" | grep -o '(TEXTREL)' || true)"
    calls=$("$nm" --dynamic --undefined-only --format=posix "$file")
    answer "all symbols bound when it is loaded" grep -qw NOW <<<"$flags"
    answer "tables of addresses read-only from then on" grep -qw GNU_RELRO <<<"$segments"
    answer "loaded at any address" grep -qw DYN <<<"$("$readelf" --file-header "$file")"
    answer "code left as it is in the file" not grep -qw TEXTREL <<<"$flags"
    answer "stack not executable" grep -qE '^ *GNU_STACK .* RW +0x' <<<"$segments"
    answer "nothing both writable and executable" not grep -qE ' RWE +0x' <<<"$segments"
    answer "stack guarded against overruns" grep -q '^__stack_chk_fail' <<<"$calls"
}

# Whether calls into the C library check how much room there is.
fortification() {
    local calls
    calls=$("$nm" --dynamic --undefined-only --format=posix "$file")
    answer "calls into the C library checked" grep -qE '^__(v?snprintf|v?fprintf|memcpy|strcpy)_chk\b' <<<"$calls"
}

# How the units of what is handed over are compiled. The file is the build's list of commands.
commands() {
    local units
    units=$(grep -E '^ *"command": .* -c [^ ]*/(libraries|plugins|applications)/[^ ]*\.cpp"' "$file")
    answer "every unit guards its stack" not grep -qvE -e ' -fstack-protector-strong .* -c ' <<<"$units"
    answer "none takes that back" not grep -qE -e ' -fno-stack-protector' <<<"$units"
    answer "every unit checks calls into the C library" not grep -qvE -e ' -D_FORTIFY_SOURCE=2 .* -c ' <<<"$units"
    answer "none takes that back" not grep -qE -e ' -D_FORTIFY_SOURCE=2 .*(-U_FORTIFY|-O0)' <<<"$units"
}

not() {
    ! "$@"
}

actual=$("$aspect")
if $update; then
    echo "$actual" >"$expected"
    echo "Wrote $expected"
    exit 0
fi
if ! diff -u --label "expected $aspect" --label "$aspect of $(basename "$file")" "$expected" - <<<"$actual"; then
    echo
    echo "To accept a deliberate change: cmake --build <build directory> --target update_built_file"
    exit 1
fi
