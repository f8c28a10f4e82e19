#!/bin/bash
# The example host finds what it recorded, and a player reads it. Usage: host_test.sh COMMAND...
set -euo pipefail

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

output=$("$@" "$folder/card")
grep -qx '16x16, 10 s' <<<"$output" || { echo "$output"; exit 1; }

again=$("$@" "$folder/card" 2>&1 >/dev/null || true)
grep -q 'card: File exists' <<<"$again" || { echo "A second run answers '$again'"; exit 1; }

streams=$(ffprobe -v error -count_frames -show_entries stream=codec_name,width,height,nb_read_frames \
    -of csv=p=0 "$folder"/card/files/Rec_20260509_120000_*_M.mp4)
[ "$streams" = h264,16,16,10 ] || { echo "$streams"; exit 1; }
