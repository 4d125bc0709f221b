#!/bin/bash
# Compares the layout of a room's classes with the committed baseline. Host and plugin call each other through virtual
# tables by position: a table in another order breaks whatever is already built, without a word from compiler or
# linker.
#
#   check.sh [--update] ROOM COMPILER CXXFILT WORK_DIRECTORY [compiler options...]
#
# The room is "libraries" (the host framework's classes that plugins are built against) or "plugin" (all of the
# plugin's); ROOM.cpp names the headers, ROOM.txt is the baseline.
set -euo pipefail

update=false
if [ "$1" = --update ]; then
    update=true
    shift
fi
room=$1
compiler=$2
cxxfilt=$3
work=$4
shift 4

here=$(cd "$(dirname "$0")" && pwd)
baseline=$here/$room.txt
case $room in
    libraries)
        # How much data the framework's classes have is the host's business.
        data=0
        classes=(IPlugin DAbstractPlugin DAbstractTighteningTool ICommand DAbstractCommand DAbstractPluginBackend
            DObject DElement)
        ;;
    plugin)
        data=1
        classes=(PToolVeskZrt BeMaintenanceToolZrt DZrtToolChannel
            "__qobjectsqmllist::QObjectListModelBase<DZrtToolChannel>" OLM_DZrtToolChannel)
        ;;
    *)
        echo "check.sh: no such room: '$room' (there are libraries and plugin)" >&2
        exit 2
        ;;
esac

rm -rf "$work"
mkdir -p "$work"
"$compiler" -std=c++17 -fPIC -fsyntax-only -fdump-lang-class="$work/dump.txt" "$@" "$here/$room.cpp"
if [ "$room" = plugin ]; then
    # The commands are those whose headers CMake has found, in their order.
    mapfile -t commands < <(sed -n 's/^Class \(DCmd[A-Za-z]*\)$/\1/p' "$work/dump.txt")
    if [ ${#commands[@]} -eq 0 ]; then
        echo "The compiler's dump says nothing about any command class."
        exit 1
    fi
    classes+=("${commands[@]}")
fi
awk -v classes="${classes[*]}" -v data=$data -f "$here/layout.awk" "$work/dump.txt" | "$cxxfilt" |
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
    if ! diff -u --label "$class, as it is already built" --label "$class, as it is now" \
        <(part "$baseline" "$class") <(part "$work/layout.txt" "$class"); then
        changed+=("$class")
    fi
done
if [ ${#changed[@]} -gt 0 ]; then
    echo
    echo "The layout changed of: ${changed[*]}"
    echo "To accept a deliberate change: cmake --build --preset release --target update_all"
    exit 1
fi
# Whatever the parts leave out: a class that the baseline has and the check no longer knows.
diff -u "$baseline" "$work/layout.txt"
