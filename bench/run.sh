#!/usr/bin/env bash
# Upload benchmarks against the local cloud (quorvane-cloud), in one run:
#   1. throughput of the upload engine (`quorvane upload --oss`) against `curl -T` of the same file to the
#      same cloud, for 64 MiB and 1 GiB files, as a ratio;
#   2. the engine's peak resident memory (/usr/bin/time -v, Debian package "time");
#   3. the cost of a resume: bytes sent again after the upload was killed (SIGKILL) at about half way.
# Builds Release in its own build directory (or uses QUORVANE_BENCH_PREBUILT=<build dir>). Not run by CI: its figures depend on the machine and its load.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVANE_BENCH_BUILD:-$root/build-bench}
sizes_mib=${QUORVANE_BENCH_SIZES_MIB:-"64 1024"}
resume_mib=${QUORVANE_BENCH_RESUME_MIB:-256}
work=$(mktemp -d "${TMPDIR:-/tmp}/quorvane-bench.XXXXXX")
cloud_pid=""
cleanup() {
    if [ -n "$cloud_pid" ]; then kill "$cloud_pid" 2>/dev/null || true; wait "$cloud_pid" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT

[ -x /usr/bin/time ] || { echo "bench: /usr/bin/time is missing (apt-get install time)" >&2; exit 1; }

if [ -n "${QUORVANE_BENCH_PREBUILT:-}" ]; then
    # An existing build directory whose quorvane and quorvane-cloud are up to date (saves a full build).
    build=$QUORVANE_BENCH_PREBUILT
    echo "== prebuilt binaries of $build ($(awk -F= '/^CMAKE_BUILD_TYPE/ { print $2 }' "$build/CMakeCache.txt"))"
else
    echo "== build (Release, $build)"
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVANE_BUILD_BENCH=ON \
          -DQUORVANE_BUILD_TESTS=OFF >/dev/null
    cmake --build "$build" -j2 --target quorvane quorvane-cloud >/dev/null
fi
cli=$build/apps/quorvane/quorvane
cloud=$build/emulator/quorvane-cloud

echo "== machine: $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg)"

# One cloud for both clients; --no-verify lets the unsigned curl PUT in (the engine still signs).
"$cloud" --port 0 --storage "$work/cloud" --no-verify >"$work/cloud.out" 2>"$work/cloud.err" &
cloud_pid=$!
for _ in $(seq 1 300); do grep -q '^ready' "$work/cloud.out" 2>/dev/null && break; sleep 0.1; done
grep -q '^ready' "$work/cloud.out" || { echo "bench: quorvane-cloud did not start" >&2; cat "$work/cloud.err" >&2; exit 1; }
field() { awk -v k="$1" '$1 == k { print $2 }' "$work/cloud.out"; }
endpoint=$(field endpoint); bucket=$(field bucket)
key_id=$(field access-key-id); secret=$(field access-key-secret)

# Runs the engine on one file with a fresh cache (nothing to resume); prints "seconds peak_rss_kib".
engine_upload() {
    local file=$1 cache=$2
    XDG_CACHE_HOME=$cache QUORVANE_LOG_SERVICE_ENDPOINT="" /usr/bin/time -v -o "$work/time.txt" \
        "$cli" upload --json --oss --endpoint "$endpoint" --bucket "$bucket" --key-id "$key_id" \
        --secret "$secret" "$file" >"$work/engine.jsonl"
    local seconds rss
    seconds=$(grep '"event":"summary"' "$work/engine.jsonl" | sed 's/.*"seconds":\([0-9.e+-]*\).*/\1/')
    rss=$(awk -F': ' '/Maximum resident set size/ { print $2 }' "$work/time.txt")
    grep -q '"failed":0' "$work/engine.jsonl" || { echo "bench: engine upload failed" >&2; cat "$work/engine.jsonl" >&2; exit 1; }
    echo "$seconds $rss"
}

printf '\n%-8s %14s %14s %8s %14s\n' size engine_MiB/s curl_MiB/s ratio engine_RSS_MiB
for mib in $sizes_mib; do
    file=$work/bench-$mib.bin
    head -c $((mib * 1024 * 1024)) /dev/urandom >"$file"
    read -r e_seconds e_rss < <(engine_upload "$file" "$work/cache-$mib")
    c_seconds=$(curl -sS -o /dev/null -w '%{time_total}' -T "$file" "$endpoint/$bucket/curl-$mib.bin")
    awk -v m="$mib" -v e="$e_seconds" -v c="$c_seconds" -v r="$e_rss" 'BEGIN {
        printf "%-8s %14.1f %14.1f %8.2f %14.1f\n", m "MiB", m / e, m / c, (m / e) / (m / c), r / 1024 }'
    rm -f "$file"
done

echo
echo "== resume after SIGKILL at ~50% ($resume_mib MiB, 1 MiB parts)"
file=$work/resume.bin
head -c $((resume_mib * 1024 * 1024)) /dev/urandom >"$file"
total=$((resume_mib * 1024 * 1024))
run_resume() {
    XDG_CACHE_HOME=$work/cache-resume QUORVANE_LOG_SERVICE_ENDPOINT="" \
        "$cli" upload --json --oss --endpoint "$endpoint" --bucket "$bucket" --key-id "$key_id" \
        --secret "$secret" "$file"
}
run_resume >"$work/first.jsonl" &
first_pid=$!
sent=0
while kill -0 "$first_pid" 2>/dev/null; do
    sent=$(grep '"event":"progress"' "$work/first.jsonl" | tail -1 | sed 's/.*"uploaded":\([0-9]*\).*/\1/' || true)
    sent=${sent:-0}
    [ "$sent" -ge $((total / 2)) ] && break
    sleep 0.05
done
kill -KILL "$first_pid" 2>/dev/null || true
wait "$first_pid" 2>/dev/null || true
sent=$(grep '"event":"progress"' "$work/first.jsonl" | tail -1 | sed 's/.*"uploaded":\([0-9]*\).*/\1/' || true)
run_resume >"$work/second.jsonl"
stored=$(grep '"event":"resuming"' "$work/second.jsonl" | sed 's/.*"uploaded":\([0-9]*\).*/\1/' || true)
stored=${stored:-0}
grep -q '"failed":0' "$work/second.jsonl" || { echo "bench: resumed upload failed" >&2; exit 1; }
awk -v s="$sent" -v k="$stored" -v t="$total" 'BEGIN {
    # Progress lines are throttled, so the last one before the kill lags what was really on the wire.
    printf "killed after at least %.1f MiB reported sent (%.0f%%); the resumed run found %.1f MiB stored\n", s / 1048576, 100 * s / t, k / 1048576
    printf "the resumed run sent %.1f MiB: only what was not stored (parts in flight at the kill are sent again)\n", (t - k) / 1048576
    if (s > k) printf "reported sent but not stored (lost with the kill): %.1f MiB\n", (s - k) / 1048576 }'
echo "load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
