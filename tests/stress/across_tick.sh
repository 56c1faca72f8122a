#!/usr/bin/env bash
# across_tick.sh TIME_NAMESPACE EXPONENT PROGRAM: runs a test program again and again while the tick clock passes
# 2^EXPONENT, and once more after.
set -euo pipefail
exec "$1" "$2" --before 1 bash -c '
    for (( ;; )); do
        past=$(python3 -c "import time; print(int(time.monotonic() * 100) >= 1 << $0)")
        output=$("$1" 2>&1) || { status=$?; echo "$output"; exit $status; }
        [ "$past" = True ] && { echo "passed before and after tick 2^$0"; exit 0; }
    done' "$2" "$3"
