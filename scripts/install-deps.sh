#!/usr/bin/env bash
# Installs the Debian packages sparamlib needs to build, test and benchmark.
# Only missing packages are installed, so a second run costs a few dpkg queries.
set -euo pipefail

packages=(
  g++ cmake make pkg-config
  liblapack-dev libblas-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  python3 python3-numpy python3-scikit-rf octave
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "install-deps: installing ${missing[*]}" >&2
sudo=""
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install ${missing[*]}" >&2; exit 1; }
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
