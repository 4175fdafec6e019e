#!/usr/bin/env bash
# Installs every Debian package SagelyKit needs to build, test and run.
# Idempotent: only what is missing is installed; safe to run on every build.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git clang-format
  libcurl4-openssl-dev libicu-dev nlohmann-json3-dev
  libsecret-1-dev gnome-keyring dbus dbus-x11 libglib2.0-bin
  libgtest-dev libgmock-dev libbenchmark-dev
  qt6-base-dev qt6-svg-dev libgl-dev libxkbcommon-dev fonts-dejavu-core
  libmd4c-dev libmd4c-html0-dev
  libedit-dev
  ccache dpkg-dev file
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -q
  $SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
fi
