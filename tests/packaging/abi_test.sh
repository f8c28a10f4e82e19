#!/bin/bash
# The library's binary interface is the described one, and a change of it is told. Usage: abi_test.sh SOURCE LIBIFS
set -euo pipefail
check=$1/scripts/check-abi
description=$1/packaging/libifs.abi
earlier=$(mktemp)
trap 'rm -f "$earlier"' EXIT

"$check" "$2"
strip -o "$earlier" "$2"
! "$check" "$earlier" >/dev/null || { echo "The check passes without knowing the types"; exit 1; }

# refused SED_SCRIPT ANSWER: when the interface was this before, the check fails on it as it is now, with this answer.
refused() {
    sed -E "$1" "$description" >"$earlier"
    local answer
    answer=$("$check" "$description" "$earlier") && { echo "The check passes after '$1'"; exit 1; }
    grep -qF "$2" <<<"$answer" || { echo "$answer"; exit 1; }
}

long=$(sed -nE "s/.*name='long int' .*id='(\w+)'.*/\1/p" "$description")
int=$(sed -nE "s/.*type-decl name='int' .*id='(\w+)'.*/\1/p" "$description")
refused "/function-decl name='Ifsi_seek'/,/<\/function/s/$long/$int/" "parameter 2 of type 'int' changed"
refused "/class-decl name='_ifs_rec_file_'/s/'1216'/'1248'/" "type size changed from 1248 to 1216"
refused "/name='height'/s/$int/$long/" "type of 'long int height' changed"
refused "s/Ifsi_umount/Ifsi_unmount/" "raise IFS_INTERFACE_VERSION"
refused "/symbol name='Ifsi_seek'/d; /function-decl name='Ifsi_seek'/,/<\/function/d" "The interface has grown"
refused "s/libifs\.so\.[0-9]+/libifs.so.0/" "The interface has a new version"
