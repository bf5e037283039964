#!/usr/bin/env bash
# Makes the packages and tries them. They end up in build/packages, with their checksums.
#   scripts/package.sh [deb] [tgz] [windows]     without arguments all of them
#   deb      the whole program for Debian 12; as root it is also installed, run and removed in a fresh system (debootstrap)
#   tgz      the trainer without media and window, for any Linux with glibc 2.35
#   windows  the whole program as a zip and as an installer (NSIS), tried under Wine
# What it needs from Debian is installed when it runs as root.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/need.sh
out=$PWD/build/packages
mkdir -p "$out"
work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# pack PRESET TARGET...: builds the targets, then the preset's packages.
pack() {
  local preset=$1
  shift
  cmake --preset "$preset" >"$work/configured"
  ! grep 'No licence to install' "$work/configured" || fail 'licences are missing: run scripts/setup.sh'
  cmake --build --preset "$preset" --target "$@"
  (cd "build/$preset" && cpack -B "$work/$preset" >"$work/packed" 2>&1) || fail "cpack: $(cat "$work/packed")"
  find "$work/$preset" -maxdepth 1 -type f -name 'ombrelux*' -exec mv {} "$out/" \;
}

# Whether each package's text of its licences is there, and the texts that these name.
check_licences() {
  local count
  count=$(find "$1" -type f | wc -l)
  [ "$count" -ge "$2" ] || fail "only $count licences in $1"
}

check_desktop_files() {
  local share=$1/usr/share
  desktop-file-validate "$share/applications/ombrelux.desktop"
  # Names that begin with a domain are for projects that have one.
  appstreamcli validate --no-net --override cid-desktopapp-is-not-rdns=info "$share/metainfo/ombrelux.metainfo.xml" || fail 'the AppStream metainfo'
  mkdir -p "$work/mime/packages"
  cp /usr/share/mime/packages/freedesktop.org.xml "$share/mime/packages/ombrelux.xml" "$work/mime/packages/"
  update-mime-database "$work/mime" 2>&1 | grep -i ombrelux && fail 'the MIME types'
  grep -q 'application/x-ombrelux-checkpoint:\*.quor' "$work/mime/globs2" || fail 'no type for *.quor'
  [ -z "$(MANROFFSEQ= man --warnings -E UTF-8 -l -Tutf8 "$share/man/man1/OmbreluxCLI.1" 2>&1 >/dev/null)" ] || fail 'the manual page'
  rsvg-convert -w 48 "$share/icons/hicolor/scalable/apps/ombrelux.svg" -o "$work/icon.png"
}

# completes EXPECTED WORD...: what the last, unfinished word may become.
completes() {
  local expected=$1
  shift
  PATH=$tree/usr/bin:$PATH bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _ombrelux OmbreluxCLI
    echo "${COMPREPLY[*]}"' - "$tree/usr/share/bash-completion/completions/OmbreluxCLI" "$@" 2>/dev/null | grep -qxF -- "$expected" ||
    fail "completion of \"$*\" is not \"$expected\""
}

make_root() {
  root=$work/root
  debootstrap --variant=minbase --include=ca-certificates bookworm "$root" http://deb.debian.org/debian >"$work/debootstrap" 2>&1 ||
    fail "debootstrap: $(tail "$work/debootstrap")"
}

inside() {
  chroot "$root" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 HOME=/root "$@"
}

check_fresh_system() {
  local deb=$1 before
  make_root
  cp "$deb" "$root/tmp/"
  inside apt-get install -y -qq --no-install-recommends "/tmp/$(basename "$deb")" >"$work/apt" 2>&1 || fail "$(tail "$work/apt")"
  inside OmbreluxCLI version --verbose
  inside sh -c 'OmbreluxCLI devices 2>&1 || true'
  inside apt-get install -y -qq --no-install-recommends mesa-vulkan-drivers fonts-dejavu-core >>"$work/apt" 2>&1
  inside OmbreluxCLI devices
  build/release/bin/sample_capture --model --size 96 --count 10 "$root/tmp/set" >/dev/null
  inside OmbreluxCLI import /tmp/set --iterations 40 --quiet
  check_window
  before=$(inside dpkg -L ombrelux | grep -c .)
  inside apt-get remove -y -qq ombrelux >>"$work/apt" 2>&1
  [ -z "$(find "$root/usr" "$root/etc" "$root/var/lib/dpkg/info" -iname '*ombrelux*')" ] || fail 'removal leaves files behind'
  echo "ok: installed, ran and was removed in a fresh Debian 12 ($before paths)"
}

# Xvfb listens on a socket that has no place in the file system, so the fresh system sees it.
check_window() {
  local screen display window
  Xvfb -displayfd 3 -screen 0 1000x700x24 -nolisten tcp 3>"$work/display" >/dev/null 2>&1 &
  screen=$!
  until [ -s "$work/display" ]; do sleep 0.1; done
  display=:$(cat "$work/display")
  inside env DISPLAY="$display" Ombrelux /tmp/set_ombrelux/project.json >"$work/window" 2>&1 &
  window=$!
  DISPLAY=$display timeout 120 xdotool search --sync --onlyvisible --name 'set' >/dev/null || fail "no window: $(cat "$work/window")"
  sleep 10
  ffmpeg -loglevel error -y -f x11grab -video_size 1000x700 -i "$display" -frames:v 1 "$out/window.png"
  DISPLAY=$display xdotool key ctrl+q
  wait "$window" || fail "the window ended with $?: $(cat "$work/window")"
  kill "$screen"
  echo "ok: the window ($out/window.png)"
}

package_deb() {
  need desktop-file-utils appstream shared-mime-info man-db librsvg2-bin file
  scripts/setup.sh
  pack release ombrelux_cli ombrelux_desktop sample_capture manual
  local deb tree
  deb=$(ls -t "$out"/ombrelux_*.deb | head -n 1)
  tree=$work/deb
  dpkg-deb -x "$deb" "$tree"
  dpkg-deb -f "$deb" Depends Recommends Installed-Size
  check_desktop_files "$tree"
  check_licences "$tree/usr/share/doc/ombrelux/licences" 6
  completes 'import instructions' OmbreluxCLI i
  completes '--iterations' OmbreluxCLI train --it
  completes 'vanilla' OmbreluxCLI train --technique va
  [ "$(id -u)" -eq 0 ] || { echo 'Not root: not tried in a fresh system.' && return; }
  need debootstrap
  check_fresh_system "$deb"
}

package_tgz() {
  scripts/setup.sh
  pack portable ombrelux_cli manual
  local archive tree newest
  archive=$(ls -t "$out"/ombrelux-trainer-*.tar.gz | head -n 1)
  mkdir "$work/tgz"
  tar -xf "$archive" -C "$work/tgz"
  tree=$(echo "$work"/tgz/*)
  "$tree/bin/OmbreluxCLI" version --verbose
  check_licences "$tree/share/doc/ombrelux/licences" 6
  newest=$(objdump -T "$tree/bin/OmbreluxCLI" | grep -o 'GLIBC_[0-9.]*' | sort -uV | tail -n 1)
  [ "$(printf '%s\n' "$newest" GLIBC_2.35 | sort -V | tail -n 1)" = GLIBC_2.35 ] || fail "it asks for $newest"
  echo "ok: needs $newest and $(objdump -p "$tree/bin/OmbreluxCLI" | awk '/NEEDED/ {print $2}' | tr '\n' ' ')"
}

# installed VALUE KEY NAME: what the installer must have written into the registry.
registered() {
  wine reg query "HKLM\\$2" /v "$3" 2>/dev/null | grep -qF -- "$1" || wine reg query "HKCU\\$2" /v "$3" 2>/dev/null | grep -qF -- "$1"
}

check_installer() {
  local installer=$1 folder
  export WINEPREFIX=$work/wine WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' DISPLAY=
  wine wineboot --init >/dev/null 2>&1
  wine "$installer" /S || fail "the installer ended with $?"
  wineserver -w
  folder=$(dirname "$(find "$WINEPREFIX/drive_c" -name OmbreluxCLI.exe)")
  [ -f "$folder/Ombrelux.exe" ] || fail 'the installer installed nothing'
  wine "$folder/OmbreluxCLI.exe" version | grep -q '^Ombrelux ' || fail 'the installed program'
  check_licences "$folder/licences" 15
  registered 'Ombrelux.Checkpoint' 'Software\Classes\.quor' '' && registered 'Ombrelux.exe" "%1"' \
    'Software\Classes\Directory\shell\Ombrelux\command' '' || fail 'the file associations'
  wine "$folder/Uninstall.exe" /S
  wineserver -w
  for _ in $(seq 50); do [ -e "$folder" ] && sleep 0.2; done # a copy of it finishes
  wineserver -w
  [ ! -e "$folder" ] || fail "the uninstaller leaves: $(find "$folder")"
  ! registered 'Ombrelux' 'Software\Classes\.quor' '' || fail 'the uninstaller leaves the file associations'
  wineserver -k || true
  echo "ok: installed, ran and was removed under Wine"
}

package_windows() {
  need g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 dpkg-dev nasm tcl googletest nsis wine wine64 unzip
  scripts/setup.sh
  scripts/windows_libraries.sh
  pack windows-cross ombrelux_cli ombrelux_desktop
  local archive installer dlls
  archive=$(ls -t "$out"/ombrelux-*-windows-x64.zip | head -n 1)
  installer=${archive%.zip}.exe
  unzip -q "$archive" -d "$work/zip"
  check_licences "$(find "$work/zip" -name licences)" 15
  dlls=$(find "$work/zip" -name '*.exe' -exec x86_64-w64-mingw32-objdump -p {} + | awk '/DLL Name/ {print tolower($3)}' | sort -u | tr '\n' ' ')
  echo "DLLs: $dlls"
  ! grep -qE 'lib(gcc|stdc|winpthread|av|sw)' <<<"$dlls" || fail 'a library is not linked in'
  check_installer "$installer"
}

[ $# -gt 0 ] || set -- deb tgz windows
for name in "$@"; do
  case $name in
    deb | tgz | windows) ;;
    *)
      echo "package.sh takes deb, tgz or windows, not '$name'." >&2
      exit 2
      ;;
  esac
done
for name in "$@"; do
  echo "== $name"
  "package_$name"
done
(cd "$out" && sha256sum ombrelux* >SHA256SUMS && ls -l ombrelux* && cat SHA256SUMS)
