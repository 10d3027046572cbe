#!/usr/bin/env bash
# Capture figures on this machine: the FFmpeg input devices Debian's build has, pictures per second
# the scanner decodes from a 640×480 camera, and the CPU a voice note costs per second recorded.
# QUORVANE_BENCH_BUILD: a configured build directory (default build/).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVANE_BENCH_BUILD:-$root/build}
work=$(mktemp -d "${TMPDIR:-/tmp}/capture-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

cmake --build "$build" -j2 --target quorvane-demo >/dev/null
c++ -std=c++20 -O2 -DASIO_STANDALONE -DASIO_NO_DEPRECATED -DASIO_DISABLE_STD_ALIGNED_ALLOC -I"$root/src" \
    "$root/bench/capture_bench.cpp" -o "$work/bench" \
    "$build/src/device/libquorvane_device.a" "$build/src/platform/libquorvane_platform_capture.a" \
    "$build/src/platform/libquorvane_platform.a" "$build/src/foundation/libquorvane_foundation.a" \
    $(pkg-config --cflags --libs zxing vips-cpp libavdevice libavformat libavcodec libavutil libswscale libswresample) \
    -lcurl -lssl -lcrypto -lpthread $(pkg-config --exists libisal && pkg-config --libs libisal || pkg-config --libs liblzma)
echo "machine: $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"

echo "FFmpeg input devices (libavdevice $(pkg-config --modversion libavdevice)):"
"$work/bench" devices

"$work/bench" decode 3
"$work/bench" camera "lavfi:testsrc2=size=640x480:rate=30" 5
"$work/bench" camera "lavfi:testsrc2=size=640x480:rate=1000" 5

# CPU per second of recording: user + system time of a 5-second voice note over its wall time.
/usr/bin/time -f "voice note: %U s user + %S s system over %e s wall" \
    "$build/apps/quorvane/quorvane-demo" record --input "lavfi:sine=frequency=440" --seconds 5 >/dev/null
