#!/usr/bin/env bash
# Extraction throughput against unzip on the same 1 GiB DEFLATE part, and resident memory
# while extracting one entry larger than 4 GiB. Inputs are made in a temporary folder.
set -euo pipefail
cli=${1:?usage: zip_throughput.sh PATH-TO-quillmere-cli}
work=$(mktemp -d "${TMPDIR:-/tmp}/quillmere-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

# Content that really deflates (base64 noise shrinks to about 3/4; Info-ZIP would store
# incompressible data instead), with some JSON between: a 1 GiB DEFLATE part.
mkdir -p "$work/Takeout/Google Photos/Photos from 2021"
for i in $(seq 1 168); do
  head -c 6M /dev/urandom | base64 -w 0 > "$work/Takeout/Google Photos/Photos from 2021/IMG_$i.JPG"
  yes "{\"title\": \"IMG_$i.JPG\", \"photoTakenTime\": {\"timestamp\": \"16$i\"}}" | head -c 64K \
    > "$work/Takeout/Google Photos/Photos from 2021/IMG_$i.JPG.json" || true  # yes ends on SIGPIPE
done
(cd "$work" && zip -q -r part.zip Takeout && rm -rf Takeout)
size=$(stat -c %s "$work/part.zip")

seconds() { local s; s=$(date +%s.%N); "$@" > /dev/null 2>&1; echo "$(date +%s.%N) - $s" | bc -l; }
cat "$work/part.zip" > /dev/null  # warm the page cache for both readers alike
unzip_s=$(seconds unzip -p "$work/part.zip")
ours_s=$(seconds "$cli" list --check --quiet "$work/part.zip")
unzip_s2=$(seconds unzip -p "$work/part.zip")
ours_s2=$(seconds "$cli" list --check --quiet "$work/part.zip")
best() { echo "if ($1 < $2) $1 else $2" | bc -l; }
unzip_s=$(best "$unzip_s" "$unzip_s2"); ours_s=$(best "$ours_s" "$ours_s2")
printf 'part: %d MB, DEFLATE entries (%s)\n' $((size / 1000000)) "$(unzip -v "$work/part.zip" | tail -1 | awk '{print $3}') saved"
printf 'unzip -p:                %.2f s  (%.0f MB/s)\n' "$unzip_s" "$(echo "$size / $unzip_s / 1000000" | bc -l)"
printf 'quillmere list --check:  %.2f s  (%.0f MB/s)\n' "$ours_s" "$(echo "$size / $ours_s / 1000000" | bc -l)"
printf 'throughput ratio (quillmere / unzip): %.2f  (target >= 0.90)\n' "$(echo "$unzip_s / $ours_s" | bc -l)"
rm -f "$work/part.zip"

# One entry of 4.1 GiB written by Info-ZIP from a stream (ZIP64 sizes in the extra field).
head -c 4400000000 /dev/zero | zip -q "$work/huge.zip" - 
/usr/bin/time -f '%M' -o "$work/rss" "$cli" list --check --quiet "$work/huge.zip" > /dev/null 2>&1
printf 'peak resident memory extracting a 4.4 GB entry: %.1f MB  (target < 20 MB)\n' \
  "$(echo "$(cat "$work/rss") / 1024" | bc -l)"
