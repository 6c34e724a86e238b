# Sourced by ./demo, ./test and .ci/run: finds and installs what the build needs, and builds.
# shellcheck shell=bash

# Package:probe, the probe being a command or a file that shows that the package is there, or "="
# for asking dpkg.
build_packages=(
  g++:g++
  make:make
  cmake:cmake
  pkg-config:pkg-config
  dpkg-dev:dpkg-shlibdeps
  file:file
  libcli11-dev:/usr/include/CLI/CLI.hpp
  libpng-dev:/usr/include/png.h
  libopenexr-dev:/usr/include/OpenEXR/OpenEXRConfig.h
  libturbojpeg0-dev:/usr/include/turbojpeg.h
  libedit-dev:/usr/include/histedit.h
  nlohmann-json3-dev:/usr/include/nlohmann/json.hpp
  libsdl2-dev:/usr/include/SDL2/SDL.h
  glslang-dev:/usr/include/glslang/Public/ShaderLang.h
  glslang-tools:glslangValidator
  python3:python3
  libgtest-dev:/usr/include/gtest/gtest.h
  libbenchmark-dev:/usr/include/benchmark/benchmark.h
)
check_packages=(
  clang:clang++
  clang-format:clang-format
  clang-tidy:clang-tidy
  cppcheck:cppcheck
  libclang-rt-14-dev:=
  libegl1-mesa-dev:/usr/include/EGL/egl.h
  libgl1-mesa-dri:=
  libgles2-mesa-dev:/usr/include/GLES3/gl3.h
  lintian:lintian
  ninja-build:ninja
  nodejs:node
  npm:npm
  python3-xlib:=
  xvfb:Xvfb
)

is_present() {  # PACKAGE PROBE
  case $2 in
    =) dpkg-query -W -f '${Status}' "$1" 2>/dev/null | grep -q '^install ok installed' ;;
    /*) [ -e "$2" ] ;;
    *) command -v "$2" >/dev/null ;;
  esac
}

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  else
    sudo -n "$@"
  fi
}

can_install() {
  command -v apt-get >/dev/null || return 1
  [ "$(id -u)" = 0 ] || { command -v sudo >/dev/null && sudo -n true 2>/dev/null; }
}

# require PACKAGE:PROBE...: installs what is missing, or says what to install and exits.
require() {
  local entry missing=()
  for entry in "$@"; do
    is_present "${entry%%:*}" "${entry#*:}" || missing+=("${entry%%:*}")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  if ! can_install; then
    echo "These Debian packages are needed and missing: ${missing[*]}" >&2
    echo "Install them as root:  apt-get install ${missing[*]}" >&2
    exit 1
  fi
  echo "Installing with apt-get: ${missing[*]}"
  local log
  log=$(mktemp)
  if ! { as_root apt-get update -q &&
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
      "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    echo "apt-get failed; its whole output is in $log" >&2
    exit 1
  fi
  rm -f "$log"
}

# The messages of compilers, linkers and CMake in a build's output, with some lines of each; fails
# where there is none.
print_errors() {
  awk '/(^|[: ])error: |^CMake Error|^FAILED: |undefined reference| \*\*\* / { left = 13 }
       left-- > 0 && ++shown <= 60
       END { exit !shown }' "$1"
}

# unpacked_source PACKAGE VERSION FOLDER: makes the folder, with the source of a Debian package. Takes
# the system's list of archives, which mostly leaves out those of sources, without changing it.
unpacked_source() {
  local list work=$3.part
  local apt=(apt-get -q -o "Dir::State::Lists=$work/lists" -o "Dir::Etc::SourceParts=$work/sources"
    -o Dir::Etc::SourceList=/dev/null -o Dir::Cache::pkgcache= -o Dir::Cache::srcpkgcache=)
  rm -rf "$work"
  mkdir -p "$work"/{lists/partial,sources,unpacked}
  for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources}; do
    [ ! -e "$list" ] || sed 's/^Types:.*/Types: deb-src/; s/^deb /deb-src /' "$list" \
      >"$work/sources/${list##*/}"
  done
  "${apt[@]}" update && (cd "$work/unpacked" && "${apt[@]}" source "$1=$2") &&
    mv "$work"/unpacked/*/ "$3" && rm -rf "$work"
}

# Prints the options with which CMake finds the headers of glslang that the GLSL compiler reads.
# Packages from Debian 13 on leave them out: they come from the source of the version installed.
glslang_options() {
  local version folder log=build/glslang.log
  [ ! -e /usr/include/glslang/MachineIndependent/localintermediate.h ] || return 0
  version=$(dpkg-query -W -f '${source:Version}' glslang-dev 2>/dev/null) || return 0
  folder=$PWD/build/glslang-$version
  if [ ! -e "$folder" ]; then
    echo "Fetching the source of glslang $version, for headers that its package leaves out" >&2
    if ! unpacked_source glslang "$version" "$folder" >"$log" 2>&1 </dev/null; then
      echo "apt-get failed; its output is in $log" >&2
      return 0
    fi
  fi
  echo "-DSHADERMACHINE_GLSLANG_SOURCE=$folder"
}

# Why the build of a preset has no GLSL compiler; fails where it has one.
why_no_glsl() {  # PRESET
  sed -n 's/^-- \(.*: no GLSL compiler\)$/\1/p' "build/$1/build.log" | grep .
}

# build PRESET [CMAKE-BUILD-ARGUMENT...]: configures and builds build/PRESET; silent unless it fails
# or has something to do.
build() {
  local preset=$1 log options
  shift
  if [ ! -e "build/$preset/CMakeCache.txt" ] && [ -z "${CMAKE_GENERATOR:-}" ] &&
    command -v ninja >/dev/null; then
    export CMAKE_GENERATOR=Ninja
  fi
  mkdir -p "build/$preset"
  log=build/$preset/build.log
  mapfile -t options < <(glslang_options)
  [ -e "build/$preset/.built" ] || echo "Building in build/$preset (the first time takes minutes)"
  rm -f "build/$preset/.built"
  if ! { cmake --preset "$preset" "${options[@]}" &&
    cmake --build "build/$preset" --parallel "$(nproc)" "$@"; } >"$log" 2>&1 </dev/null; then
    print_errors "$log" >&2 || tail -n 40 "$log" >&2
    echo "The build failed; its whole output is in $log" >&2
    exit 1
  fi
  touch "build/$preset/.built"
}
