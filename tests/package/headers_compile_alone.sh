#!/usr/bin/env bash
# Every installed header compiles on its own, in its own translation unit, with the flags a strict user
# builds with; and none pulls in Asio, which stays inside the libraries.
#   headers_compile_alone.sh <install prefix> <c++ compiler>
set -uo pipefail
prefix=$1 cxx=$2
include=$prefix/include/quorvane
export PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name quorvane-sdk.pc | head -1)")
flags="-std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror $(pkg-config --cflags quorvane-sdk)" || exit 1
export cxx flags include

status=0
if grep -rlE '#[[:space:]]*include[[:space:]]*<asio' "$include"; then
  echo "the headers above include Asio"
  status=1
fi
compile_one() {
  local header=${1#"$include"/}
  if ! output=$(printf '#include <%s>\n' "$header" | $cxx $flags -x c++ - 2>&1); then
    printf 'FAIL %s\n%s\n' "$header" "$output" | head -20
    return 1
  fi
}
export -f compile_one
count=$(find "$include" -name '*.h' | wc -l)
if ! find "$include" -name '*.h' | sort | xargs -P "$(nproc)" -I{} bash -c 'compile_one "$@"' _ {}; then
  status=1
fi
lines=$(find "$include" -name '*.h' -exec cat {} + | wc -l)
echo "$count installed headers, $lines lines"
[ "$count" -gt 0 ] || status=1
exit $status
