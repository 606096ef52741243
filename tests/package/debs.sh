#!/usr/bin/env bash
# Builds the Debian packages from the build tree, checks what each holds,
# unpacks them into a scratch root, and there: a consumer builds with
# pkg-config and runs, the agent starts, and the systemd unit verifies.
set -euo pipefail
build=$(cd "$1" && pwd)
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$build" && cpack -G DEB -B "$work/debs" >/dev/null)

contents() { dpkg-deb -c "$1" | awk '{print $6}' | sed 's|^\./|/|'; }
expect() {  # package, paths it must hold
  local deb=$1 listed
  shift
  listed=$(contents "$deb")
  for path in "$@"; do
    grep -qx "$path" <<<"$listed" || { echo "$(basename "$deb") lacks $path"; exit 1; }
  done
}
lib=$(ls "$work"/debs/libharbec_*.deb)
agent=$(ls "$work"/debs/harbec-agent_*.deb)
expect "$lib" /usr/lib/libHarbec.so.0 /usr/include/harbec/session/HarbecSm.h /usr/lib/cmake/Harbec/HarbecConfig.cmake \
  /usr/lib/pkgconfig/harbec.pc
expect "$agent" /usr/bin/harbec-agent /usr/libexec/harbec/vcsim /usr/libexec/harbec/vsmstub \
  /usr/share/man/man1/harbec-agent.1 /usr/lib/systemd/system/harbec-agent.service /etc/harbec/agent.conf
dpkg-deb -f "$agent" Depends | grep -q "libharbec (= " || { echo "the agent does not depend on its library"; exit 1; }
dpkg-deb -e "$agent" "$work/control"
grep -qx /etc/harbec/agent.conf "$work/control/conffiles" || { echo "the configuration is no conffile"; exit 1; }
echo "both packages hold what they should"

root=$work/root
dpkg-deb -x "$lib" "$root"
dpkg-deb -x "$agent" "$root"
export LD_LIBRARY_PATH="$root/usr/lib:${LD_LIBRARY_PATH:-}"
export PKG_CONFIG_PATH="$root/usr/lib/pkgconfig"
# shellcheck disable=SC2046
g++ -o "$work/consumer" "$here/consumer.cpp" $(pkg-config --cflags --libs harbec)
"$work/consumer"
echo "a consumer built with pkg-config against the unpacked library ran"
"$root/usr/bin/harbec-agent" --help >"$work/help"
grep -q -- "--listen ADDR:PORT" "$work/help"
# The configuration as shipped is read, and asks for a vCenter.
if "$root/usr/bin/harbec-agent" --config "$root/etc/harbec/agent.conf" 2>"$work/err"; then exit 1; fi
grep -q "no vCenter in the configuration" "$work/err" || { cat "$work/err"; exit 1; }

sed "s|/usr/bin/harbec-agent|$root/usr/bin/harbec-agent|" "$root/usr/lib/systemd/system/harbec-agent.service" \
  >"$work/harbec-agent.service"
systemd-analyze verify --man=no "$work/harbec-agent.service"
man -l "$root/usr/share/man/man1/harbec-agent.1" >/dev/null
echo "the unit verifies and the man page reads"
