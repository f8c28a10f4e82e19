#!/bin/bash
# Completion offers the commands that the README lists, and options and files where they fit.
# Usage: completion_test.sh SOURCE IFSCTL
set -euo pipefail
ifsctl=$2
source "$1/packaging/completion.bash"
compopt() { :; } # works only while a line is typed

# offered WORD...: what completion offers for the last word of ifsctl's arguments.
offered() {
    COMP_WORDS=("$ifsctl" "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _ifsctl "$ifsctl" "${@: -1}" >&2
    printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort
}

# offers EXPECTED WORD...
offers() {
    diff -U0 --label "expected for ${*:2}" --label offered <(printf '%s\n' $1) <(offered "${@:2}")
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkdir 'my card'
touch clip.mp4

offers "$(sed -n '/^## ifsctl/,/^## /s/^| `\([a-z]*\)`.*/\1/p' "$1/README.md" | LC_ALL=C sort)" ''
offers 'calendar check create' c
offers '--card' --ca
offers '--segment --start --sub-input' --card card record --s
offers '--segment --start --sub-input' record clip.mp4 --json --s
offers 'main sub' play --stream ''
offers '' list --from ''
offers '' info ''
offers 'clip.mp4' record cl
offers 'clip.mp4' export --from 2026-03-05T10:00 cl
offers 'clip.mp4' play --output cl
offers 'clip.mp4' play --output = cl
offers 'main sub' play --stream =
offers 'record' help r
[ "$(offered --card '')" = 'my card' ]
