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

# Examples come and go.
files() {
    grep -v '/$' | sed 's|^|    |; s|/examples/.*|/examples/...|' | sort -u
}

# The files, and of the dependencies what is independent of the machine and of the day.
contents() {
    for deb in "$scratch"/made/*.deb; do
        echo "$(dpkg-deb --field "$deb" Package):"
        [ "$(dpkg-deb --field "$deb" Version)" = "$version" ] || echo "    not of version $version"
        dpkg-deb --field "$deb" Depends | tr ',' '\n' | sed 's/ *\([^ ]*\).*/    needs \1/' | sort
        dpkg-deb --fsys-tarfile "$deb" | tar --list | files
    done
    echo "archive:"
    tar --list --file "$scratch"/made/*.tar.gz | sed 's|^[^/]*/||' | files
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

# works FOLDER: the program there does its work with what is there alone.
works() {
    local program=$1/bin/workplace examples=$1/share/workplace/examples
    if grep --recursive --files-with-matches --fixed-strings -e "$build" -e "$sources" "$1"; then
        fail "the files above name the place where they were built"
    fi
    env --ignore-environment ldd "$program" >"$scratch/ldd"
    # Who loads the plugin has found the framework already.
    env --ignore-environment LD_LIBRARY_PATH="$1/lib" ldd "$1/lib/libp_tool_vesk_zrt.so" >>"$scratch/ldd"
    if grep "not found" "$scratch/ldd"; then
        fail "the libraries above are not found"
    fi
    if sed -n 's/.*lib\(plugin_management\|utilities\|zrt_controller\)\.so => \([^ ]*\) .*/\2/p' "$scratch/ldd" | grep -v "^$1/"; then
        fail "the libraries above are not those of $1"
    fi

    # Nothing of the caller's, so that nothing of it can help.
    (
        cd "$examples"
        env --ignore-environment LC_ALL=C.UTF-8 "$program" run working_day.json >"$scratch/transcript"
        diff "$sources/tests/program/data/working_day.txt" "$scratch/transcript"
        env --ignore-environment LC_ALL=C.UTF-8 "$program" replay traces/working_day.jsonl
        env --ignore-environment LC_ALL=C.UTF-8 QT_QPA_PLATFORM=offscreen HOME="$scratch" "$program" panel \
            --tool "left bench" --records maintenance.json --screenshot "$scratch/page.png"
    ) || fail "the program in $1 does not work"
    [ "$("$program" --version)" = "workplace $version" ] || fail "the program is not of version $version"
}

for deb in "$scratch"/made/*.deb; do
    dpkg-deb --extract "$deb" "$scratch/root"
done
works "$scratch/root/opt/zrt-tool"

mkdir "$scratch/archive"
tar --extract --file "$scratch"/made/*.tar.gz --directory "$scratch/archive" --strip-components 1
works "$scratch/archive"

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

for component in plugin sdk controller workplace; do
    quietly "$cmake" --install "$build" --prefix "$scratch/installed" --component "$component"
done
works "$scratch/installed"
diff <(cd "$scratch/installed" && find . -type f | sort) <(cd "$scratch/archive" && find . -type f | sort) ||
    fail "the components are not the whole"
