#!/usr/bin/env bash
# End-to-end repair against unzip -q -d extracting the same zip parts, in the same run: the
# synthetic 20,000-file export (and 100,000 files, to show how memory grows with the count), then a
# camera-sized one (2 MB photos, 15 MB movies, 1,000 files). Wall time, peak memory, ratios.
# Targets: repair at most 3x unzip on the small files, 1.3x on the camera-sized ones; peak
# memory under 300 MB whatever the export's size. Needs about three times the exports' size in
# free space (15 GB with the camera-sized one), and a file system left alone for five minutes
# before: see compare().
set -euo pipefail
cli=${1:?usage: repair_throughput.sh PATH-TO-quillmere-cli}
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/quillmere-repair-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

timed() {  # timed LABEL COMMAND...: prints seconds and peak resident MB
  /usr/bin/time -f '%e %M' -o "$work/time" "${@:2}" > "$work/out" 2> "$work/err" || true
  read -r seconds kb < "$work/time"
  printf '  %-30s %7.2f s   peak %7.1f MB\n' "$1" "$seconds" "$(echo "$kb / 1024" | bc -l)"
  echo "$seconds" > "$work/last"
}

compare() {  # compare LABEL SYNTH-ARGS...
  # Nothing is deleted until the script ends. On ext4 without a journal, as on the test
  # machines, an inode freed in the last five minutes is skipped while its inode table block is
  # dirty, so every file either tool creates soon after a mass deletion pays a search: deleting
  # one export's copies would slow the next export's runs.
  local dir
  dir=$(mktemp -d "$work/export-XXXXXX")
  "$root/tools/synth-export" "${@:2}" --zip-parts 2 "$dir/zips" > /dev/null
  local parts=("$dir"/zips/*.zip)
  cat "${parts[@]}" > /dev/null  # warm the page cache for both alike
  printf '%s: %s in %d zip parts\n' "$1" "$(du -ch "${parts[@]}" | tail -1 | cut -f1)" "${#parts[@]}"
  timed "unzip -q -d (both parts)" bash -c \
    "for p in ${parts[*]}; do unzip -q -o -d '$dir/unzipped' \"\$p\"; done; sync -f '$dir'"
  local unzip_s
  unzip_s=$(cat "$work/last")
  timed "quillmere-cli repair" bash -c \
    "'$cli' repair --quiet --out '$dir/repaired' ${parts[*]} && sync -f '$dir'"
  grep -E 'files fixed|need a look' "$work/out" | sed 's/^/    /' || cat "$work/err"
  printf '  repair / unzip: %.2f\n\n' "$(echo "$(cat "$work/last") / $unzip_s" | bc -l)"
}

compare "synthetic export, ${REPAIR_BENCH_FILES:-20000} files" --files "${REPAIR_BENCH_FILES:-20000}"
if [ "${REPAIR_BENCH_HUGE:-1}" = 1 ]; then
  compare "synthetic export, 100000 files" --files 100000
fi
if [ "${REPAIR_BENCH_LARGE:-1}" = 1 ]; then
  compare "camera-sized export, 1000 files" --files 1000 --photo-kb 2000 --video-kb 15000
fi
