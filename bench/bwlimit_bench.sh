#!/usr/bin/env bash
# How close `quorvane upload --bwlimit` holds the rate it is given: uploads a file at several limits to
# quorvane-cloud and prints the measured rate (file size / wall time of the whole command, start-up
# included) against the limit. With one file and with --jobs 4 over four files (the limit is the whole
# process's). Usage: bench/bwlimit_bench.sh [BUILD_DIR] (default build). Not run by CI: the figures
# depend on the machine and its load.
set -euo pipefail
export LC_ALL=C
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
cli=$build/apps/quorvane/quorvane
cloud=$build/emulator/quorvane-cloud
work=$(mktemp -d "${TMPDIR:-/tmp}/quorvane-bwlimit.XXXXXX")
cloud_pid=""
cleanup() {
    if [ -n "$cloud_pid" ]; then kill "$cloud_pid" 2>/dev/null || true; wait "$cloud_pid" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT
"$cloud" --port 0 --quiet >"$work/cloud.out" 2>"$work/cloud.err" &
cloud_pid=$!
for _ in $(seq 1 300); do grep -q '^ready$' "$work/cloud.out" 2>/dev/null && break; sleep 0.1; done
field() { awk -v k="$1" '$1 == k { print $2 }' "$work/cloud.out"; }
export OSS_ACCESS_KEY_ID=$(field access-key-id) OSS_ACCESS_KEY_SECRET=$(field access-key-secret) OSS_REGION=$(field region)
endpoint=$(field endpoint); bucket=$(field bucket)
mkdir -p "$work/one" "$work/four"
head -c 8M /dev/urandom >"$work/one/file.bin"
for i in 1 2 3 4; do head -c 2M /dev/urandom >"$work/four/f$i.bin"; done
printf '%-8s %-6s %12s %12s %8s\n' files limit "limit B/s" "measured B/s" ratio
for limit_kib in 512 1024 2048; do
    for set in one four; do
        start=$(date +%s.%N)
        "$cli" upload --quiet -r "$work/$set" "oss://$bucket/$set-$limit_kib/" --endpoint "$endpoint" \
            --jobs 4 --bwlimit "${limit_kib}K" --part-size 1048576
        end=$(date +%s.%N)
        awk -v s="$start" -v e="$end" -v l="$limit_kib" -v n="$set" 'BEGIN {
            bytes = 8 * 1048576; rate = bytes / (e - s); limit = l * 1024
            printf "%-8s %-6s %12d %12d %8.2f\n", n, l "K", limit, rate, rate / limit }'
    done
done
