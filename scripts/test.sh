#!/usr/bin/env bash
# Installs what the project needs, builds it with the given presets (default: dev, shared and
# asan-ubsan) and runs the whole test suite of each inside a private D-Bus session with a real,
# unlocked gnome-keyring, so the Secret Service tests talk to a real secret store.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

# ccache: the same sources compiled in another clone (CI's) count as the same compilation.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=true

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(dev shared asan-ubsan)

for preset in "${presets[@]}"; do
  echo "== ${preset}: configure and build"
  cmake --preset "${preset}" >/dev/null
  cmake --build --preset "${preset}" -j "$(nproc)"
  echo "== ${preset}: tests"
  # The machines are shared: a test that lost a timing race to another job gets one more try,
  # and a test that fails twice fails the run. ctest prints every attempt.
  dbus-run-session -- bash scripts/with-keyring.sh ctest --preset "${preset}" --repeat until-pass:2
done

# Every fuzzer for 60 s, two at a time; any finding fails the run. SAGELY_FUZZ_SECONDS=0 skips.
fuzz_seconds="${SAGELY_FUZZ_SECONDS:-60}"
if [ "${fuzz_seconds}" -gt 0 ]; then
  echo "== fuzz: ${fuzz_seconds} s per target"
  bash scripts/fuzz.sh "${fuzz_seconds}" 2
fi
