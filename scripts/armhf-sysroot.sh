#!/usr/bin/env bash
# Makes the armhf sysroot that the camera build compiles against and that qemu-arm runs the tests
# in: Debian 12 for armhf with the libraries the plug-in, its tools and its tests link.
#
# The sysroot is made once per machine and reused: it lives outside the clone, in
#   ${ARMHF_SYSROOT:-${XDG_CACHE_HOME:-$HOME/.cache}/kestrelvorn/armhf-sysroot}
# and is remade only when this script changes. Safe to run again and again; prints the sysroot's
# path as its last line.
#
# How: debootstrap --foreign downloads and resolves the packages for armhf; instead of running the
# second stage under emulation (slow, and it needs binfmt_misc, which containers often lack), every
# downloaded package is unpacked with dpkg-deb. A sysroot needs files, not configured packages.
set -euo pipefail

log() { echo "armhf-sysroot: $*" >&2; }

cache=${XDG_CACHE_HOME:-$HOME/.cache}/kestrelvorn
sysroot=${ARMHF_SYSROOT:-$cache/armhf-sysroot}
debs=$cache/armhf-debs

# What the plug-in, the tools and the tests link on the camera build.
packages=(
  libc6-dev libstdc++-12-dev
  qtbase5-dev libqt5network5 libqt5gui5
  libhiredis-dev libevent-dev libdbus-1-dev libudev-dev libcjson-dev rapidjson-dev
  libgtest-dev libgmock-dev libumockdev-dev umockdev libcpp-httplib-dev
)
# Host tools: the bootstrapper, the cross compiler and the emulator that runs the tests.
host_packages=(debootstrap qemu-user-static binfmt-support crossbuild-essential-armhf
  debian-archive-keyring qtbase5-dev-tools file)

install_host_packages() {
  local missing=() p
  for p in "${host_packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return
  log "installing host packages: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo=sudo
  export DEBIAN_FRONTEND=noninteractive
  # Standard output carries only the sysroot's path.
  $sudo apt-get update -q >&2
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}" >&2
}

# The Debian mirror this machine's own apt uses, read from its sources (deb822 or one-line form):
# the first "deb" source that carries the release itself (not -updates or -security).
debian_mirror() {
  local codename=$1
  local f
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -e "$f" ] || continue
    awk -v rel="$codename" '
      function flush() {
        if (types ~ /(^| )deb( |$)/ && (" " suites " ") ~ (" " rel " ") && uri != "") { print uri; found = 1; exit }
        types = ""; suites = ""; uri = ""
      }
      /^[ \t]*$/ { flush(); next }
      /^Types:/  { sub(/^Types:[ \t]*/, ""); types = $0 }
      /^Suites:/ { sub(/^Suites:[ \t]*/, ""); suites = $0 }
      /^URIs:/   { sub(/^URIs:[ \t]*/, ""); split($0, u, /[ \t]+/); uri = u[1] }
      END { if (!found) flush() }
    ' "$f" | head -n1
  done | head -n1 | grep . && return
  cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null |
    sed -e 's/\[[^]]*\]//' |
    awk -v rel="$codename" '$1 == "deb" && $3 == rel { print $2; exit }' | grep .
}

# The sysroot is remade when this script changes: its package list or how it fixes the sysroot up.
sysroot_stamp() {
  sha256sum "${BASH_SOURCE[0]}" | cut -c1-16
}

# Absolute links ("/lib/arm-linux-gnueabihf/libz.so.1") would point at the build machine's own files;
# the cross linker and qemu need them inside the sysroot.
relativise_links() {
  local root=$1 link target rel
  find "$root" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    rel=$(realpath -m --relative-to="$(dirname "$link")" "$root$target")
    ln -sfn "$rel" "$link"
  done
}

# moc, rcc and uic of the sysroot are armhf programs; Qt's CMake files insist that they exist, and
# the build runs them on the build machine, so they become links to the host's own Qt tools (same
# Qt release: both come from Debian 12).
use_host_qt_tools() {
  local root=$1 tool
  for tool in moc rcc uic qdbuscpp2xml qdbusxml2cpp; do
    if [ -e "/usr/lib/qt5/bin/$tool" ]; then
      mkdir -p "$root/usr/lib/qt5/bin"
      ln -sfn "/usr/lib/qt5/bin/$tool" "$root/usr/lib/qt5/bin/$tool"
    fi
  done
  mkdir -p "$root/usr/lib/arm-linux-gnueabihf/qt5/bin"
  ln -sfn /usr/lib/qt5/bin/qmake "$root/usr/lib/arm-linux-gnueabihf/qt5/bin/qmake"
}

# qemu-arm -L looks a path up in the sysroot first and falls back to the host's. Empty run-time
# folders in the sysroot would hide the host's /proc, /sys, /dev, /run and /tmp from the tests, so
# they go; nothing in a sysroot needs them.
drop_runtime_dirs() {
  local root=$1 d
  for d in proc sys dev run tmp var/run var/tmp var/lock; do
    rm -rf "${root:?}/$d"
  done
}

make_sysroot() {
  local mirror=$1 codename=$2 work=$3
  local include
  include=$(IFS=,; echo "${packages[*]}")
  mkdir -p "$debs"
  log "resolving and downloading ${#packages[@]} packages and their dependencies from $mirror ($codename)"
  debootstrap --foreign --arch=armhf --variant=minbase --include="$include" \
    --cache-dir="$debs" --keyring=/usr/share/keyrings/debian-archive-keyring.gpg \
    "$codename" "$work" "$mirror" >"$cache/debootstrap.log" 2>&1 || {
      log "debootstrap failed; last lines of $cache/debootstrap.log:"
      tail -n 20 "$cache/debootstrap.log" >&2
      exit 1
    }
  local count
  count=$(wc -l <"$work/debootstrap/debpaths")
  log "unpacking $count packages"
  local pkg path
  while read -r pkg path; do
    dpkg-deb -x "$work/$path" "$work"
  done <"$work/debootstrap/debpaths"
  rm -rf "$work/debootstrap" "$work"/var/cache/apt/archives/*.deb
  log "fixing links"
  relativise_links "$work"
  # A loader cache of its own, so that qemu-arm does not hand the host's cache to the armhf loader;
  # the host's ldconfig indexes no armhf library, and the loader then searches its multiarch folders.
  ldconfig -r "$work"
  use_host_qt_tools "$work"
  drop_runtime_dirs "$work"
}

main() {
  install_host_packages
  local stamp
  stamp=$(sysroot_stamp)
  if [ -f "$sysroot/.kestrelvorn-sysroot" ] && [ "$(cat "$sysroot/.kestrelvorn-sysroot")" = "$stamp" ]; then
    log "up to date: $sysroot"
    echo "$sysroot"
    return
  fi

  local codename mirror
  codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
  mirror=$(debian_mirror "$codename") || {
    log "no Debian source for $codename in /etc/apt/sources.list*"
    exit 1
  }

  # Made beside its final place and moved in at the end, so an interrupted run leaves no half sysroot.
  mkdir -p "$cache"
  local work="$sysroot.new"
  rm -rf "$work"
  local start=$SECONDS
  make_sysroot "$mirror" "$codename" "$work"
  echo "$stamp" >"$work/.kestrelvorn-sysroot"
  rm -rf "$sysroot.old"
  [ -d "$sysroot" ] && mv "$sysroot" "$sysroot.old"
  mv "$work" "$sysroot"
  rm -rf "$sysroot.old"
  log "made $sysroot in $((SECONDS - start)) s ($(du -sh "$sysroot" | cut -f1))"
  echo "$sysroot"
}

main "$@"
