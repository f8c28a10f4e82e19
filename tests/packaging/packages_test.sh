#!/bin/bash
# Whoever unpacks the Debian packages builds and runs a host with pkg-config and with CMake, and runs ifsctl.
# Usage: packages_test.sh SOURCE BUILD VERSION INTERFACE_VERSION
set -euo pipefail
source=$1 build=$2 version=$3 interface=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

cpack --config "$build/CPackConfig.cmake" -B packages >log 2>&1 || { cat log; exit 1; }
for package in "libifs$interface" libifs-dev ifs-tools; do
    cp packages/"${package}_${version}"_*.deb "$package.deb"
    dpkg-deb -x "$package.deb" root
done

# field_is PACKAGE FIELD PATTERN
field_is() {
    local value
    value=$(dpkg-deb -f "$1.deb" "$2")
    grep -qE "$3" <<<"$value" || { echo "$1 has $2 '$value'"; exit 1; }
}
field_is libifs-dev Depends "^libifs$interface \(= $version\)$"
field_is "libifs$interface" Depends 'libc6 .*libstdc\+\+6 '
field_is ifs-tools Depends "libifs$interface \\(>= $version\\), .*libavformat"
field_is ifs-tools Description 'command line tool'

contents() { dpkg-deb -c "$1.deb" | awk '{ print $6 }' | grep -v '/$' | LC_ALL=C sort; }
diff <(printf './usr/lib/libifs.so.%s\n' "$interface") <(contents "libifs$interface")
diff - <(contents ifs-tools) <<'END'
./usr/bin/ifsctl
./usr/share/bash-completion/completions/ifsctl
./usr/share/man/man1/ifsctl.1.gz
END
if readelf -S "root/usr/lib/libifs.so.$interface" root/usr/bin/ifsctl | grep -F .debug_info; then
    echo "A program of the packages is not stripped"
    exit 1
fi
if grep -rlF -e "$source" -e "$build" root; then
    echo "The files above name folders of this machine"
    exit 1
fi

export LD_LIBRARY_PATH=$scratch/root/usr/lib PKG_CONFIG_PATH=$scratch/root/usr/lib/pkgconfig
[ "$(root/usr/bin/ifsctl --version)" = "$version" ]

example=root/usr/share/doc/ifs/host.c
gcc "$example" -o with_pkg_config $(pkg-config --cflags --libs ifs hostcard kt_mp4)
"$source/tests/example/host_test.sh" ./with_pkg_config
for library in kt_mp4 hostcard; do
    echo 'int main(void) { return 0; }' |
        gcc -x c - -x none -Wl,--whole-archive $(pkg-config --libs "$library") -Wl,--no-whole-archive
done

mkdir host
cat >host/CMakeLists.txt <<END
cmake_minimum_required(VERSION 3.20)
project(host LANGUAGES C)
find_package(ifs ${version%.*} REQUIRED)
add_executable(with_cmake ../$example)
target_link_libraries(with_cmake ifs::ifs ifs::kt_mp4 ifs::hostcard)
END
{ cmake -S host -B built -DCMAKE_PREFIX_PATH="$scratch/root/usr" && cmake --build built; } >log 2>&1 || { cat log; exit 1; }
"$source/tests/example/host_test.sh" built/with_cmake
