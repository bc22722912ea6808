# Shared by the scripts of this folder: packages and builds.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

build_packages=(g++ cmake ninja-build libboost-dev libyaml-cpp-dev libpugixml-dev libfmt-dev
  libcli11-dev nlohmann-json3-dev libzstd-dev libjs-three)
run_packages=(gnuplot-nox)
bridge_packages=(cyclonedds-dev cyclonedds-tools)
test_packages=("${bridge_packages[@]}" curl iproute2 libgtest-dev nftables pkgconf valgrind
  python3-jsonschema python3-yaml python3-selenium chromium chromium-driver)
check_packages=(clang clang-format clang-tidy)
bench_packages=(libbenchmark-dev jq)

# Installs the packages that are missing; without the right to, names them and stops.
need_packages() {
  local missing=() package
  for package in "$@"; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
      missing+=("$package")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return
  fi
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "These packages are missing and there is no sudo to install them: ${missing[*]}" >&2
      exit 1
    fi
    as_root=(sudo)
  fi
  echo "Installing ${missing[*]}" >&2
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Node.js of another place brings its own npm, which Debian's package contradicts.
need_npm() {
  command -v npm >/dev/null || need_packages nodejs npm
}

# configure PRESET [CMAKE OPTIONS...]
configure() {
  local preset=$1
  shift
  local log
  log=$(mktemp)
  if ! (cd "$root" && cmake --preset "$preset" \
    ${CI:+-DCMAKE_COMPILE_WARNING_AS_ERROR=ON} "$@") >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    exit 1
  fi
  rm -f "$log"
}

# Builds what moves the examples and draws them.
build_tool() {
  need_packages "${build_packages[@]}" "${run_packages[@]}"
  if [ ! -f "$root/build/release/build.ninja" ]; then
    configure tool
  fi
  cmake --build "$root/build/release" --target torvex_tool >&2
}
