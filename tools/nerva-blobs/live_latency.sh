#!/usr/bin/env bash
# Latency of nerva-blobs on a live stream: a video (vtest.avi by default) is
# served by ffmpeg at its own frame rate as MPEG-TS over HTTP on the loopback
# address, and the program reads it as a camera. Prints the program's summary:
# frames, frames dropped, and the time from a frame's arrival (decoded) to
# its JSON line, median and 99th percentile.
#
#   tools/nerva-blobs/live_latency.sh [NERVA_BLOBS] [VIDEO] [-- extra options]
set -euo pipefail
exe=${1:-build/tools/nerva-blobs/nerva-blobs}
video=${2:-/usr/share/doc/opencv-doc/examples/data/vtest.avi}
shift $(( $# < 2 ? $# : 2 ))
[[ "${1:-}" == "--" ]] && shift
flags=("$@")
[[ ${#flags[@]} -gt 0 ]] || flags=(--open 3 --close 7 --min-pixels 150)

work=$(mktemp -d)
server= reader=
trap 'kill $server $reader 2>/dev/null || true; rm -rf "$work"' EXIT
# Encoded once beforehand at RATE frames a second (vtest.avi is a 10 fps
# recording: its frames are played faster, none added), so that the server
# only copies packets while timing.
rate=${RATE:-25}
ffmpeg -nostdin -loglevel error -r "$rate" -i "$video" -c:v mpeg2video -q:v 2 -g 12 \
    -f mpegts "$work/clip.ts"
frames=$(ffprobe -v error -count_packets -select_streams v:0 -show_entries stream=nb_read_packets \
    -of default=nw=1:nk=1 "$work/clip.ts" | sed -n 1p)
port=$((20000 + RANDOM % 20000))
url="http://127.0.0.1:$port/camera.ts"

ffmpeg -nostdin -loglevel quiet -re -i "$work/clip.ts" -c copy -f mpegts -listen 1 "$url" &
server=$!
sleep 0.5
"$exe" "$url" "${flags[@]}" -o "$work/blobs.jsonl" 2>"$work/summary.txt" &
reader=$!
wait $server || true   # the clip has been sent
sleep 1                # the last frames reach their JSON lines
kill -TERM $reader
wait $reader
echo "frames in the clip: $frames, JSON lines: $(wc -l <"$work/blobs.jsonl")"
grep -v '^nerva-blobs: lost\|back after\|gave no frame' "$work/summary.txt" || true
# Where the drops fell: the frames after which some were lost.
/usr/bin/python3 - "$work/blobs.jsonl" <<'PY'
import json, sys
drops = [(l["frame"], l["dropped"]) for l in map(json.loads, open(sys.argv[1])) if l["dropped"]]
print("drops before frames (frame, dropped):", drops or "none")
PY
