#!/usr/bin/env bash
# The object-storage client's resumable upload against `curl -T` of the same file, both to the
# quorvane-cloud program, for several numbers of parts in flight. Prints MiB/s, the ratio to curl and
# the client's peak RSS. Not run by CI: the figures depend on the machine and its load.
#   QUORVANE_BENCH_MIB (default 512), QUORVANE_BENCH_PART (bytes, default 1048576),
#   QUORVANE_BENCH_FLIGHT (default "0 1 2 3 4"; 0 = one PutObject), QUORVANE_BENCH_BUILD (build directory).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVANE_BENCH_BUILD:-$root/build-oss-bench}
mib=${QUORVANE_BENCH_MIB:-512}
part=${QUORVANE_BENCH_PART:-1048576}
flights=${QUORVANE_BENCH_FLIGHT:-"0 1 2 3 4"}
work=$(mktemp -d "${TMPDIR:-/tmp}/oss-bench.XXXXXX")
cloud_pid=""
cleanup() {
    if [ -n "$cloud_pid" ]; then kill "$cloud_pid" 2>/dev/null || true; wait "$cloud_pid" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT

# An existing build directory is used as it is configured (RelWithDebInfo is -O2 too).
[ -f "$build/build.ninja" ] || cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DQUORVANE_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target quorvane_oss quorvane-cloud >/dev/null
bench=$work/oss_upload_bench
c++ -std=c++20 -O2 -DASIO_STANDALONE -I"$root/src" "$root/bench/oss_upload_bench.cpp" -o "$bench" \
    "$build/src/oss/libquorvane_oss.a" "$build/src/foundation/libquorvane_foundation.a" \
    -lpugixml $(pkg-config --libs libisal 2>/dev/null || pkg-config --libs liblzma) -lcurl -lcrypto -lpthread

"$build/emulator/quorvane-cloud" --port 0 --storage "$work/cloud" --no-verify --quiet >"$work/cloud.out" 2>"$work/cloud.err" &
cloud_pid=$!
for _ in $(seq 1 300); do grep -q '^ready' "$work/cloud.out" 2>/dev/null && break; sleep 0.1; done
field() { awk -v k="$1" '$1 == k { print $2 }' "$work/cloud.out"; }
endpoint=$(field endpoint); bucket=$(field bucket); key_id=$(field access-key-id); secret=$(field access-key-secret)

file=$work/data.bin
head -c $((mib * 1024 * 1024)) /dev/urandom >"$file"
echo "machine: $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg); file ${mib} MiB, part $part bytes"
curl_s=$(curl -sS -o /dev/null -w '%{time_total}' -T "$file" "$endpoint/$bucket/bench-curl.bin")
curl_rate=$(awk -v m="$mib" -v s="$curl_s" 'BEGIN { printf "%.1f", m / s }')
echo "curl -T: ${curl_rate} MiB/s"
for n in $flights; do
    line=$("$bench" "$endpoint" "$bucket" "$key_id" "$secret" "$file" "$part" "$n")
    rate=$(sed -E 's/.*mib_per_s=([0-9.]+).*/\1/' <<<"$line")
    echo "$line ratio_to_curl=$(awk -v a="$rate" -v b="$curl_rate" 'BEGIN { printf "%.2f", a / b }')"
done
