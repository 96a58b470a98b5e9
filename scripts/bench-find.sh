#!/bin/sh
# Times kelvo-fs find against find on the same search, whole processes, runs alternated, and prints the median of each and their ratio.
#
#   scripts/bench-find.sh [KELVO_FS [RUNS [ROOT [PATTERN]]]]
#
# KELVO_FS defaults to build/release/tools/kelvo-fs, RUNS to 21, ROOT to
# /usr/include and PATTERN to '*.h'. Both commands write to /dev/null; one
# run of each first warms the page cache.
set -eu
tool=${1:-build/release/tools/kelvo-fs}
runs=${2:-21}
root=${3:-/usr/include}
pattern=${4:-*.h}

[ -x "$tool" ] || { echo "bench-find: no executable $tool" >&2; exit 2; }

now() { date +%s%N; }

# One timing in microseconds of the command given as arguments.
timed() {
    start=$(now)
    "$@" >/dev/null 2>&1 || true
    end=$(now)
    echo $(((end - start) / 1000))
}

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

"$tool" find "$root" -name "$pattern" >/dev/null 2>&1 || true
find "$root" -name "$pattern" >/dev/null 2>&1 || true

ours=""
theirs=""
i=0
while [ "$i" -lt "$runs" ]; do
    ours="$ours $(timed "$tool" find "$root" -name "$pattern")"
    theirs="$theirs $(timed find "$root" -name "$pattern")"
    i=$((i + 1))
done
ourMedian=$(printf '%s\n' $ours | median)
theirMedian=$(printf '%s\n' $theirs | median)
echo "runs: $runs  root: $root  pattern: $pattern"
echo "kelvo-fs find median: $ourMedian us"
echo "find median:          $theirMedian us"
awk -v a="$ourMedian" -v b="$theirMedian" 'BEGIN { printf "ratio kelvo-fs/find: %.2f\n", a / b }'
