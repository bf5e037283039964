#!/usr/bin/env bash
# Builds the libraries of the Windows programs with MinGW-w64, as static libraries, from Debian's source packages:
# apt checks what it downloads, and the version is the one that Debian ships. They lie outside the tree, in
# $OMBRELUX_WINDOWS_LIBRARIES (default ~/.cache/ombrelux-windows); what is there already is not built again.
#   scripts/windows_libraries.sh [zlib sqlite3 glfw3 imgui ffmpeg libde265 libheif eigen3 ceres]
set -euo pipefail

target=x86_64-w64-mingw32
root=${OMBRELUX_WINDOWS_LIBRARIES:-$HOME/.cache/ombrelux-windows}
prefix=$root/$target
jobs=${OMBRELUX_WINDOWS_JOBS:-2}
toolchain=$(cd "$(dirname "$0")/.." && pwd)/cmake/windows/toolchain.cmake
mkdir -p "$root/stamps" "$root/apt/lists/partial" "$root/apt/cache/archives/partial" "$prefix/lib/pkgconfig" "$prefix/include"
export PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig OMBRELUX_WINDOWS_LIBRARIES=$root
exec 9>"$root/lock"
flock 9 # two checkouts share the folder

# Debian's sources, listed beside the system's own list of packages and without changing it.
apt_sources() {
  apt-get -qq -o Dir::Etc::SourceList="$root/apt/debian.sources" -o Dir::Etc::SourceParts=/dev/null \
    -o Dir::State::Lists="$root/apt/lists" -o Dir::Cache="$root/apt/cache" -o APT::Sandbox::User=root "$@"
}

list_sources() {
  [ ! -e "$root/apt/debian.sources" ] || return 0
  local suite
  suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
  printf '%s\n' 'Types: deb-src' 'URIs: http://deb.debian.org/debian' "Suites: $suite $suite-updates" 'Components: main' \
    'Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg' >"$root/apt/new.sources"
  mv "$root/apt/new.sources" "$root/apt/debian.sources"
  apt_sources update
}

# fetch PACKAGE: its sources with Debian's patches, in the folder that $source then names.
fetch() {
  list_sources
  source=$root/build/$1
  rm -rf "$source"
  mkdir -p "$source"
  (cd "$source" && apt_sources source --download-only "$1" && dpkg-source --no-check -x ./*.dsc tree)
  basename "$source"/*.dsc .dsc >"$root/build/version"
  source=$source/tree
}

with_cmake() {
  cmake -S "$source" -B "$source/build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DBUILD_SHARED_LIBS=OFF "$@"
  nice cmake --build "$source/build" -j "$jobs" --target install
}

build_zlib() {
  fetch zlib
  (cd "$source" && CHOST=$target CFLAGS='-O2 -ffunction-sections' ./configure --static --prefix="$prefix" &&
    nice make -j "$jobs" install)
}

build_sqlite3() {
  fetch sqlite3
  # The amalgamation is made here, by programs for this machine; only its one source is compiled for Windows.
  (cd "$source" && ./configure --disable-tcl --disable-readline && nice make sqlite3.c &&
    nice $target-gcc-posix -O2 -DSQLITE_OMIT_LOAD_EXTENSION -DSQLITE_THREADSAFE=1 -c sqlite3.c -o sqlite3.o &&
    $target-ar rcs "$prefix/lib/libsqlite3.a" sqlite3.o && cp sqlite3.h "$prefix/include/")
}

build_glfw3() {
  fetch glfw3
  with_cmake -DGLFW_BUILD_EXAMPLES=OFF -DGLFW_BUILD_TESTS=OFF -DGLFW_BUILD_DOCS=OFF
}

build_imgui() {
  fetch imgui
  mkdir -p "$source/stb_include" "$prefix/include/imgui/backends"
  ln -s /usr/include/stb "$source/stb_include/stb" # Debian's sources are without their copies of these headers
  (cd "$source" && cp ./*.h misc/cpp/imgui_stdlib.h "$prefix/include/imgui/" &&
    cp backends/imgui_impl_glfw.h "$prefix/include/imgui/backends/" &&
    nice $target-g++-posix -O2 -I. -Istb_include -Istb_include/stb -I"$prefix/include" -c imgui.cpp imgui_draw.cpp \
      imgui_tables.cpp imgui_widgets.cpp misc/cpp/imgui_stdlib.cpp backends/imgui_impl_glfw.cpp &&
    $target-ar rcs "$prefix/lib/libimgui.a" imgui*.o)
  printf '%s\n' "prefix=$prefix" 'Name: imgui' 'Description: Immediate mode interface' \
    "Version: $(sed -n 's/.*define IMGUI_VERSION *"\([^"]*\)".*/\1/p' "$prefix/include/imgui/imgui.h")" \
    'Libs: -L${prefix}/lib -limgui' 'Cflags: -I${prefix}/include/imgui' >"$prefix/lib/pkgconfig/imgui.pc"
}

# What the program reads, filters and writes, and no more: it is linked into every executable.
ffmpeg_parts=(
  --enable-protocol=file
  --enable-demuxer=mov,matroska,avi,mpegts,mpegps,asf,m4v,h264,hevc,mjpeg
  --enable-muxer=mp4
  --enable-decoder=h264,hevc,vp8,vp9,mpeg1video,mpeg2video,mpeg4,msmpeg4v2,msmpeg4v3,h263,wmv1,wmv2,wmv3,vc1,prores,dnxhd,cfhd,dvvideo,rawvideo
  --enable-decoder=mjpeg,png,bmp,targa,tiff,webp
  --enable-encoder=mjpeg,mpeg4,png,bmp,targa,tiff
  --enable-parser=h264,hevc,vp8,vp9,mpegvideo,mpeg4video,h263,vc1,dnxhd,mjpeg,png
  --enable-filter=buffer,buffersink,null,fps,scale,format,split,transpose,hflip,vflip,v360
)

build_ffmpeg() {
  fetch ffmpeg
  (cd "$source" && ./configure --prefix="$prefix" --arch=x86_64 --target-os=mingw32 --enable-cross-compile \
    --cross-prefix=$target- --cc=$target-gcc-posix --cxx=$target-g++-posix --pkg-config=pkg-config \
    --pkg-config-flags=--static --enable-static --disable-shared --disable-debug --disable-programs --disable-doc \
    --disable-autodetect --enable-zlib --disable-network --disable-avdevice --disable-postproc --disable-swresample \
    --extra-cflags="-I$prefix/include" --extra-ldflags="-L$prefix/lib" --disable-everything "${ffmpeg_parts[@]}" &&
    nice make -j "$jobs" install)
}

build_libde265() {
  fetch libde265
  with_cmake -DENABLE_SDL=OFF -DENABLE_ENCODER=OFF -DENABLE_DECODER=OFF -DCMAKE_CXX_FLAGS=-DLIBDE265_STATIC_BUILD
  sed -i 's/^Cflags:.*/& -DLIBDE265_STATIC_BUILD/' "$prefix/lib/pkgconfig/libde265.pc"
}

build_libheif() {
  fetch libheif
  with_cmake -DWITH_EXAMPLES=OFF -DENABLE_PLUGIN_LOADING=OFF -DWITH_LIBDE265=ON -DWITH_LIBDE265_PLUGIN=OFF -DWITH_X265=OFF \
    -DWITH_AOM_DECODER=OFF -DWITH_AOM_ENCODER=OFF -DWITH_DAV1D=OFF -DWITH_SvtEnc=OFF -DWITH_RAV1E=OFF \
    -DCMAKE_CXX_FLAGS='-DLIBHEIF_STATIC_BUILD -DLIBDE265_STATIC_BUILD'
  sed -i 's/^Cflags:.*/& -DLIBHEIF_STATIC_BUILD/' "$prefix/lib/pkgconfig/libheif.pc"
}

build_eigen3() {
  fetch eigen3
  with_cmake -DEIGEN_BUILD_DOC=OFF -DBUILD_TESTING=OFF -DEIGEN_BUILD_PKGCONFIG=OFF -DEIGEN_TEST_NOQT=ON \
    -DCMAKE_Fortran_COMPILER=NOTFOUND
}

build_ceres() {
  fetch ceres-solver
  # Without its code for fixed sizes of blocks, which takes longer to compile than everything else, and silent but for
  # warnings (-1): its remarks would be printed among those of the program.
  with_cmake -DSCHUR_SPECIALIZATIONS=OFF -DMINIGLOG=ON -DGFLAGS=OFF -DSUITESPARSE=OFF -DCXSPARSE=OFF -DLAPACK=OFF -DEIGENSPARSE=ON -DBUILD_TESTING=OFF \
    -DBUILD_EXAMPLES=OFF -DBUILD_BENCHMARKS=OFF -DBUILD_DOCUMENTATION=OFF -DMINIGLOG_MAX_LOG_LEVEL=-1 -DCMAKE_CXX_FLAGS=-Wno-attributes
}

[ $# -gt 0 ] || set -- zlib sqlite3 glfw3 imgui ffmpeg libde265 libheif eigen3 ceres
for name in "$@"; do
  [ "$(type -t "build_$name")" = function ] || { echo "windows_libraries.sh knows no library '$name'." >&2 && exit 2; }
  stamp=$root/stamps/$name
  recipe=$({ declare -f "build_$name" with_cmake && echo "$target ${ffmpeg_parts[*]}"; } | sha256sum)
  [ "$(tail -n 1 "$stamp" 2>/dev/null)" != "$recipe" ] || continue
  started=$SECONDS
  log=$root/$name.log
  trap 'echo "Building $name for Windows failed:" >&2; tail -n 30 "$log" >&2' EXIT
  "build_$name" >"$log" 2>&1
  trap - EXIT
  { cat "$root/build/version" && echo "$recipe"; } >"$stamp"
  echo "$(head -n 1 "$stamp") for Windows: $((SECONDS - started)) s"
  rm -rf "$root/build"
done
