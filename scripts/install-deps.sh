#!/usr/bin/env bash
# Installs every Debian package the project builds, tests and runs with.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
SUDO=""
if [ "$(id -u)" != 0 ]; then SUDO=sudo; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update
# shellcheck disable=SC2046
$SUDO apt-get install -y --no-install-recommends $(grep -v '^#' "$here/debian-packages.txt")
# Node.js (for the ali-oss interop test) may already come from another repository whose nodejs bundles npm and
# conflicts with Debian's npm package: only install Debian's when there is none.
if ! command -v npm > /dev/null; then
  $SUDO apt-get install -y --no-install-recommends nodejs npm
fi
