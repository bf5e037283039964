#!/usr/bin/env bash
# Draws ombrelux.ico from ../ombrelux.svg; run it when the drawing has changed. Needs rsvg-convert and ImageMagick.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for size in 16 24 32 48 64 256; do
  rsvg-convert -w "$size" -h "$size" ../ombrelux.svg -o "$work/$size.png"
done
convert "$work"/{16,24,32,48,64,256}.png ombrelux.ico
