#!/usr/bin/env bash
# Installs the ali-oss client for the interop test (a ctest fixture, so the test command alone sets it up
# on a fresh machine). Nothing to do when it is there already; without npm the interop test skips itself.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
if [ -d "$here/node_modules/ali-oss" ]; then exit 0; fi
if ! command -v npm > /dev/null; then
  echo "npm not found: the interop test will be skipped"
  exit 0
fi
cd "$here"
npm install --no-audit --no-fund
