#!/usr/bin/env bash
# The console page in a real browser: quorvane-cloud runs as a program, `quorvane upload` puts a file
# into it, and headless Chromium renders the console (its script polling the state) until the file's
# key shows in the page. Also: the request log named the upload, and the console's own polling is not
# in it. Exits 77 (skipped) where Chromium is not installed.
#   console_browser_test.sh QUORVANE_CLOUD QUORVANE
set -euo pipefail
cloud=$1 cli=$2
browser=$(command -v chromium || command -v chromium-browser || true)
if [ -z "$browser" ]; then
    echo "SKIP: no chromium here (Debian: apt-get install chromium)"
    exit 77
fi
work=$(mktemp -d "${TMPDIR:-/tmp}/quorvane-console.XXXXXX")
cloud_pid=""
cleanup() {
    if [ -n "$cloud_pid" ]; then kill "$cloud_pid" 2>/dev/null || true; wait "$cloud_pid" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*"; echo "--- request log"; cat "$work/log" || true; exit 1; }

"$cloud" --port 0 >"$work/facts" 2>"$work/log" &
cloud_pid=$!
for _ in $(seq 1 600); do grep -qx ready "$work/facts" && break; sleep 0.1; done
grep -qx ready "$work/facts" || fail "quorvane-cloud did not start"
fact() { awk -v k="$1" '$1 == k { print $2; exit }' "$work/facts"; }
console=$(fact console)
[ "$console" = "$(fact endpoint)/_console/" ] || fail "no console line beside the endpoint: $console"

key="console-proof-$$.bin"
seq 1 40000 >"$work/$key"  # 229 KiB of known bytes
XDG_CACHE_HOME="$work/cache" XDG_CONFIG_HOME="$work/config" QUORVANE_PROFILE="" \
    OSS_ACCESS_KEY_ID="$(fact access-key-id)" OSS_ACCESS_KEY_SECRET="$(fact access-key-secret)" \
    "$cli" upload "$work/$key" "oss://$(fact bucket)/" --endpoint "$(fact endpoint)" --region "$(fact region)" \
    --signature-version 4 >"$work/upload.out" 2>&1 || { cat "$work/upload.out"; fail "the upload failed"; }

timeout 180 "$browser" --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync \
    --user-data-dir="$work/profile" --virtual-time-budget=5000 --dump-dom "$console" \
    >"$work/dom.html" 2>"$work/browser.log" || { cat "$work/browser.log"; fail "chromium failed"; }

grep -q "$key" "$work/dom.html" || { cat "$work/dom.html"; fail "the uploaded key is not in the rendered console"; }
# A file smaller than a part goes up as one PutObject.
grep -q "PutObject" "$work/dom.html" || fail "the recent requests do not show the upload"
grep -q "updated " "$work/dom.html" || fail "the console's script never drew the state"
grep -q " PUT /$(fact bucket)/$key PutObject 200 in=$(stat -c %s "$work/$key") " "$work/log" ||
    fail "the request log has no line for the upload"
if grep -q "_console\|favicon" "$work/log"; then fail "the console's own requests are in the request log"; fi
if grep -qi "signature=[^R]\|security-token=[^R]" "$work/log"; then fail "a signature reached the request log"; fi
echo "ok: $key is in the console rendered by $("$browser" --version 2>/dev/null | head -1)"
