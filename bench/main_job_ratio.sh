#!/usr/bin/env bash
# The main job against decoding alone, in one run: nerva-blobs (defaults,
# i.e. the people preset's clean-up; and --preset raw, no clean-up) next to
# `ffmpeg -threads 1 -i VIDEO -f null -`, interleaved, REPS times each;
# prints the median CPU time (user + system) and wall time of each, and
# their ratios to ffmpeg's. On a shared machine the CPU times are the figure
# to read: wall time includes waiting for a core.
#
#   bench/main_job_ratio.sh NERVA_BLOBS VIDEO [REPS] [OTHER_NERVA_BLOBS]
#
# OTHER_NERVA_BLOBS, when given, is timed too (a build from before a change).
set -euo pipefail
exe=$1 video=$2 reps=${3:-3} other=${4:-}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

measure() {  # name command...: appends "cpu wall" to $out/name
    local name=$1
    shift
    /usr/bin/time -f "%U %S %e" -o "$out/t" "$@" >/dev/null 2>&1
    awk '{ printf "%.3f %.3f\n", $1 + $2, $3 }' "$out/t" >>"$out/$name"
}

for ((i = 0; i < reps; i++)); do
    measure ffmpeg ffmpeg -v error -threads 1 -i "$video" -f null -
    measure defaults "$exe" "$video" -q -o "$out/blobs.jsonl"
    measure raw "$exe" "$video" -q -o "$out/blobs.jsonl" --preset raw
    if [[ -n $other ]]; then
        measure before_defaults "$other" "$video" -q -o "$out/blobs.jsonl"
        measure before_raw "$other" "$video" -q -o "$out/blobs.jsonl" --preset raw
    fi
done

median() { sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
base_cpu=$(cut -d' ' -f1 "$out/ffmpeg" | median)
base_wall=$(cut -d' ' -f2 "$out/ffmpeg" | median)
printf '%-16s %8s %8s %9s %9s\n' run cpu_s wall_s cpu/ffmpeg wall/ffmpeg
for name in ffmpeg defaults raw before_defaults before_raw; do
    [[ -f $out/$name ]] || continue
    cpu=$(cut -d' ' -f1 "$out/$name" | median)
    wall=$(cut -d' ' -f2 "$out/$name" | median)
    awk -v n="$name" -v c="$cpu" -v w="$wall" -v bc="$base_cpu" -v bw="$base_wall" \
        'BEGIN { printf "%-16s %8.3f %8.3f %9.2fx %9.2fx\n", n, c, w, c / bc, w / bw }'
done
