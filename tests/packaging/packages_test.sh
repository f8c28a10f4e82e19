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
diff <(printf './usr/%s\n' "lib/libifs.so.$interface" "share/doc/libifs$interface/copyright") <(contents "libifs$interface")
diff - <(contents ifs-tools) <<'END'
./usr/bin/ifsctl
./usr/share/bash-completion/completions/ifsctl
./usr/share/doc/ifs-tools/copyright
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

[ "$(root/usr/bin/ifsctl --version)" = "$version" ]
export LD_LIBRARY_PATH=$scratch/root/usr/lib PKG_CONFIG_PATH=$scratch/root/usr/lib/pkgconfig

for library in kt_mp4 hostcard; do
    echo 'int main(void) { return 0; }' |
        gcc -x c - -x none -Wl,--whole-archive $(pkg-config --libs "$library") -Wl,--no-whole-archive
done

# block NAME: what docs/integration.md shows in the fenced block of that name.
block() {
    sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/{/^\`\`\`/!p}" "$source/docs/integration.md"
}
block c >camera.c
diff "$source/examples/camera.c" camera.c
diff root/usr/share/doc/ifs/camera.c camera.c

cc -o in_any_order camera.c $(pkg-config --cflags --libs kt_mp4 hostcard ifs)
block "sh build" >build.sh
diff <(block "text listing") <(bash -euo pipefail build.sh | grep -v '^\[func\|^libifs')
for recording in card/files/Rec_*.mp4; do
    [ "$(ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 "$recording")" = 300 ]
done

mkdir with_cmake
cp camera.c with_cmake
block cmake >with_cmake/CMakeLists.txt
{ cmake -S with_cmake -B with_cmake -DCMAKE_PREFIX_PATH="$scratch/root/usr" && cmake --build with_cmake; } >log 2>&1 ||
    { cat log; exit 1; }
rm -r card
diff <(block "text listing") <(with_cmake/camera card | grep -v '^\[func\|^libifs')
