#!/bin/bash
# Compares the layout of the classes that plugins are built against with the committed baseline.txt. A plugin
# calls through virtual tables by position: a table in another order breaks every plugin that is already built,
# without a word from compiler or linker.
#
#   check.sh [--update] COMPILER CXXFILT WORK_DIRECTORY [compiler options...]
#
# To accept a deliberate change run
#
#   cmake --build <build directory> --target update_class_layout
#
# and commit baseline.txt with it.
set -euo pipefail

update=false
if [ "$1" = --update ]; then
    update=true
    shift
fi
compiler=$1
cxxfilt=$2
work=$3
shift 3

here=$(cd "$(dirname "$0")" && pwd)
baseline=$here/baseline.txt
classes=(IPlugin DAbstractPlugin DAbstractTighteningTool ICommand DAbstractCommand DAbstractPluginBackend
    DObject DElement)

rm -rf "$work"
mkdir -p "$work"
"$compiler" -std=c++17 -fPIC -fsyntax-only -fdump-lang-class="$work/dump.txt" "$@" "$here/classes.cpp"
awk -v classes="${classes[*]}" -f "$here/layout.awk" "$work/dump.txt" | "$cxxfilt" |
    sed -e 's/Probe//g' -e 's/non-virtual thunk to //' >"$work/layout.txt"

# The part of a layout that is about one class.
part() {
    awk -v header="class $2" '$0 == header { on = 1 } /^$/ { on = 0 } on' "$1"
}

for class in "${classes[@]}"; do
    if [ -z "$(part "$work/layout.txt" "$class")" ]; then
        echo "The compiler's dump says nothing about class $class."
        exit 1
    fi
done

if $update; then
    cp "$work/layout.txt" "$baseline"
    echo "Wrote $baseline"
    exit 0
fi

changed=()
for class in "${classes[@]}"; do
    if ! diff -u --label "$class, as built plugins know it" --label "$class, as it is now" \
        <(part "$baseline" "$class") <(part "$work/layout.txt" "$class"); then
        changed+=("$class")
    fi
done
if [ ${#changed[@]} -gt 0 ]; then
    echo
    echo "The layout changed of: ${changed[*]}"
    echo "To accept a deliberate change: cmake --build <build directory> --target update_class_layout"
    exit 1
fi
# Whatever the parts leave out: a class that the baseline has and the check no longer knows.
diff -u "$baseline" "$work/layout.txt"
