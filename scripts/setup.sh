#!/usr/bin/env bash
# Installs what building, testing and running Ombrelux needs on Debian 12. Does nothing when all of it is there.
set -euo pipefail

packages=(
  build-essential cmake ninja-build git ca-certificates
  nlohmann-json3-dev libsqlite3-dev libceres-dev libstb-dev libnanoflann-dev
  libvulkan-dev libvulkan-volk-dev libvulkan1 glslc
  libglfw3-dev libimgui-dev fonts-dejavu-core xvfb xdotool
  pkg-config libavformat-dev libavcodec-dev libavfilter-dev libavutil-dev libswscale-dev libheif-dev
  colmap ffmpeg
  mesa-vulkan-drivers vulkan-validationlayers
  libgtest-dev libgmock-dev
  clang clang-format clang-tidy libclang-rt-14-dev
)
# Node tests the assistant server with a client of others. Wherever it comes from, it brings its own npm.
command -v node >/dev/null && command -v npm >/dev/null || packages+=(nodejs npm)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

run=()
[ "$(id -u)" -eq 0 ] || run=(sudo)
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${run[@]}" apt-get update -qq
"${run[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
