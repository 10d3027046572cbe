#!/usr/bin/env bash
# Builds a user's project against the installed package and runs its upload against quorvane-cloud.
#   consumer_test.sh <install prefix> <work dir> <mode>
# Modes:
#   cmake-upload   find_package(... COMPONENTS Upload) with libvips and ZXing hidden from pkg-config, and
#                  asking for Device there must fail with a message naming what is missing
#   cmake-all      find_package with no components: the upload and the façade example
#   pc-upload      pkg-config quorvane-upload, libvips and ZXing hidden
#   pc-all         pkg-config quorvane-sdk
set -uo pipefail
prefix=$(cd "$1" && pwd) work=$2 mode=$3
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work"; mkdir -p "$work"
cloud_pid=""
trap '[ -n "$cloud_pid" ] && kill "$cloud_pid" 2>/dev/null; wait 2>/dev/null' EXIT
fail() { echo "FAIL ($mode): $*"; exit 1; }

pcdir=$(dirname "$(find "$prefix" -name quorvane-upload.pc | head -1)")
[ -f "$pcdir/quorvane-upload.pc" ] || fail "no quorvane-upload.pc under $prefix"
shared=""
if ls "$pcdir"/../libquorvane_foundation.so* > /dev/null 2>&1; then
  shared=1
  export LD_LIBRARY_PATH=$pcdir/..${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}  # the pkg-config builds set no run path
fi

# A pkg-config search path without libvips and ZXing, as on a machine that has only what uploads need.
hide_device_libraries() {
  local lean=$work/pkgconfig-lean dir
  mkdir -p "$lean"
  for dir in $(pkg-config --variable pc_path pkg-config | tr : ' '); do
    [ -d "$dir" ] || continue
    for pc in "$dir"/*.pc; do
      case $(basename "$pc") in vips*|zxing*) ;; *) ln -sf "$pc" "$lean/" ;; esac
    done
  done
  export PKG_CONFIG_LIBDIR=$lean
  pkg-config --exists vips-cpp && fail "libvips still visible"
}

start_cloud() {
  "$prefix/bin/quorvane-cloud" --port 0 > "$work/cloud.txt" 2>&1 &
  cloud_pid=$!
  for _ in $(seq 200); do grep -q '^ready' "$work/cloud.txt" && return; sleep 0.1; done
  cat "$work/cloud.txt"; fail "quorvane-cloud did not start"
}
fact() { awk -v k="$1" '$1 == k { print $2 }' "$work/cloud.txt"; }

run_upload() {
  local program=$1
  seq 1 400000 > "$work/numbers.txt"  # 2.6 MB, several parts
  start_cloud
  OSS_ACCESS_KEY_ID=$(fact access-key-id) OSS_ACCESS_KEY_SECRET=$(fact access-key-secret) \
    "$program" "$work/numbers.txt" "$(fact endpoint)" "$(fact bucket)" "consumer/numbers.txt" > "$work/upload.txt" 2>&1
  local status=$?
  tail -3 "$work/upload.txt"
  [ $status -eq 0 ] || { cat "$work/upload.txt"; fail "upload_example exited $status"; }
  grep -q '^progress 2688895/2688895$' "$work/upload.txt" || fail "no final progress line"
  grep -q '^stored$' "$work/upload.txt" || fail "not stored"
  # Without the key pair it says which variable is missing and exits 2, instead of aborting.
  local missing=0
  env -u OSS_ACCESS_KEY_ID OSS_ACCESS_KEY_SECRET=x "$program" "$work/numbers.txt" "$(fact endpoint)" "$(fact bucket)" \
    consumer/none.txt > "$work/nokeys.txt" 2>&1 || missing=$?
  [ $missing -eq 2 ] || { cat "$work/nokeys.txt"; fail "upload_example without keys exited $missing, not 2"; }
  grep -q 'OSS_ACCESS_KEY_ID is not set' "$work/nokeys.txt" || fail "upload_example did not name the missing variable"
}

cmake_consumer() {  # <build dir> <components>
  cmake -S "$here/consumer" -B "$1" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DQUORVANE_COMPONENTS="$2" \
        -DCMAKE_BUILD_TYPE=Release > "$1.log" 2>&1
}

case $mode in
  cmake-upload)
    hide_device_libraries
    cmake_consumer "$work/build" Upload || { cat "$work/build.log"; fail "configure with Upload alone"; }
    cmake --build "$work/build" || fail "build"
    [ -e "$work/build/facade_example" ] && fail "the façade example was built without Facade"
    run_upload "$work/build/upload_example"
    # Static libraries need libvips' development files to link the Device component; shared ones do not.
    if [ -z "$shared" ]; then
      if cmake_consumer "$work/device" Device; then fail "Device was found without libvips"; fi
      grep -q "QuorvaneApiSDK's Device component needs vips-cpp (Debian: libvips-dev)" "$work/device.log" \
        || { cat "$work/device.log"; fail "no clear message for the missing libvips"; }
    fi
    ;;
  cmake-all)
    cmake_consumer "$work/build" "" || { cat "$work/build.log"; fail "configure"; }
    cmake --build "$work/build" || fail "build"
    "$work/build/facade_example" || fail "facade_example"
    run_upload "$work/build/upload_example"
    ;;
  pc-upload)
    hide_device_libraries
    export PKG_CONFIG_PATH=$pcdir
    c++ -std=c++20 -Wall -Wextra -Werror -o "$work/upload_example" "$here/consumer/upload_example.cpp" \
        $(pkg-config --cflags --libs quorvane-upload) || fail "build with pkg-config"
    run_upload "$work/upload_example"
    ;;
  pc-all)
    export PKG_CONFIG_PATH=$pcdir
    c++ -std=c++20 -Wall -Wextra -Werror -o "$work/facade_example" "$here/consumer/facade_example.cpp" \
        $(pkg-config --cflags --libs quorvane-sdk) || fail "build the façade with pkg-config"
    "$work/facade_example" || fail "facade_example"
    ;;
  *) fail "unknown mode" ;;
esac
echo "ok ($mode, $([ -n "$shared" ] && echo shared || echo static) libraries)"
