#!/usr/bin/env bash
# cmake --install into a scratch prefix, then build the example host program against it both ways
# (CMake's find_package and pkg-config) and run it, and run the installed zor-run.
#   check_install.sh BUILD_DIR SOURCE_DIR SCRATCH LIBDIR
set -euo pipefail
build=$1 source=$2 scratch=$3 libdir=$4
prefix=$scratch/prefix
rm -rf "$scratch"
mkdir -p "$scratch"
cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"
for file in lib/cmake/Zor/ZorConfig.cmake lib/pkgconfig/zor.pc include/zor/framework/kor/Packet.h \
            include/zor/routing/Splitter.h bin/zor-run; do
    test -e "$prefix/${file/lib\//$libdir/}" || { echo "not installed: $file"; exit 1; }
done

# CMake: find_package(Zor) gives Zor::framework and ZOR_MODULE_PATH.
cmake -S "$source/examples/host" -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_BUILD_TYPE=Release >"$scratch/cmake.log"
cmake --build "$scratch/cmake" >>"$scratch/cmake.log"
"$scratch/cmake/zor_host_example"

# pkg-config: the flags, and the module's path from the variable "module".
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
module=$(pkg-config --variable=module zor)
# shellcheck disable=SC2046
c++ -std=c++20 -DZOR_MODULE_PATH="\"$module\"" "$source/examples/host/zor_host_example.cpp" \
    $(pkg-config --cflags --libs zor) -o "$scratch/pkgconfig_example"
LD_LIBRARY_PATH=$prefix/$libdir "$scratch/pkgconfig_example"

# The installed zor-run finds the installed module by itself.
echo 'assert(zor.CreateSplitter{} ~= nil) print("installed zor-run: ok")' >"$scratch/check.lua"
env -u ZOR_MODULE "$prefix/bin/zor-run" "$scratch/check.lua"
