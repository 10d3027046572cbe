#!/usr/bin/env bash
# Compares our client's V4 signatures with ali-oss's signer, then starts quorvane-cloud on a free port with
# directory storage and runs the ali-oss interop script against it twice: signing V1, then signing V4
# against a cloud that refuses V1. Exit 77 (skipped) when node or the ali-oss package is not installed.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
cloud_bin="$1"
probe_bin="$2"
if ! command -v node > /dev/null || [ ! -d "$here/node_modules/ali-oss" ]; then
  echo "ali-oss not installed (run npm install in tests/interop): skipping"
  exit 77
fi
work="$(mktemp -d)"
cloud_pid=""
cleanup() {
  if [ -n "$cloud_pid" ]; then kill -INT "$cloud_pid" 2> /dev/null || true; wait "$cloud_pid" 2> /dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
node "$here/ali_oss_v4_vectors.js" "$probe_bin"

# run_against SIGNATURE [cloud options...]
run_against() {
  local signature="$1"
  shift
  rm -rf "$work/storage" "$work/cloud.out"
  "$cloud_bin" --port 0 --storage "$work/storage" "$@" > "$work/cloud.out" 2> "$work/cloud.err" &
  cloud_pid=$!
  for _ in $(seq 1 300); do
    grep -q '^ready$' "$work/cloud.out" && break
    kill -0 "$cloud_pid" 2> /dev/null || { cat "$work/cloud.err"; exit 1; }
    sleep 0.1
  done
  grep -q '^ready$' "$work/cloud.out" || { echo "quorvane-cloud did not start"; exit 1; }
  field() { awk -v k="$1" '$1 == k { print $2 }' "$work/cloud.out"; }
  QC_ENDPOINT="$(field endpoint)" QC_KEY_ID="$(field access-key-id)" QC_KEY_SECRET="$(field access-key-secret)" \
    QC_BUCKET="$(field bucket)" QC_REGION="$(field region)" QC_SIGNATURE="$signature" node "$here/ali_oss_interop.js"
  kill -INT "$cloud_pid"
  wait "$cloud_pid" || true
  cloud_pid=""
}
run_against 1
run_against 4 --v4-only
