#!/usr/bin/env bash
# Installs, only when missing, the Debian packages that building and testing
# nerva need. Idempotent and quiet: a machine that has everything is left
# alone and nothing is printed.
#
#   scripts/setup.sh            build + test dependencies (tools included)
#   scripts/setup.sh demo       ... plus the demo's video (opencv-doc)
#   scripts/setup.sh bench      ... plus the benchmark dependencies
#   scripts/setup.sh sanitize   ... plus clang and its runtimes (make fuzz)
#   scripts/setup.sh format     ... plus clang-format (make format-check)
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libopencv-core-dev        # the library's only dependency
  libopencv-imgproc-dev     # tests: the reference labeller; nerva-blobs: grey frames, clean-up, thumbnails
  libopencv-imgcodecs-dev   # tests: an independent PPM/PGM decoder; nerva-blobs: image files
  libgtest-dev googletest   # tests
  libopencv-videoio-dev     # nerva-blobs: decoding and writing videos (FFmpeg backend)
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev   # nerva-blobs: video files decoded straight to grey (luma)
  libopencv-video-dev       # nerva-blobs: the MOG2 background subtractor
  libcli11-dev              # nerva-blobs: command-line parsing
  nlohmann-json3-dev        # nerva-blobs: JSON Lines output; its tests read it back
  libcpp-httplib-dev        # nerva-blobs --serve: the live page's HTTP server; its tests' client
  chromium chromium-driver python3-selenium   # nerva-blobs tests: the live page in a headless browser
  # The Python package (python/), built and tested by make test with /usr/bin/python3
  python3-dev pybind11-dev python3-numpy   # the extension module and its arrays
  python3-opencv            # nerva.blobs_in_video: decoding, grey frames, clean-up; tests: reference labeller
  python3-distributed       # nerva-fleet: the Dask scheduler, workers and client
  python3-psutil            # nerva-fleet tests: killing a worker mid-run
  python3-pytest            # the Python tests
  chromium chromium-driver python3-selenium   # nerva-fleet tests: its progress page in a headless browser
  python3-setuptools python3-pip python3-venv python3-wheel   # pip install . (offline, no build isolation)
  ffmpeg                    # nerva-blobs tests: serve a live stream on the loopback address; nerva-fleet: codec names and recording start times (ffprobe); bench/fleet_bench.py: cuts its videos
  opencv-doc                # README test: vtest.avi, the video the README's commands run on
  jq                        # README test: the README's JSON Lines examples
)

for extra in "$@"; do
  case "$extra" in
    demo)  packages+=(opencv-doc) ;;
    bench) packages+=(libbenchmark-dev libopencv-videoio-dev opencv-doc python3-skimage) ;;
    sanitize) packages+=(clang libclang-rt-14-dev) ;;  # make fuzz
    format) packages+=(clang-format) ;;                # make format, make format-check
    test)  ;;
    *) echo "setup.sh: unknown option '$extra'" >&2; exit 2 ;;
  esac
done

missing=()
for p in $(printf '%s\n' "${packages[@]}" | sort -u); do
  status=$(dpkg-query -W -f='${db:Status-Abbrev}' "$p" 2>/dev/null || true)
  [[ "$status" == ii* ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=""
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "setup.sh: need root (or sudo) to install: ${missing[*]}" >&2; exit 1; }
  sudo="sudo"
fi

echo "setup.sh: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
# A stale package index makes installs fail with 404s; refresh it once.
$sudo apt-get update -qq >/dev/null
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
