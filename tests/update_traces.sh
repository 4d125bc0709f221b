#!/bin/bash
# Records the trace of every example again, as applications/AppWorkplace/examples/traces has them.
#
#   update_traces.sh WORKPLACE EXAMPLES
#
# To accept a deliberate change run
#
#   cmake --build <build directory> --target update_traces
#
# look at what changed, and commit the traces with it.
set -euo pipefail

workplace=$1
cd "$2"
# The traces of a debug build are none of the plugin's doings.
export QT_LOGGING_RULES="default.debug=false"
grep --files-with-matches --include='*.json' --recursive '"steps"' -- * | sort | while read -r sequence; do
    trace=traces/${sequence%.json}.jsonl
    mkdir -p "$(dirname "$trace")"
    "$workplace" run "$sequence" --trace "$trace" >/dev/null
    echo "Wrote $trace"
done
