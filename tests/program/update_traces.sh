#!/bin/bash
# Records every example again: its trace in traces/ beside it, and what is printed of the working day in TRANSCRIPT.
#
#   update_traces.sh WORKPLACE EXAMPLES TRANSCRIPT
#
# To accept a deliberate change run
#
#   cmake --build <build directory> --target update_traces
#
# look at what changed, and commit it.
set -euo pipefail

workplace=$1
transcript=$3
cd "$2"
# The traces of a debug build are none of the plugin's doings.
export QT_LOGGING_RULES="default.debug=false"
grep --files-with-matches --include='*.json' --recursive '"steps"' -- * | sort | while read -r sequence; do
    trace=traces/${sequence%.json}.jsonl
    mkdir -p "$(dirname "$trace")"
    "$workplace" run "$sequence" --trace "$trace" >/dev/null
    echo "Wrote $trace"
done
"$workplace" run working_day.json >"$transcript"
echo "Wrote $transcript"
