#!/usr/bin/env bash
# From nothing to a trained scene: installs what is missing, builds, and runs the whole program.
#
#   scripts/demo.sh [MEDIA...] [options]
#
# MEDIA are photographs' folders, videos, a COLMAP dataset or a project; options are those of `OmbreluxCLI run`. Without
# MEDIA it photographs a made-up room, in build/demo. Without a GPU, and where the options do not say otherwise, it takes
# few frames, small images and few steps, so that the scene is there in minutes.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
case ${1:-} in
  -h | --help)
    sed -n '2,/^set/{/^set/!s/^# \{0,1\}//p}' "$0"
    exit 0
    ;;
esac
"$top/scripts/setup.sh"
(cd "$top" && cmake --preset release >/dev/null && cmake --build --preset release --target ombrelux_cli ombrelux_desktop sample_capture)
cli=$top/build/release/bin/OmbreluxCLI

given=" $* "
default() { [[ "$given ${defaults[*]} " == *" $1 "* ]] || defaults+=("$@"); }
defaults=()
command=run
if [ $# -eq 0 ] || [[ $1 == -* ]]; then
  demo=$top/build/demo
  rm -rf "$demo"
  mkdir -p "$demo"
  echo "Photographing a made-up room..."
  "$top/build/release/bin/sample_capture" --size 320 --count 36 "$demo/room" >/dev/null
  set -- "$demo/room" "$@"
  default --resolution 320
  default --iterations 1500
elif [ -e "$1/project.json" ] || { [ -d "$1/images" ] && [ -d "$1/sparse" ]; }; then
  command=train
fi
devices=$("$cli" devices)
if ! grep -qvi llvmpipe <<<"$devices"; then
  if [ "$command" = run ]; then # the time of matching grows with the square of the details in a picture
    default --frames 40
    default --max-dimension 640
  fi
  default --resolution 320
  default --iterations 2000
  echo "There is no GPU here: training runs on the processor, with ${defaults[*]:-the options that were given}."
fi

result=$(mktemp)
trap 'rm -f "$result"' EXIT
"$cli" "$command" "$@" "${defaults[@]}" --json >"$result"

value() { sed -nE "s/.*\"$1\": *\"?([^\",}]*)\"?.*/\1/p" "$result" | head -n 1; }
echo
echo "The project:     $(value project)"
echo "The scene:       $(value ply) ($(value splats) splats, trained in $(value seconds) s)"
[ -z "$(value psnr)" ] || echo "How good it is:  PSNR $(value psnr) dB, SSIM $(value ssim) on photographs that it was not trained on"
echo "Look at it with: $top/build/release/bin/Ombrelux \"$(value project)\""
