#!/usr/bin/env bash
# From nothing to a trained scene: installs what is missing, builds, photographs a made-up room, solves its cameras and
# trains on it. What it makes lies in build/demo, which each run starts afresh.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target ombrelux_cli sample_capture

demo=$PWD/build/demo
rm -rf "$demo"
mkdir -p "$demo"
echo "Photographing a room..."
build/release/bin/sample_capture --size 320 --count 36 "$demo/room" >/dev/null
build/release/bin/OmbreluxCLI run "$demo/room" --resolution 320 --iterations 1500 --json >"$demo/result.json"

value() { sed -nE "s/.*\"$1\": *\"?([^\",}]*)\"?.*/\1/p" "$demo/result.json" | head -n 1; }
echo
echo "The photographs:  $demo/room/images"
echo "The scene:        $(value ply) ($(value splats) splats, trained in $(value seconds) s)"
echo "How good it is:   PSNR $(value psnr) dB, SSIM $(value ssim) on photographs that it was not trained on"
