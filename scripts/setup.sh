#!/usr/bin/env bash
# Installs the Debian packages Vimora needs that are not installed yet.
#   scripts/setup.sh build     compilers, libraries and headers
#   scripts/setup.sh test      the above plus the independent tools the tests use
#   scripts/setup.sh bench     the above plus the peer tools of the benchmarks
set -euo pipefail

build_packages=(
  g++ cmake ninja-build pkg-config
  libjpeg62-turbo-dev libpng-dev libtiff-dev libgif-dev zlib1g-dev
  libwebp-dev libopenjp2-7-dev libheif-dev libdeflate-dev
  libmotif-dev libxt-dev libx11-dev libxext-dev libxpm-dev
)
test_packages=(
  libgtest-dev libgmock-dev
  netpbm imagemagick libjpeg-turbo-progs libtiff-tools giflib-tools
  webp libopenjp2-tools libheif-examples clang
  xvfb xauth x11-utils x11-apps x11-xserver-utils xdotool xfonts-base xfonts-75dpi
)
bench_packages=(graphicsmagick libvips-tools hyperfine linux-perf feh)

wanted=("${build_packages[@]}")
case "${1:-build}" in
  build) ;;
  test) wanted+=("${test_packages[@]}") ;;
  bench) wanted+=("${test_packages[@]}" "${bench_packages[@]}") ;;
  *) echo "usage: $0 [build|test|bench]" >&2; exit 2 ;;
esac

missing=()
for p in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "run as root to install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y --no-install-recommends -o DPkg::Lock::Timeout=300 "${missing[@]}"
