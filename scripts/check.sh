#!/usr/bin/env bash
# Checks what the tests alone cannot see. Without arguments asan, tsan and tidy, else those named:
#   asan     every test under AddressSanitizer, LeakSanitizer and UndefinedBehaviorSanitizer, with Vulkan validation
#   tsan     the tests of what has threads of its own under ThreadSanitizer:
#            the label "threads", and of `gs` the dataset, the engine, the trainer and its live copy
#   tidy     clang-tidy over all sources but those that only Windows compiles
#   changed  clang-tidy over the sources that differ from the branch main
#   drivers  the tests of the kernels on a second Vulkan driver: SwiftShader, with subgroups of four and no native float
#            atomics, from the npm package of a browser
#   windows  (also --windows) builds for Windows with MinGW-w64, with its libraries, and runs unit tests, the command line,
#            the window and crashes under Wine; what it needs from Debian is installed when it runs as root
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/need.sh

build() {
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1"
}

check_asan() {
  build asan
  # Drivers and layers stay loaded, so that a report names the library of every frame and a suppression can name it, too.
  local keep=$PWD/build/asan/keep_loaded.so
  echo 'int dlclose(void* handle) { (void)handle; return 0; }' | cc -shared -fPIC -x c - -o "$keep"
  QUOR_VALIDATION=1 LD_PRELOAD=$keep UBSAN_OPTIONS=print_stacktrace=1 \
    ASAN_OPTIONS=verify_asan_link_order=0 LSAN_OPTIONS=suppressions=$PWD/scripts/lsan_suppressions.txt:print_suppressions=0 \
    ctest --preset asan
}

check_tsan() {
  build tsan
  # ThreadSanitizer cannot map its shadow memory where the kernel spreads addresses widely.
  export TSAN_OPTIONS=suppressions=$PWD/scripts/tsan_suppressions.txt
  setarch -R ctest --preset tsan -L threads
  setarch -R build/tsan/bin/test_gs --gtest_filter='Dataset*:Engine*:Trainer*:LiveScene*'
}

tidy() {
  [ $# -gt 0 ] || return 0
  cmake --preset release >/dev/null
  cmake --build --preset release --target ombrelux_gpu # for the sources that the build makes
  printf '%s\0' "$@" | xargs -0 -n 1 -P "$(nproc)" clang-tidy-14 -p build/release --quiet --extra-arg=-Wno-unknown-warning-option
}

check_tidy() {
  mapfile -t files < <(git ls-files -- 'src/*.cpp' 'tools/*.cpp' 'bench/*.cpp' ':(exclude)src/base/platform/win32')
  tidy "${files[@]}"
}

check_changed() {
  mapfile -t files < <(git diff --name-only --diff-filter=d main -- 'src/*.cpp' 'tools/*.cpp' 'bench/*.cpp' ':(exclude)src/base/platform/win32')
  tidy "${files[@]}"
}

# In the cache of the user, since it is large; the file that names the driver needs its whole path.
swiftshader() {
  local folder=${XDG_CACHE_HOME:-$HOME/.cache}/ombrelux-swiftshader package=@sparticuz/chromium@147.0.0
  if [ ! -f "$folder/icd.json" ]; then
    mkdir -p "$folder"
    (cd "$folder" && npm pack --silent "$package" >/dev/null && tar xzf ./*.tgz package/bin/swiftshader.tar.br && rm ./*.tgz &&
      node -e 'const fs = require("fs"); fs.writeFileSync("driver.tar",
        require("zlib").brotliDecompressSync(fs.readFileSync("package/bin/swiftshader.tar.br")))' &&
      tar xf driver.tar libvk_swiftshader.so vk_swiftshader_icd.json && rm -r package driver.tar &&
      sed "s|\"library_path\": *\"[^\"]*\"|\"library_path\": \"$PWD/libvk_swiftshader.so\"|" vk_swiftshader_icd.json >icd.json)
  fi
  echo "$folder/icd.json"
}

check_drivers() {
  build release
  local driver
  driver=$(swiftshader)
  VK_ICD_FILENAMES=$driver build/release/bin/OmbreluxCLI devices | grep SwiftShader
  # A resumed run is the unstopped one only where additions happen in one order, and this driver's fibers have none.
  VK_ICD_FILENAMES=$driver build/release/bin/test_gpu --gtest_brief=1
  VK_ICD_FILENAMES=$driver build/release/bin/test_kernels --gtest_brief=1
  VK_ICD_FILENAMES=$driver build/release/bin/test_gs --gtest_brief=1 \
    --gtest_filter='-ResumeTest.AResumedRunIsTheUnstoppedOne'
  VK_ICD_FILENAMES=$driver build/release/bin/test_sfm --gtest_brief=1 --gtest_filter='*Gpu*:*Sift*:*Match*'
}

check_windows() {
  need g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 dpkg-dev nasm tcl googletest wine wine64 xxd libheif-examples
  scripts/windows_libraries.sh
  build windows-cross
  scripts/check_windows.sh
}

[ $# -gt 0 ] || set -- asan tsan tidy
set -- "${@/#--windows/windows}"
for name in "$@"; do
  case $name in
    asan | tsan | tidy | changed | drivers | windows) ;;
    *)
      echo "check.sh takes asan, tsan, tidy, changed, drivers or windows, not '$name'." >&2
      exit 2
      ;;
  esac
done
scripts/setup.sh
for name in "$@"; do
  echo "== $name"
  "check_$name"
done
