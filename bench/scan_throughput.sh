#!/usr/bin/env bash
# Scanning a synthetic Takeout export of 20,000 media files (30 % of them also copied into
# albums) in 2 zip parts: wall time and peak memory of quillmere-cli scan, against unzip -tq
# testing the same parts in the same run; then the same export unzipped into a folder.
set -euo pipefail
cli=${1:?usage: scan_throughput.sh PATH-TO-quillmere-cli}
root=$(cd "$(dirname "$0")/.." && pwd)
files=${SCAN_BENCH_FILES:-20000}
work=$(mktemp -d "${TMPDIR:-/tmp}/quillmere-scan-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

"$root/tools/synth-export" --files "$files" --zip-parts 2 "$work/zips"
"$root/tools/synth-export" --files "$files" --folder "$work/folder"
parts=("$work"/zips/*.zip)
cat "${parts[@]}" > /dev/null  # warm the page cache for both readers alike

timed() {  # timed LABEL COMMAND...: prints seconds and peak resident MB
  /usr/bin/time -f '%e %M' -o "$work/time" "${@:2}" > "$work/out" 2> /dev/null || true
  read -r seconds kb < "$work/time"
  printf '%-28s %6.2f s   peak %6.1f MB\n' "$1" "$seconds" "$(echo "$kb / 1024" | bc -l)"
  echo "$seconds"  > "$work/last"
}
printf 'export: %d media files, %s in %d zip parts\n' "$files" "$(du -ch "${parts[@]}" | tail -1 | cut -f1)" "${#parts[@]}"
timed "unzip -tq (both parts)" bash -c "for p in ${parts[*]}; do unzip -tq \"\$p\"; done"
unzip_s=$(cat "$work/last")
timed "quillmere-cli scan (zips)" "$cli" scan --quiet "${parts[@]}"
scan_s=$(cat "$work/last")
grep -E 'items|album' "$work/out" | head -2 | sed 's/^/    /'
timed "quillmere-cli scan (folder)" "$cli" scan --quiet "$work/folder"
printf 'scan time / unzip -tq time: %.2f  (target < 1: faster than unzip -tq; wall target < 20 s, memory < 300 MB)\n' \
  "$(echo "$scan_s / $unzip_s" | bc -l)"

# The same comparison with camera-sized files (2 MB photos, 15 MB movies), at 1,000 files so the
# parts stay a few gigabytes: here unzip must inflate every byte, the scan only heads of photos,
# JSON files and the copies it compares.
if [ "${SCAN_BENCH_LARGE:-1}" = 1 ]; then
  rm -rf "$work/zips" "$work/folder"
  "$root/tools/synth-export" --files 1000 --photo-kb 2000 --video-kb 15000 --zip-parts 2 "$work/large"
  parts=("$work"/large/*.zip)
  cat "${parts[@]}" > /dev/null
  printf '\ncamera-sized export: 1000 media files, %s in %d zip parts\n' "$(du -ch "${parts[@]}" | tail -1 | cut -f1)" "${#parts[@]}"
  timed "unzip -tq (both parts)" bash -c "for p in ${parts[*]}; do unzip -tq \"\$p\"; done"
  unzip_s=$(cat "$work/last")
  timed "quillmere-cli scan (zips)" "$cli" scan --quiet "${parts[@]}"
  printf 'scan time / unzip -tq time: %.2f\n' "$(echo "$(cat "$work/last") / $unzip_s" | bc -l)"
fi
