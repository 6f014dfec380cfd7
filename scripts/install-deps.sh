#!/usr/bin/env bash
# Installs what building and testing k5x needs beyond the base toolchain, when it is missing.
set -euo pipefail
need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
command -v gfortran >/dev/null || need+=(gfortran)
command -v nm >/dev/null || need+=(binutils)
command -v python3 >/dev/null || need+=(python3)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev libgmock-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
[ -f /usr/include/kdl/chainiksolverpos_lma.hpp ] || need+=(liborocos-kdl-dev)
command -v pkg-config >/dev/null || need+=(pkg-config)
command -v help2man >/dev/null || need+=(help2man)
command -v readelf >/dev/null || need+=(binutils)
# The Python module: pybind11 and NumPy for the system Python.
[ -f /usr/include/pybind11/pybind11.h ] || need+=(pybind11-dev)
[ -f /usr/include/python3.11/Python.h ] || ls /usr/include/python3*/Python.h >/dev/null 2>&1 || need+=(python3-dev)
/usr/bin/python3 -c 'import numpy' 2>/dev/null || need+=(python3-numpy)
if [ ${#need[@]} -gt 0 ]; then
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${need[@]}"
fi
