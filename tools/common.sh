# Shared by tools/run and tools/test: installs what is missing.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# Compiler cache entries name paths relative to the checkout, so that another clone of the same
# commits (CI's) builds from the cache instead of from scratch.
export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=true

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

ensure_debian_packages() {
  local wanted missing=()
  wanted=$(grep -v -E '^\s*(#|$)' "$root/tools/dependencies.txt")
  if ! command -v node >/dev/null 2>&1; then wanted+=$'\nnodejs\nnpm'; fi
  for package in $wanted; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
      missing+=("$package")
    fi
  done
  if [ ${#missing[@]} -gt 0 ]; then
    echo "Installing Debian packages: ${missing[*]}"
    as_root apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
      "${missing[@]}"
  fi
}

ensure_runtime_packages() {
  if [ -f "$root/runtime/package-lock.json" ]; then
    if [ ! -d "$root/runtime/node_modules" ] ||
      [ "$root/runtime/package-lock.json" -nt "$root/runtime/node_modules/.package-lock.json" ]; then
      (cd "$root/runtime" && npm ci --no-audit --no-fund)
    fi
  fi
}

# The versions of the packages that decide how the tests behave on a machine: the web engine,
# the toolkit, the GL driver that GTK may load, and the compiler with its sanitizers.
print_package_versions() {
  echo "Package versions:"
  dpkg-query -W -f='  ${Package} ${Version}\n' libwebkitgtk-6.0-4 libjavascriptcoregtk-6.0-1 \
    libgtk-4-1 libadwaita-1-0 libglib2.0-0 libgl1-mesa-dri libegl-mesa0 clang-14 \
    libclang-rt-14-dev 2>/dev/null
  echo "  node $(node --version 2>/dev/null)"
}

# configure_and_build PRESET [TARGET...]
configure_and_build() {
  local preset=$1
  shift
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" ${1:+--target "$@"}
}
