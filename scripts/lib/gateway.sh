# The program kestrin-gateway, for scripts that show it at work. Sourced behind packages.sh.

# find_gateway_program FILE PACKAGE...: sets `program` to the whole name of FILE; without one builds
# build/bin/kestrin-gateway, having installed these packages, too.
find_gateway_program() {
  program=$1
  shift
  PATH=$PATH:/usr/sbin # Debian has the broker there, which not everybody looks into.
  if [ -z "$program" ]; then
    install_packages "${build_packages[@]}" mosquitto "$@"
    need_commands cmake ninja g++ mosquitto
    use_compiler_cache
    if [ ! -f build/build.ninja ]; then
      echo "Configuring build/"
      cmake --preset default -DKESTRIN_BUILD_TESTS=OFF >/dev/null
    fi
    echo "Building build/bin/kestrin-gateway"
    cmake --build build --target kestrin-gateway -- --quiet
    program=build/bin/kestrin-gateway
  fi
  need_commands mosquitto
  program=$(realpath "$program")
}
