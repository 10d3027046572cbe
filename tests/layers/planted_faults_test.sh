#!/usr/bin/env bash
# Plants one fault at a time in a copy of the sources (or of the graph) and expects the layer check to
# fail naming it; the unchanged copy must pass, so a failure comes from the plant alone.
set -uo pipefail
check=$1 graph=$2 root=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fresh_copy() {
  rm -rf "$work/tree"
  mkdir -p "$work/tree"
  cp -r "$root/src" "$root/emulator" "$work/tree/"
  cp "$graph" "$work/graph.txt"
}

# expect <name> <status wanted> <text the output must hold>
expect() {
  local name=$1 wanted=$2 text=$3 output status
  output=$("$check" "$work/graph.txt" "$work/tree" 2>&1); status=$?
  if [ "$status" -ne "$wanted" ] || ! grep -qF -- "$text" <<< "$output"; then
    echo "FAIL $name: exit $status (wanted $wanted), output:"; echo "$output"
    failures=$((failures + 1))
  else
    echo "ok   $name"
  fi
}

fresh_copy
expect "unchanged copy passes" 0 "include only what they link"

fresh_copy
printf '#include "oss/oss_client.h"\n' >> "$work/tree/src/foundation/value.h"
expect "foundation including the object-storage client" 1 \
  "src/foundation/value.h:$(wc -l < "$work/tree/src/foundation/value.h"): includes \"oss/oss_client.h\" (quorvane_oss), which quorvane_foundation does not link"

fresh_copy
sed -i '1a #include "api/QuorvaneApiManager.h"' "$work/tree/src/upload_bridge/UploadPaths.cpp"
expect "the bridge including the façade above it" 1 "src/upload_bridge/UploadPaths.cpp:2: includes \"api/QuorvaneApiManager.h\""

fresh_copy
sed -i '1a #include "device/QrDecoder.h"' "$work/tree/src/platform/scan_album.cpp"
expect "the platform interfaces including a device subsystem" 1 "src/platform/scan_album.cpp:2:"

fresh_copy
sed -i '1a #include "VODUpload/src/VODUploadClient.h"' "$work/tree/emulator/router.cpp"
expect "the emulator including the engine" 1 "emulator/router.cpp:2:"

fresh_copy
sed -i 's/^quorvane_oss \([^ ]*\)/quorvane_oss \1 quorvane_vodupload/' "$work/graph.txt"
expect "a cycle in the link graph" 1 "cycle: quorvane_oss"

exit $((failures > 0))
