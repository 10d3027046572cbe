#!/usr/bin/env bash
# Peak RSS of compressing a generated 40-megapixel JPEG through the capture path (see
# media_compress_bench.cpp for the bound). QUORVANE_BENCH_BUILD: build directory to use.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVANE_BENCH_BUILD:-$root/build-media-bench}
work=$(mktemp -d "${TMPDIR:-/tmp}/media-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

[ -f "$build/build.ninja" ] || cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DQUORVANE_BUILD_TESTS=OFF -DQUORVANE_BUILD_APPS=OFF >/dev/null
cmake --build "$build" -j2 --target quorvane_api >/dev/null
c++ -std=c++20 -O2 -DASIO_STANDALONE -I"$root/src" "$root/bench/media_compress_bench.cpp" -o "$work/bench" \
    "$build/src/api/libquorvane_api.a" "$build/src/VODUpload/libquorvane_vodupload.a" \
    "$build/src/device/libquorvane_device.a" "$build/src/oss/libquorvane_oss.a" \
    "$build/src/platform/libquorvane_platform.a" "$build/src/foundation/libquorvane_foundation.a" \
    $(pkg-config --cflags --libs vips-cpp cpp-httplib libavformat libavcodec libavutil libswscale) \
    -lpugixml -lcurl -lssl -lcrypto -lpthread
echo "machine: $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"
"$work/bench" generate "$work/photo.jpg"
QUORVANE_TMPDIR="$work" "$work/bench" compress "$work/photo.jpg"
