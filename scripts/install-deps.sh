#!/usr/bin/env bash
# Installs every Debian 12 package the project builds, tests and benchmarks with.
# Idempotent: the package lists are refreshed only when something is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config ccache git
  clang-14 libclang-rt-14-dev
  rapidjson-dev libssl-dev openssl
  libpng-dev libjpeg62-turbo-dev libgif-dev libtiff-dev libopenjp2-7-dev libjbig2dec0-dev
  libfreetype-dev libfontconfig-dev fonts-wqy-microhei fonts-dejavu-core
  libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev
  doxygen abigail-tools
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
