# Shared set-up for scripts/kestro and scripts/test: install what is missing,
# then configure and build (incrementally after the first time).
set -euo pipefail

KESTRO_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
KESTRO_BUILD=${KESTRO_BUILD_DIR:-$KESTRO_ROOT/build}

KESTRO_PACKAGES=(
  build-essential cmake ninja-build ccache pkg-config
  qtbase5-dev libqt5svg5-dev libqwt-qt5-dev qtwebengine5-dev
  qt5-image-formats-plugins
  libopencv-dev libopencv-contrib-dev
  libgtest-dev libbenchmark-dev
  xvfb xauth
  dbus-daemon
)

kestro_install_missing() {
  local missing=()
  for pkg in "${KESTRO_PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$pkg")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return 0
  fi
  echo "Installing missing packages: ${missing[*]}"
  local sudo=()
  if [ "$(id -u)" -ne 0 ]; then sudo=(sudo); fi
  "${sudo[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

kestro_build() {
  if [ ! -f "$KESTRO_BUILD/build.ninja" ]; then
    cmake -S "$KESTRO_ROOT" -B "$KESTRO_BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release
  fi
  cmake --build "$KESTRO_BUILD" -j"$(nproc)"
}
