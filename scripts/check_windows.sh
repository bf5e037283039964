#!/usr/bin/env bash
# Runs what the preset windows-cross has built under Wine, in a Windows of its own and on a screen of its own (Xvfb).
# Called by scripts/check.sh; with names of parts only those:
#   units    the unit tests, also those that need a GPU: Wine lends this system's Vulkan driver
#   usage    the command line as far as it goes without a Vulkan driver
#   crashes  crashes that leave their reports
#   work     training, going on with it, Ctrl-C, a batch that is killed, the assistant server
#   paths    long paths, names that end in a dot, roots of drives, paths that begin with \\?\
#   media    photographs and videos to scenes, with this system's COLMAP behind a program that stands for it
#   window   the window: what it shows of a project at two scales, its end, and the box where it cannot start
set -euo pipefail
cd "$(dirname "$0")/.."
bin=$PWD/build/windows-cross/bin
work=$PWD/build/windows-cross/wine
rm -rf "$work/files"
mkdir -p "$work/files/été 写"
files='Z:'$work/files

Xvfb -displayfd 3 -screen 0 1400x900x24 -nolisten tcp 3>"$work/display" >/dev/null 2>&1 &
screen=$!
trap 'wineserver -k || true; kill $screen || true' EXIT
for _ in $(seq 600); do [ ! -s "$work/display" ] || break && sleep 0.1; done
DISPLAY=:$(cat "$work/display")
export DISPLAY WINEPREFIX=$work/prefix WINEDEBUG=-all LC_ALL=C.UTF-8
without_vulkan='mscoree,mshtml,vulkan-1=' with_vulkan='mscoree,mshtml='
export WINEDLLOVERRIDES=$with_vulkan
wine wineboot --init >/dev/null 2>&1

# As people have COLMAP: a folder with a batch file and the program below it; and ffmpeg on PATH.
tools=$work/tools
mkdir -p "$tools/COLMAP-3.8-windows/bin" "$tools/ffmpeg"
cp "$bin/linux_program.exe" "$tools/COLMAP-3.8-windows/bin/colmap.exe"
cp "$bin/linux_program.exe" "$tools/ffmpeg/ffmpeg.exe"
echo 'rem sets PATH and starts bin\colmap.exe' >"$tools/COLMAP-3.8-windows/COLMAP.bat"
export WINEPATH="Z:$tools/ffmpeg"

failures=0
fail() {
  failures=$((failures + 1))
  echo "FAILED: $*"
}

# expect EXIT_CODE PART ARGUMENT...: the code, and a part of what comes on either stream, which $said then holds.
expect() {
  local code=$1 part=$2 result=0
  shift 2
  said=$(timeout 3600 wine "$bin/OmbreluxCLI.exe" "$@" 2>&1) || result=$?
  if [ "$result" -eq "$code" ] && grep -qF -- "$part" <<<"$said"; then
    echo "ok: OmbreluxCLI $*"
  else
    fail "OmbreluxCLI $*"$'\n'"exit code $result instead of $code, and not \"$part\" in:"$'\n'"$said"
  fi
}

check_units() {
  local program since
  for program in "$bin"/test_*.exe; do
    echo "-- $(basename "$program" .exe)"
    since=$SECONDS
    # A program that overflows its stack ends with 0 under Wine, so its last words count.
    # What a test sets does not reach the driver, which is this system's: with threads of its own it sums in any order.
    LP_NUM_THREADS=0 timeout 3600 wine "$program" --gtest_brief=1 2>&1 | tee "$work/files/said" || fail "$program"
    grep -qF '[  PASSED  ]' "$work/files/said" && ! grep -qF '[  FAILED  ]' "$work/files/said" || fail "$program did not pass"
    echo "$((SECONDS - since)) s"
  done
}

check_usage() {
  echo "-- the command line"
  export WINEDLLOVERRIDES=$without_vulkan
  expect 0 'Ombrelux 1.1.3 (Vulkan)' version
  expect 0 'Ceres' version --verbose
  expect 0 'Exit codes' help
  wine "$bin/OmbreluxCLI.exe" help >"$work/files/help" && cmp "$work/files/help" <(wine "$bin/OmbreluxCLI.exe" help | cat) ||
    fail 'help through a pipe is not what a file gets'
  wine "$bin/OmbreluxCLI.exe" help | head -n 1 | grep -q '^Ombrelux 1.1.3' || fail 'help to a reader that stops'
  expect 2 'error: run needs a path' run
  expect 2 '--frames needs a value' train x --frames
  expect 2 "unknown command 'foo'" foo
  expect 1 "error: No such file or folder: $files/none é写" train "$files/none é写"
  expect 1 "$files/été 写 is neither a Ombrelux project nor a COLMAP dataset" train "$files/été 写"
  expect 0 '' instructions "$files/été 写/advice.txt"
  [ -s "$work/files/été 写/advice.txt" ] || fail 'no advice.txt'
  expect 1 'Could not list Vulkan devices: No Vulkan loader found' devices
  mkdir -p "$work/files/project"
  echo '{"name": "old"}' >"$work/files/project/project.json"
  expect 1 'No Vulkan loader found' train "$files/project"
  local answer
  answer=$(echo '{"jsonrpc":"2.0","id":1,"method":"ping"}' | timeout 60 wine "$bin/OmbreluxCLI.exe" mcp 2>/dev/null) || true
  [ "$answer" = '{"jsonrpc":"2.0","id":1,"result":{}}' ] || fail "OmbreluxCLI mcp answered a ping with \"$answer\""
  answer=$(wine "$bin/Ombrelux.exe" version 2>&1) || true
  [ "$answer" = 'Ombrelux 1.1.3 (Vulkan)' ] || fail "Ombrelux version said \"$answer\""
  export WINEDLLOVERRIDES=$with_vulkan
}

# crash WAY PART: its report holds the part, the program's name among the addresses and the log's last line.
crash() {
  rm -rf "$reports"
  local result=0 text
  QUOR_TEST_CRASH=$1 timeout 600 wine "$work/stripped/OmbreluxCLI.exe" version >"$work/files/said" 2>&1 || result=$?
  text=$(cat "$reports"/OmbreluxCLI-*.txt 2>/dev/null | tr -d '\r') || true
  if [ "$result" -ne 0 ] && grep -qF -- "$2" <<<"$text" && grep -q '^  OmbreluxCLI.exe+0x' <<<"$text" &&
    grep -q 'Crashing on purpose (QUOR_TEST_CRASH)' <<<"$text" && grep -q 'A crash report was saved to:' "$work/files/said"; then
    echo "ok: $1 ($(cd "$reports" && ls | tr '\n' ' '))"
  else
    fail "the crash \"$1\", exit code $result, said:"$'\n'"$(cat "$work/files/said")"$'\n'"report:"$'\n'"$text"
  fi
}

check_crashes() {
  echo "-- crashes"
  mkdir -p "$work/stripped" # as it is shipped; Wine reads the symbols of another one for a quarter of a minute
  x86_64-w64-mingw32-strip -o "$work/stripped/OmbreluxCLI.exe" "$bin/OmbreluxCLI.exe"
  reports=$(find "$WINEPREFIX/drive_c/users" -maxdepth 3 -type d -path '*/AppData/Roaming')/Ombrelux/crashes
  crash 1 'exception: 0xc0000005 (access violation) at OmbreluxCLI.exe+0x'
  crash 1 '  writing address 0x0'
  crash thread 'exception: 0xc0000005 (access violation) at OmbreluxCLI.exe+0x'
  echo "left out: overflow, thread-overflow (Wine 8 disregards a stack guarantee and ends the thread without a handler)"
  crash divide 'exception: 0xc0000094 (integer divide by zero) at OmbreluxCLI.exe+0x'
  crash terminate 'reason: std::terminate (an exception escaped, or a thread was left running)'
  crash pure 'reason: pure virtual function call'
  crash abort 'reason: the program gave up (abort)'
}

# scene PROJECT: its scene must be a PLY with splats in it.
scene() {
  grep -qaE '^element vertex [1-9]' "$1/output/scene.ply" || fail "no scene in $1"
}

# A capture to train on, once.
make_set() {
  [ -d "$work/files/set" ] || wine "$bin/sample_capture.exe" --model --size 96 --count 10 "$files/set" >/dev/null
}

# says FILE FIRST THEN: waits until the file holds THEN below a line with FIRST.
says() {
  for _ in $(seq 3000); do
    ! sed "1,/$2/d" "$1" 2>/dev/null | grep -F -- "$3" >/dev/null || return 0
    sleep 0.2
  done
  return 1
}

check_interrupt() {
  local log=$work/files/interrupt.log result=0
  timeout 900 wine "$bin/interrupt.exe" "Z:$log" '  train: step ' "$bin/OmbreluxCLI.exe" import "$files/set" \
    --out "$files/stopped" --iterations 1000000 --no-eval || result=$?
  [ "$result" -eq 0 ] && grep -q 'scene.ply' "$log" && echo "ok: Ctrl-C during training" ||
    fail "Ctrl-C during training: $result, $(tail -n 20 "$log")"
  scene "$work/files/stopped/set_ombrelux"
}

check_batch() {
  local folder=$work/files/batch log=$work/files/batch.log
  mkdir -p "$folder"
  printf '{"destination": "built", "items": [%s, %s]}' '{"colmapImport": "../set", "training": {"iterations": 40}}' \
    '{"colmapImport": "../set", "training": {"iterations": 1000000}}' >"$folder/batch.json"
  wine "$bin/OmbreluxCLI.exe" batch "$files/batch" >"$log" 2>&1 &
  local batch=$!
  says "$log" 'set_ombrelux_2' '  train: step ' ||
    fail "the batch did not come to its second item: $(cat "$log")"
  kill -9 "$batch"
  wait "$batch" || true
  sed -i 's/1000000/60/' "$folder/batch.json"
  expect 0 '2 of 2 projects finished' batch "$files/batch"
  grep -q 'skipped: set' <<<"$said" || fail "the finished item was built again: $said"
  scene "$folder/built/set_ombrelux_2"
}

check_assistant() {
  local calls answers
  calls='{"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18","capabilities":{},"clientInfo":{"name":"check","version":"1"}}}
{"jsonrpc":"2.0","method":"notifications/initialized"}
{"jsonrpc":"2.0","id":2,"method":"tools/list"}
{"jsonrpc":"2.0","id":3,"method":"tools/call","params":{"name":"ombrelux_project_info","arguments":{"project":"'$files/set_ombrelux'"}}}
{"jsonrpc":"2.0","id":4,"method":"tools/call","params":{"name":"ombrelux_list_projects","arguments":{"folder":"'$files'"}}}'
  answers=$(timeout 300 wine "$bin/OmbreluxCLI.exe" mcp 2>"$work/files/mcp.log" <<<"$calls") || fail "mcp: $(cat "$work/files/mcp.log")"
  grep -q '"id":1,.*"protocolVersion"' <<<"$answers" && grep -q '"id":2,.*"ombrelux_capture_advice"' <<<"$answers" &&
    grep -q '"id":3,.*scene.ply' <<<"$answers" && grep -q '"id":4,.*set_ombrelux' <<<"$answers" &&
    [ "$(wc -l <<<"$answers")" -eq 4 ] && echo "ok: the assistant server" || fail "the assistant server answered: $answers"
}

check_work() {
  echo "-- work"
  make_set
  expect 0 'scene.ply' import "$files/set" --iterations 40
  scene "$work/files/set_ombrelux"
  wine "$bin/OmbreluxCLI.exe" train "$files/set_ombrelux" --resume --iterations 80 --json 2>/dev/null >"$work/files/json" || true
  python3 -c 'import json, sys; sys.exit(json.load(open(sys.argv[1]))["iterations"] != 80)' "$work/files/json" ||
    fail "training did not go on: $(cat "$work/files/json")"
  check_interrupt
  check_batch
  check_assistant
}

check_paths() {
  echo "-- paths"
  make_set
  local deep=$work/files/deep part
  part=$(printf 'deep%.0s' {1..15})
  deep=$deep/$part/$part/$part/$part
  mkdir -p "$deep"
  expect 0 'scene.ply' import "$files/set" --iterations 20 --out "Z:$deep"
  scene "$deep/set_ombrelux"
  expect 0 'scene.ply' import "$files/set" --iterations 20 --out "$files/dots." # Windows has no such names
  scene "$work/files/dots/set_ombrelux"
  ln -sfn "$work/files/set" "$WINEPREFIX/dosdevices/x:"
  mkdir -p "$work/files/drive"
  ln -sfn "$work/files/drive" "$WINEPREFIX/dosdevices/y:"
  expect 0 'Y:\X_ombrelux' import 'X:\' --iterations 20 --out 'Y:\'
  expect 0 'scene.ply' import 'X:' --iterations 20 --out "$files/relative"
  expect 0 'scene.ply' import "\\\\?\\Z:${work//\//\\}\\files\\set" --iterations 20 --out "$files/verbatim"
  expect 1 'No such file or folder' train '\\nowhere\share\project'
  rm "$WINEPREFIX/dosdevices/x:" "$WINEPREFIX/dosdevices/y:"
}

# Photographs as cameras and phones write them: the formats that this system can write for the one below to read.
make_photographs() {
  wine "$bin/sample_capture.exe" --size 320 --count 24 "$files/room" >/dev/null
  local images=$work/files/room/images
  ffmpeg -loglevel error -i "$images/photo_0001.jpg" -quality 95 "$images/photo_0001.webp" && rm "$images/photo_0001.jpg"
  ffmpeg -loglevel error -i "$images/photo_0002.jpg" "$images/photo_0002.tif" && rm "$images/photo_0002.jpg"
  heif-enc -q 90 -o "$images/photo_0003.heic" "$images/photo_0003.jpg" >/dev/null && rm "$images/photo_0003.jpg"
}

check_media() {
  echo "-- media to scenes"
  local colmap="Z:$tools/COLMAP-3.8-windows" small=(--resolution 160 --iterations 60)
  expect 0 '[0] ' devices
  make_photographs
  expect 1 'tools\colmap' run "$files/room" --out "$files" # no COLMAP: where to put it
  expect 0 'scene.ply' run "$files/room" --colmap "$colmap" --out "$files/été 写" "${small[@]}" --splat
  grep -q 'Registered 24 of 24 images' <<<"$said" || fail "not every photograph found its place: $said"
  local project=$work/files/été\ 写/room_ombrelux
  scene "$project"
  expect 0 'scene.ply' train "Z:$project" --resume --iterations 90
  grep -q '90' "$project/output/result.json" || fail 'training did not go on'
  expect 0 'scene.ply' import "Z:$project/colmap/undistorted" --out "$files/imported" "${small[@]}"

  wine "$bin/sample_capture.exe" --kind video --size 320 --count 60 "$files/film" >/dev/null
  expect 0 'scene.ply' run "$files/film/video.mp4" --frames 30 --colmap "$colmap\\COLMAP.bat" "${small[@]}"
  scene "$work/files/film/video_ombrelux"
  ffmpeg -loglevel error -i "$work/files/film/video.mp4" -c:v libx265 -x265-params log-level=none "$work/files/film/phone.mov"
  expect 0 'scene.ply' run "$files/film/phone.mov" --frames 20 --colmap "$colmap\\bin\\colmap.exe" --cpu-matching "${small[@]}"
  scene "$work/files/film/phone_ombrelux"

  wine "$bin/sample_capture.exe" --kind video360 --size 768 --count 8 "$files/sphere" >/dev/null
  expect 0 'scene.ply' run "$files/sphere/video360.mp4" --frames 48 --colmap "$colmap" "${small[@]}"
  scene "$work/files/sphere/video360_ombrelux"
  wine "$bin/sample_capture.exe" --kind dualfisheye --size 320 --count 12 "$files/fisheye" >/dev/null
  expect 0 'scene.ply' run "$files/fisheye/video.insv" --frames 12 --colmap "$colmap" "${small[@]}"
  scene "$work/files/fisheye/video_ombrelux"
}

# The number of different colours on the screen.
colours() {
  ffmpeg -loglevel error -y -f x11grab -video_size 1400x900 -i "$DISPLAY" -frames:v 1 "$work/screen.png" &&
    ffmpeg -loglevel error -i "$work/screen.png" -vf scale=350:225 -f rawvideo -pix_fmt rgb24 - | xxd -p -c 3 | sort -u | wc -l
}

# window PICTURE: opens the project, waits until its scene is there, keeps a picture and asks it to close.
window() {
  wine "$bin/Ombrelux.exe" "$files/set_ombrelux" >"$work/files/window" 2>&1 &
  local window=$! shown=0 result=0
  for _ in $(seq 120); do
    shown=$(colours)
    [ "$shown" -lt 1000 ] || break
    kill -0 "$window" 2>/dev/null || break
    sleep 2
  done
  sleep 5 # for the last details
  colours >/dev/null && mv "$work/screen.png" "$work/$1"
  echo "the window shows $shown colours: $work/$1"
  [ "$shown" -ge 1000 ] || fail "the window shows no scene: $(cat "$work/files/window")"
  wine taskkill /im Ombrelux.exe >/dev/null 2>&1 || fail 'the window could not be asked to close'
  wait "$window" || result=$?
  [ "$result" -eq 0 ] || fail "the window ended with $result: $(cat "$work/files/window")"
}

# scale DPI: of the whole screen, as Windows' settings set it.
scale() {
  wine reg add 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d "$1" /f >/dev/null
  wineserver -k || true
  wineserver -w
}

# Started with the mouse, there is nobody who reads standard error.
check_box() {
  local result=0 WINDOW X Y WIDTH HEIGHT
  WINEDLLOVERRIDES=$without_vulkan wine "$bin/Ombrelux.exe" >"$work/files/box" 2>&1 &
  local window=$!
  for _ in $(seq 60); do # the window comes and goes before the box, which is smaller
    sleep 2
    kill -0 "$window" 2>/dev/null || break
    eval "$(xdotool search --onlyvisible --name '^Ombrelux$' getwindowgeometry --shell 2>/dev/null | tail -n 6)"
    [ "${HEIGHT:-1000}" -lt 300 ] || continue
    colours >/dev/null && mv "$work/screen.png" "$work/box.png"
    xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT - 22)) click 1 # its only button
  done
  wait "$window" || result=$?
  [ "$result" -eq 1 ] && grep -q 'No Vulkan loader found' "$work/files/box" && echo "ok: the box ($work/box.png)" ||
    fail "without Vulkan the window ended with $result: $(cat "$work/files/box")"
}

check_window() {
  echo "-- the window"
  make_set
  [ -d "$work/files/set_ombrelux" ] || expect 0 'scene.ply' import "$files/set" --resolution 96 --iterations 30
  window window.png
  scale 144
  window window_150.png
  scale 96
  check_box
}

[ $# -gt 0 ] || set -- units usage crashes work paths media window
for part in "$@"; do
  started=$SECONDS
  "check_$part"
  echo "$part: $((SECONDS - started)) s"
done
[ "$failures" -eq 0 ] || { echo "$failures failed" && exit 1; }
