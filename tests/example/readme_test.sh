#!/bin/bash
# The README shows examples/host.c to the letter. Usage: readme_test.sh SOURCE_FOLDER
set -euo pipefail

diff "$1/examples/host.c" <(sed -n '/^```c$/,/^```$/{/^```/!p}' "$1/README.md")
