#!/usr/bin/env bash
# What a round trip costs: `quorvane upload` against curl, both through a proxy that holds each chunk
# for half the round trip in each direction, to the quorvane-cloud program. Cases: one 1 MiB file
# (`curl -T`), 100 × 200 KB and 1,000 × 4 KB (curl sends them one after the other on one connection).
# Runs alternate between the two, and each figure is the median of whole-process times; the ratio is
# quorvane's time over curl's (below 1: faster). Not run by CI: the figures depend on the machine.
#   QUORVANE_BENCH_RTTS (ms, default "0 20 100"), QUORVANE_BENCH_RUNS (default 5),
#   QUORVANE_BENCH_CASES (default "1x1M 100x200K 1000x4K"), QUORVANE_BENCH_BUILD (build directory),
#   QUORVANE_BENCH_ARGS (extra options of quorvane upload, such as "--jobs 8").
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QUORVANE_BENCH_BUILD:-$root/build}
rtts=${QUORVANE_BENCH_RTTS:-"0 20 100"}
runs=${QUORVANE_BENCH_RUNS:-5}
cases=${QUORVANE_BENCH_CASES:-"1x1M 100x200K 1000x4K"}
extra=${QUORVANE_BENCH_ARGS:-}
work=$(mktemp -d "${TMPDIR:-/tmp}/latency-bench.XXXXXX")
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; wait "$p" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT

cmake --build "$build" -j2 --target quorvane quorvane-cloud >/dev/null
proxy=$work/delay_proxy
c++ -std=c++20 -O2 "$root/bench/delay_proxy.cpp" -o "$proxy" -lpthread

"$build/emulator/quorvane-cloud" --port 0 --no-verify >"$work/cloud.out" 2>"$work/cloud.err" &
pids+=($!)
for _ in $(seq 1 300); do grep -q '^ready' "$work/cloud.out" 2>/dev/null && break; sleep 0.1; done
field() { awk -v k="$1" '$1 == k { print $2 }' "$work/cloud.out"; }
endpoint=$(field endpoint); bucket=$(field bucket); key_id=$(field access-key-id); secret=$(field access-key-secret)
cloud_port=${endpoint##*:}

# count x size -> a folder of that many files of random bytes (seeded, so every run sends the same).
make_case() {
    local dir=$work/$1 count=${1%%x*} size=${1#*x}
    mkdir -p "$dir"
    size=$(numfmt --from=iec "$size")
    # The cipher's stream ends by SIGPIPE once head has enough.
    (set +o pipefail; openssl enc -aes-128-ctr -pass pass:"$1" -nosalt -pbkdf2 </dev/zero 2>/dev/null |
        head -c $((count * size)) | split -b "$size" -a 4 -d - "$dir/f")
}

median() { sort -g | awk '{ a[NR] = $1 } END { print (NR % 2) ? a[(NR + 1) / 2] : (a[NR / 2] + a[NR / 2 + 1]) / 2 }'; }
seconds() { local t0 t1; t0=$(date +%s.%N); "$@" >/dev/null 2>&1 || echo "failed: $*" >&2; t1=$(date +%s.%N); awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.4f\n", b - a }'; }

export HOME=$work/home  # quorvane's resume records and profile stay in the bench's folder
mkdir -p "$HOME"
echo "machine: $(nproc) cores, load $(cut -d' ' -f1-3 /proc/loadavg); $runs alternated runs per figure"
for c in $cases; do make_case "$c"; done
for rtt in $rtts; do
    port=$cloud_port
    if [ "$rtt" != 0 ]; then
        "$proxy" 0 "$cloud_port" $((rtt / 2)) >"$work/proxy.out" &
        pids+=($!)
        for _ in $(seq 1 100); do grep -q '^ready' "$work/proxy.out" 2>/dev/null && break; sleep 0.05; done
        port=$(awk '{ print $2 }' "$work/proxy.out")
    fi
    url=http://127.0.0.1:$port
    for c in $cases; do
        files=("$work/$c"/*)
        list=$(IFS=,; echo "${files[*]}")
        : >"$work/curl.times"; : >"$work/ours.times"
        for i in $(seq 1 "$runs"); do
            if [ ${#files[@]} = 1 ]; then
                seconds curl -sS -f -o /dev/null -T "${files[0]}" "$url/$bucket/curl-$rtt-$c-$i/f" >>"$work/curl.times"
            else
                seconds curl -sS -f -o /dev/null -T "{$list}" "$url/$bucket/curl-$rtt-$c-$i/" >>"$work/curl.times"
            fi
            # shellcheck disable=SC2086
            seconds "$build/apps/quorvane/quorvane" upload --oss --endpoint "$url" --bucket "$bucket" --region cn-shanghai \
                --key-id "$key_id" --secret "$secret" --prefix "ours-$rtt-$c-$i/" -q $extra "${files[@]}" >>"$work/ours.times"
        done
        curl_m=$(median <"$work/curl.times"); ours_m=$(median <"$work/ours.times")
        ours_max=$(sort -g "$work/ours.times" | tail -1)
        printf 'rtt %3s ms  %-9s curl %7.3f s  quorvane %7.3f s  ratio %.2f  (slowest quorvane run %.2f x its median)\n' \
            "$rtt" "$c" "$curl_m" "$ours_m" "$(awk -v a="$ours_m" -v b="$curl_m" 'BEGIN { print a / b }')" \
            "$(awk -v a="$ours_max" -v b="$ours_m" 'BEGIN { print a / b }')"
    done
    if [ "$rtt" != 0 ]; then kill "${pids[-1]}"; wait "${pids[-1]}" 2>/dev/null || true; unset 'pids[-1]'; fi
done
