#!/usr/bin/env bash
# Installs, only when missing, the Debian packages that building and testing
# nerva need. Idempotent and quiet: a machine that has everything is left
# alone and nothing is printed.
#
#   scripts/setup.sh            build + test dependencies
#   scripts/setup.sh demo       ... plus what the demo program needs
#   scripts/setup.sh bench      ... plus the benchmark dependencies
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libopencv-core-dev        # the library's only dependency
  libopencv-imgproc-dev     # tests: connectedComponentsWithStats as the reference labeller
  libopencv-imgcodecs-dev   # tests: an independent PPM/PGM decoder
  libgtest-dev googletest   # tests
)

for extra in "$@"; do
  case "$extra" in
    demo)  packages+=(libopencv-videoio-dev libopencv-video-dev opencv-doc libcli11-dev nlohmann-json3-dev) ;;
    bench) packages+=(libbenchmark-dev libopencv-videoio-dev opencv-doc) ;;
    sanitize) packages+=(clang libclang-rt-14-dev) ;;
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
