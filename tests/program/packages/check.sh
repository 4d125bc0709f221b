#!/bin/bash
# Makes the packages, compares what is in them with the committed list, unpacks them where nothing else is and uses
# what they bring.
#
#   check.sh [--update] CMAKE CPACK SOURCES BUILD
#
# To accept a deliberate change run
#
#   cmake --build <build directory> --target update_packages
#
# and commit contents.txt with it.
set -euo pipefail
export LC_ALL=C

update=false
if [ "$1" = --update ]; then
    update=true
    shift
fi
cmake=$1
cpack=$2
sources=$3
build=$4
list=$sources/tests/program/packages/contents.txt

scratch=$(mktemp --directory --tmpdir packages.XXXXXX)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "$1"
    exit 1
}

# quietly COMMAND...: its words only if it fails.
quietly() {
    "$@" >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "failed: $*"; }
}

quietly "$cpack" --config "$build/CPackConfig.cmake" -G "DEB;TGZ" -B "$scratch/made"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")

# The files, and of the dependencies what is independent of the machine and of the day. Examples come and go.
contents() {
    for deb in "$scratch"/made/*.deb; do
        echo "$(dpkg-deb --field "$deb" Package):"
        [ "$(dpkg-deb --field "$deb" Version)" = "$version" ] || echo "    not of version $version"
        dpkg-deb --field "$deb" Depends | tr ',' '\n' | sed 's/ *\([^ ]*\).*/    needs \1/' | sort
        dpkg-deb --fsys-tarfile "$deb" | tar --list |
            grep -v '/$' | sed 's|^|    |; s|/examples/.*|/examples/...|' | sort -u
    done
}

if $update; then
    contents >"$list"
    echo "Wrote $list"
    exit 0
fi
if ! diff -u --label "what is to be in the packages" --label "what is in them" "$list" <(contents); then
    echo
    fail "To accept a deliberate change: cmake --build <build directory> --target update_packages"
fi

# The archive has what the packages have together.
for deb in "$scratch"/made/*.deb; do
    dpkg-deb --extract "$deb" "$scratch/root"
done
mkdir "$scratch/archive"
tar --extract --file "$scratch"/made/*.tar.gz --directory "$scratch/archive" --strip-components 1
root=$scratch/root/opt/zrt-tool
diff --recursive "$root" "$scratch/archive" || fail "the archive is not what is in the packages"

# It works with what is there alone.
program=$root/bin/workplace
if grep --recursive --files-with-matches --fixed-strings -e "$build" -e "$sources" "$root"; then
    fail "the files above name the place where they were built"
fi
env --ignore-environment ldd "$program" >"$scratch/ldd"
# Who loads the plugin has found the framework already.
env --ignore-environment LD_LIBRARY_PATH="$root/lib" ldd "$root/lib/libp_tool_vesk_zrt.so" >>"$scratch/ldd"
if grep "not found" "$scratch/ldd"; then
    fail "the libraries above are not found"
fi
if sed -n 's/.*lib\(plugin_management\|utilities\|zrt_controller\)\.so => \([^ ]*\) .*/\2/p' "$scratch/ldd" |
    grep -v "^$root/"; then
    fail "the libraries above are not those of the packages"
fi

# Nothing of the caller's, so that nothing of it can help.
(
    cd "$root/share/workplace/examples"
    env --ignore-environment LC_ALL=C.UTF-8 "$program" run working_day.json >"$scratch/transcript"
    diff "$sources/tests/program/data/working_day.txt" "$scratch/transcript"
    env --ignore-environment LC_ALL=C.UTF-8 "$program" replay traces/working_day.jsonl
    env --ignore-environment LC_ALL=C.UTF-8 QT_QPA_PLATFORM=offscreen HOME="$scratch" "$program" panel \
        --tool "left bench" --records maintenance.json --screenshot "$scratch/page.png"
) || fail "the program does not work"
[ "$("$program" --version)" = "workplace $version" ] || fail "the program is not of version $version"

# The program in the documents, with the package of the simulated controller alone.
dpkg-deb --extract "$scratch"/made/zrt-tool-controller_*.deb "$scratch/controller"
mkdir "$scratch/host"
block() { awk -v begin="\`\`\`$1" '$0 == "```" { on = 0 } on; $0 == begin { on = 1 }' "$sources/docs/controller.md"; }
block cmake >"$scratch/host/CMakeLists.txt"
block cpp >"$scratch/host/main.cpp"
block text >"$scratch/expected"
quietly "$cmake" -S "$scratch/host" -B "$scratch/host/build" -DCMAKE_PREFIX_PATH="$scratch/controller/opt/zrt-tool"
quietly "$cmake" --build "$scratch/host/build"
env --ignore-environment "$scratch/host/build/my_host_test" >"$scratch/printed"
diff "$scratch/expected" "$scratch/printed" || fail "the program in docs/controller.md prints something else"
