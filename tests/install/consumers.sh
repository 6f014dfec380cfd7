#!/usr/bin/env bash
# Installs the build into a scratch prefix and uses it from outside the source tree, as users
# do: a C program through pkg-config, a C++ program through find_package, a Fortran program
# through the module, the Python module, and the installed program from /. usage: consumers.sh BUILD_DIR
set -u
BUILD="$1"
T="$(mktemp -d)"
trap 'rm -rf "$T"' EXIT
P="$T/prefix"
pass=0 fail=0
verdict() { if [ "$2" -eq 0 ]; then ((++pass)); else ((++fail)) && echo "FAIL: $1"; fi; }

cmake --install "$BUILD" --prefix "$P" >"$T/install.log" 2>&1
verdict "cmake --install" $?
readelf -d "$P/lib/libk5x.so.0.1.0" | grep -q 'SONAME.*\[libk5x\.so\.0\]'
verdict "SONAME libk5x.so.0" $?

# A trunnion table written here: A about X under C about Z, the tool along +Z. The direction
# (sin 30, 0, cos 30) is brought to the tool by C = -atan2(0.5, 0) = -90 (into the Y-Z plane)
# and A = -30 (down to +Z); from (-10, 0, -80) that branch is the nearer.
cat >"$T/trunnion.k5x" <<'EOF'
nommachine = Scratch
coursemaximum = AXE_A, 30
courseminimum = AXE_A, -120
bati = Z, Frame
axe = AXE_X, X, X
axe = AXE_Y, Y, Y
axe = AXE_Z, Z, Z
outil = Z, 0, 0, 100
lien = AXE_BATI
rotation = AXE_A, X, 0, 1, 0, 0, 0, A
rotation = AXE_C, Z, 0, 1, 0, 0, 0, C
piece = X, Y, 0, 0, 0
EOF

cat >"$T/c.c" <<'EOF'
#include <math.h>
#include <stdio.h>
#include <k5x.h>
int main(int argc, char** argv) {
  if (argc < 2 || k5x_machine_def(argv[1]) != 0) return 2;
  const double d[3] = {0.5, 0.0, 0.8660254037844386}, prev[3] = {-10.0, 0.0, -80.0};
  double abc[3];
  const int code = k5x_ijk2abc(d, prev, abc);
  printf("%d %.6f %.6f\n", code, abc[0], abc[2]);
  return code == 0 && fabs(abc[0] + 30.0) < 1e-6 && fabs(abc[2] + 90.0) < 1e-6 ? 0 : 1;
}
EOF
export PKG_CONFIG_PATH="$P/lib/pkgconfig"
cc -o "$T/c" "$T/c.c" $(pkg-config --cflags --libs k5x) -lm -Wl,-rpath,"$P/lib" 2>"$T/c.err" &&
  "$T/c" "$T/trunnion.k5x"
verdict "C consumer through pkg-config" $?

mkdir -p "$T/cpp"
cat >"$T/cpp/CMakeLists.txt" <<'EOF'
cmake_minimum_required(VERSION 3.20)
project(consumer CXX)
find_package(k5x CONFIG REQUIRED)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE k5x::k5x)
EOF
cat >"$T/cpp/main.cpp" <<'EOF'
#include <cmath>
#include <cstdio>
#include <k5x.hpp>
int main(int argc, char** argv) {
  try {
    k5x::Machine m = k5x::Machine::from_file(argv[1]);
    const k5x::Orientation o = m.solve({0.5, 0.0, 0.8660254037844386}, {-10.0, 0.0, -80.0});
    std::printf("%s %d %.6f %.6f\n", m.name().c_str(), o.code, o.angles[0], o.angles[2]);
    return o.code == 0 && std::fabs(o.angles[0] + 30.0) < 1e-6 && std::fabs(o.angles[2] + 90.0) < 1e-6 ? 0 : 1;
  } catch (const k5x::LoadError& e) {
    std::printf("%s\n", e.what());
    return 2;
  }
}
EOF
cmake -S "$T/cpp" -B "$T/cpp/build" -DCMAKE_PREFIX_PATH="$P" -DCMAKE_BUILD_RPATH="$P/lib" \
  >"$T/cpp.log" 2>&1 && cmake --build "$T/cpp/build" >>"$T/cpp.log" 2>&1 &&
  "$T/cpp/build/consumer" "$T/trunnion.k5x"
verdict "C++ consumer through find_package(k5x) and k5x::Machine" $?

if command -v gfortran >/dev/null && [ -f "$P/include/k5x/k5x.mod" ]; then
  cat >"$T/f.f90" <<'EOF'
program consumer
  use k5x
  implicit none
  character(len=*), parameter :: path = ARG_PATH
  integer :: rc, status
  real :: dir(3), prev(3), abc(3)
  rc = kf5x_machine_def(path, len(path), status)
  dir = (/ 0.5, 0.0, 0.8660254 /)
  prev = (/ -10.0, 0.0, -80.0 /)
  rc = kf5x_ijk2abc(dir, prev, abc, status)
  print *, rc, abc
  if (rc /= 0 .or. abs(abc(1) + 30.0) > 1e-3 .or. abs(abc(3) + 90.0) > 1e-3) stop 1
end program consumer
EOF
  gfortran -ffree-line-length-none -cpp -DARG_PATH="'$T/trunnion.k5x'" -I"$P/include/k5x" \
    -o "$T/f" "$T/f.f90" -L"$P/lib" -lk5x -Wl,-rpath,"$P/lib" 2>"$T/f.err" && "$T/f"
  verdict "Fortran consumer through the module" $?
fi

# The installed Python module, imported with nothing but the prefix to find it by.
if ls "$P"/lib/python3/dist-packages/k5x*.so >/dev/null 2>&1; then
  (cd / && env -i PATH=/usr/bin:/bin PYTHONPATH="$P/lib/python3/dist-packages" /usr/bin/python3 -c \
    'import k5x; code, abc = k5x.Machine.from_file("'"$T/trunnion.k5x"'").solve((0.5, 0, 0.8660254037844386), (-10, 0, -80)); assert code == 0 and abs(abc[0] + 30) < 1e-6, abc')
  verdict "installed Python module from /" $?
fi

# The installed program, with the source and build trees out of reach.
(cd / && env -i PATH="$P/bin:/usr/bin:/bin" k5x info Trunnion | grep -q '^machine: Trunnion$')
verdict "installed k5x info from /" $?
(cd / && env -i PATH="$P/bin:/usr/bin:/bin" k5x post --help | grep -q '^usage: k5x post')
verdict "installed k5x post --help from /" $?

echo "$pass passed, $fail failed"
[ "$fail" -eq 0 ]
