#!/bin/bash
# The manual pages are well-formed and name each exported call and each command. Usage: manual_test.sh SOURCE MANUAL
set -euo pipefail
cd "$2"
status=0

rendered() { zcat "$@" | mandoc -Tutf8 | sed 's/.\x08//g'; }

# The date that help2man writes has no day.
for page in $(find . -type f -name '*.gz'); do
    faults=$(zcat "$page" | mandoc -Tlint -Wwarning | grep -v 'cannot parse date' || true)
    [ -z "$faults" ] || { echo "$page: $faults"; status=1; }
    [ "$(rendered "$page" | wc --max-line-length)" -le 80 ] || { echo "$page is wider than a terminal"; status=1; }
done

missing=$(comm -23 <(sed 's/(.*//' <(c++filt <"$1/tests/exported_symbols.txt") | LC_ALL=C sort -u) \
    <(rendered man3/ifs_*.gz | grep -oE '\w+' | LC_ALL=C sort -u))
[ -z "$missing" ] || { printf 'On no page: %s\n' $missing; status=1; }

grep -qF 'IFS_RECORD(3)' <<<"$(rendered man3/Ifsi_close.3.gz)" ||
    { echo "Ifsi_close is no name of the page about recording"; status=1; }

tool=$(rendered man1/ifsctl.1.gz)
for expected in $(sed -n '/^## ifsctl/,/^## /s/^| `\([a-z]*\)`.*/\1/p' "$1/README.md"); do
    [ "$(grep -cE "^ +ifsctl $expected( \[?[A-Z]+\]?)?:" <<<"$tool")" = 1 ] ||
        { echo "ifsctl $expected is not described once"; status=1; }
done
grep -q '^ *the first partition has no FAT32 boot record$' <<<"$tool" || { echo "The findings of a check run on"; status=1; }
[ "$(grep -c '^EXIT STATUS' <<<"$tool")" = 1 ] || { echo "The exit codes are not told once"; status=1; }
exit $status
