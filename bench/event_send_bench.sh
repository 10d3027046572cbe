#!/usr/bin/env bash
# Caller-side cost of telemetry events (AVCVEventManager::sendEvent) against a loopback log service
# that answers and one that stalls. Not run by CI: the figures depend on the machine and its load.
#   QUORVANE_BENCH_EVENTS (default 10000), QUORVANE_BENCH_BUILD (build directory).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVANE_BENCH_BUILD:-$root/build-event-bench}
events=${QUORVANE_BENCH_EVENTS:-10000}
work=$(mktemp -d "${TMPDIR:-/tmp}/event-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

[ -f "$build/build.ninja" ] || cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DQUORVANE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target quorvane_vodupload >/dev/null
c++ -std=c++20 -O2 -DASIO_STANDALONE -I"$root/src" "$root/bench/event_send_bench.cpp" -o "$work/event_send_bench" \
    "$build/src/VODUpload/libquorvane_vodupload.a" "$build/src/oss/libquorvane_oss.a" \
    "$build/src/platform/libquorvane_platform.a" "$build/src/foundation/libquorvane_foundation.a" \
    $(pkg-config --cflags --libs cpp-httplib libavformat libavcodec libavutil) -lpugixml -lcurl -lcrypto -lpthread
echo "machine: $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg)"
"$work/event_send_bench" "$events"
