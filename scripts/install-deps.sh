#!/usr/bin/env bash
# Installs the Debian packages that the build and the tests need, if missing.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libgtest-dev libbenchmark-dev
  gsoap libgsoap-dev libssl-dev
  libcurl4-openssl-dev libpugixml-dev golang-go golang-github-vmware-govmomi-dev python3
  clang-14 libclang-rt-14-dev gcovr nlohmann-json3-dev
  libcpp-httplib-dev libsystemd-dev libtomlplusplus-dev libcli11-dev systemd chromium chromium-driver python3-selenium
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
