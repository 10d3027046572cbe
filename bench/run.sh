#!/usr/bin/env bash
# Upload benchmarks against the local cloud (quorvane-cloud), in one run, printed as one table. Every
# figure is set against `curl -T` of the same bytes to the same cloud, measured in the same run: the
# engine (`quorvane upload --oss`) and curl run in turn, RUNS times each after a warm-up of each, and
# the table gives the medians and the median of the pairwise ratios.
#   case "1 MiB"        one file, whole-process wall time; figure = engine time / curl time
#   case "100 x 200 KiB" one engine command for all files, against curl's one-connection multi-upload
#                       (curl -T "{a,b,...}" URL/); figure = engine time / curl time
#   case "N MiB"        large files; figure = engine throughput / curl throughput (curl time / engine time)
#   peak RSS of the engine (largest of its runs), `quorvane upload --help` wall time and the shared
#   libraries it loads, CRC-64 throughput (Google Benchmark), then the cost of a resume after SIGKILL.
# Environment: QUORVANE_BENCH_RUNS (default 5), QUORVANE_BENCH_SIZES_MIB (default "64 256 1024"),
# QUORVANE_BENCH_RESUME_MIB (default 256, 0 skips it), QUORVANE_BENCH_PREBUILT=<build dir> to use an
# existing build instead of building Release in build-bench. Needs curl and /usr/bin/time (Debian
# package "time"). Not run by CI: its figures depend on the machine and its load.
set -euo pipefail
export LC_ALL=C

root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVANE_BENCH_BUILD:-$root/build-bench}
runs=${QUORVANE_BENCH_RUNS:-5}
sizes_mib=${QUORVANE_BENCH_SIZES_MIB:-"64 256 1024"}
resume_mib=${QUORVANE_BENCH_RESUME_MIB:-256}
work=$(mktemp -d "${TMPDIR:-/tmp}/quorvane-bench.XXXXXX")
cloud_pid=""
cleanup() {
    if [ -n "$cloud_pid" ]; then kill "$cloud_pid" 2>/dev/null || true; wait "$cloud_pid" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT

[ -x /usr/bin/time ] || { echo "bench: /usr/bin/time is missing (apt-get install time)" >&2; exit 1; }
command -v curl >/dev/null || { echo "bench: curl is missing" >&2; exit 1; }

if [ -n "${QUORVANE_BENCH_PREBUILT:-}" ]; then
    build=$QUORVANE_BENCH_PREBUILT
    echo "== prebuilt binaries of $build ($(awk -F= '/^CMAKE_BUILD_TYPE/ { print $2 }' "$build/CMakeCache.txt"))"
    cmake --build "$build" -j2 --target quorvane quorvane-cloud crc64_bench >/dev/null
else
    echo "== build (Release, $build)"
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVANE_BUILD_BENCH=ON \
          -DQUORVANE_BUILD_TESTS=OFF >/dev/null
    cmake --build "$build" -j2 --target quorvane quorvane-cloud crc64_bench >/dev/null
fi
cli=$build/apps/quorvane/quorvane
cloud=$build/emulator/quorvane-cloud

echo "== machine: $(nproc) cores, load average $(cut -d' ' -f1-3 /proc/loadavg) at the start"

# One cloud for both clients; --no-verify lets the unsigned curl PUT in (the engine still signs).
"$cloud" --port 0 --storage "$work/cloud" --no-verify --quiet >"$work/cloud.out" 2>"$work/cloud.err" &
cloud_pid=$!
for _ in $(seq 1 300); do grep -q '^ready' "$work/cloud.out" 2>/dev/null && break; sleep 0.1; done
grep -q '^ready' "$work/cloud.out" || { echo "bench: quorvane-cloud did not start" >&2; cat "$work/cloud.err" >&2; exit 1; }
field() { awk -v k="$1" '$1 == k { print $2 }' "$work/cloud.out"; }
endpoint=$(field endpoint); bucket=$(field bucket); region=$(field region)
key_id=$(field access-key-id); secret=$(field access-key-secret)

# Runs a command once; appends "wall_seconds peak_rss_kib" to the file named first.
run_timed() {
    local out=$1; shift
    local start=$EPOCHREALTIME
    if ! /usr/bin/time -f '%M' -o "$work/rss" "$@" >"$work/stdout" 2>"$work/stderr"; then
        echo "bench: failed: $*" >&2; cat "$work/stderr" "$work/stdout" >&2; exit 1
    fi
    local end=$EPOCHREALTIME
    echo "$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f", b - a }') $(tail -1 "$work/rss")" >>"$out"
}

median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

# Alternates the engine on the files named first (up to "--") and curl with the arguments after it,
# runs + 1 times each, the first pair a warm-up; leaves the timings in $work/a and $work/b. Both run
# straight under /usr/bin/time (no shell in between); the engine gets a fresh cache and a fresh key
# prefix each time, so it has nothing to resume and finds nothing already stored to skip.
export QUORVANE_LOG_SERVICE_ENDPOINT=""
alternate() {
    local files=()
    while [ "$1" != "--" ]; do files+=("$1"); shift; done
    shift
    rm -f "$work/a" "$work/b"
    for i in $(seq 0 "$runs"); do
        XDG_CACHE_HOME=$(mktemp -d "$work/cache.XXXXXX")
        export XDG_CACHE_HOME
        run_timed "$work/a" "$cli" upload --oss --endpoint "$endpoint" --region "$region" --bucket "$bucket" --key-id "$key_id" \
            --secret "$secret" --prefix "run-$i/" "${files[@]}"
        run_timed "$work/b" curl -sS --fail -o /dev/null "$@"
        if [ "$i" -eq 0 ]; then rm -f "$work/a" "$work/b"; fi
    done
}

table=$work/table
rss_max=0
# Adds a table row from $work/a (engine) and $work/b (curl). kind "time": figure = engine / curl;
# kind "rate": figure = curl / engine (the engine's throughput over curl's).
add_row() {
    local label=$1 kind=$2 mib=$3 target=$4
    local a b ratio rss
    a=$(cut -d' ' -f1 "$work/a" | median)
    b=$(cut -d' ' -f1 "$work/b" | median)
    if [ "$kind" = time ]; then
        ratio=$(paste -d' ' "$work/a" "$work/b" | awk '{ print $1 / $3 }' | median)
    else
        ratio=$(paste -d' ' "$work/a" "$work/b" | awk '{ print $3 / $1 }' | median)
    fi
    rss=$(cut -d' ' -f2 "$work/a" | sort -n | tail -1)
    [ "$rss" -gt "$rss_max" ] && rss_max=$rss
    awk -v l="$label" -v k="$kind" -v m="$mib" -v a="$a" -v b="$b" -v r="$ratio" -v rss="$rss" -v t="$target" 'BEGIN {
        if (k == "time") printf "%-16s %11.0f ms %11.0f ms %8.2fx wall   %9s %8.1f\n", l, a * 1000, b * 1000, r, t, rss / 1024
        else printf "%-16s %9.0f MiB/s %9.0f MiB/s %8.2fx rate   %9s %8.1f\n", l, m / a, m / b, r, t, rss / 1024 }' >>"$table"
}

one=$work/one-mib.bin
head -c $((1024 * 1024)) /dev/urandom >"$one"
alternate "$one" -- -T "$one" "$endpoint/$bucket/curl-one-mib.bin"
add_row "1 MiB" time 1 "<= 2x"

mkdir -p "$work/small"
names=()
for i in $(seq -w 1 100); do
    head -c $((200 * 1024)) /dev/urandom >"$work/small/f$i.bin"
    names+=("$work/small/f$i.bin")
done
glob=$(IFS=,; echo "${names[*]}")
alternate "${names[@]}" -- -T "{$glob}" "$endpoint/$bucket/curl-small/"
add_row "100 x 200 KiB" time 20 "<= 3x"
rm -rf "$work/small"

for mib in $sizes_mib; do
    file=$work/bench-$mib.bin
    head -c $((mib * 1024 * 1024)) /dev/urandom >"$file"
    target=">= 1.0x"; [ "$mib" -lt 256 ] && target=">= 0.9x"
    alternate "$file" -- -T "$file" "$endpoint/$bucket/curl-$mib.bin"
    add_row "$mib MiB" rate "$mib" "$target"
    rm -f "$file"
done

# Start-up alone: timed straight from this shell, the first run a warm-up.
rm -f "$work/help"
for i in $(seq 0 $((runs * 2))); do
    start=$EPOCHREALTIME
    "$cli" upload --help >/dev/null
    end=$EPOCHREALTIME
    [ "$i" -gt 0 ] && awk -v a="$start" -v b="$end" 'BEGIN { printf "%.6f\n", b - a }' >>"$work/help"
done
help_ms=$(median <"$work/help")
libs=$(ldd "$cli" | grep -c '\.so')
crc=$("$build/bench/crc64_bench" --benchmark_filter='Crc64Update/1048576' --benchmark_format=csv 2>/dev/null |
      awk -F, '/^name/ { for (i = 1; i <= NF; i++) if ($i == "bytes_per_second") c = i; next } c { print $c / 1e9 }')

echo
echo "== $runs alternated runs of each command, medians; ratio = median of the pairwise ratios to curl"
printf '%-16s %14s %14s %14s %9s %8s\n' case engine curl ratio target RSS_MiB
cat "$table"
awk -v r="$rss_max" 'BEGIN { printf "%-16s %.1f MiB (target <= 48 MiB)\n", "peak RSS", r / 1024 }'
awk -v t="$help_ms" -v l="$libs" 'BEGIN { printf "%-16s %.1f ms, %d shared libraries (target <= 25 ms)\n", "upload --help", t * 1000, l }'
awk -v g="$crc" 'BEGIN { printf "%-16s %.1f GB/s over 1 MiB buffers (target >= 8 GB/s)\n", "CRC-64", g }'
echo "load average at the end of the table: $(cut -d' ' -f1-3 /proc/loadavg)"

[ "$resume_mib" -gt 0 ] || exit 0
echo
echo "== resume after SIGKILL at ~50% ($resume_mib MiB, 1 MiB parts)"
file=$work/resume.bin
head -c $((resume_mib * 1024 * 1024)) /dev/urandom >"$file"
total=$((resume_mib * 1024 * 1024))
resume=(upload --json --oss --endpoint "$endpoint" --region "$region" --bucket "$bucket" --key-id "$key_id" --secret "$secret" "$file")
export XDG_CACHE_HOME=$work/cache-resume
# A plain command in the background, so $! is the engine itself and the kill below reaches it (a
# function there would run in a subshell, and killing that would leave the engine running on).
"$cli" "${resume[@]}" >"$work/first.jsonl" &
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
if ! "$cli" "${resume[@]}" >"$work/second.jsonl" || ! grep -q '"failed":0' "$work/second.jsonl"; then
    echo "bench: resumed upload failed:" >&2; grep -E '"event":"(resuming|failure)"' "$work/second.jsonl" >&2; exit 1
fi
stored=$(grep '"event":"resuming"' "$work/second.jsonl" | sed 's/.*"uploaded":\([0-9]*\).*/\1/' || true)
stored=${stored:-0}
awk -v s="$sent" -v k="$stored" -v t="$total" 'BEGIN {
    # Progress lines are throttled, so the last one before the kill lags what was really on the wire.
    printf "killed after at least %.1f MiB reported sent (%.0f%%); the resumed run found %.1f MiB stored\n", s / 1048576, 100 * s / t, k / 1048576
    printf "the resumed run sent %.1f MiB: only what was not stored (parts in flight at the kill are sent again)\n", (t - k) / 1048576
    if (s > k) printf "reported sent but not stored (lost with the kill): %.1f MiB\n", (s - k) / 1048576 }'
echo "load average at the end: $(cut -d' ' -f1-3 /proc/loadavg)"
