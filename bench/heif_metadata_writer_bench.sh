#!/usr/bin/env bash
# Writing date, offset, place, caption and keywords into 1,000 HEIC photos of 12 megapixels
# (4032x3024, as a phone takes them), each into a new copy: the rewriter in process against
# exiftool doing the same in one batch process (`exiftool -@ ARGFILE`), in the same run, page
# cache warm and no writes pending for both. PHOTOS changes the count.
set -euo pipefail
cli=${1:?usage: heif_metadata_writer_bench.sh PATH-TO-quillmere-cli}
cli="$(cd "$(dirname "$cli")" && pwd)/$(basename "$cli")"
bench="$(dirname "$(dirname "$cli")")/bench/heif_metadata_writer_bench"
photos=${PHOTOS:-1000}
work=$(mktemp -d "${TMPDIR:-/tmp}/quillmere-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/photos" "$work/ours" "$work/exiftool"

# One photo with grain, so that it is as large as a phone's, carrying the Exif a camera writes.
convert -size 4032x3024 -seed 1 gradient:'#d08030-#3050a0' -attenuate 0.15 +noise Gaussian \
  "$work/base.png"
heif-enc -p preset=ultrafast -q 70 -o "$work/base.heic" "$work/base.png"
exiftool -q -q -overwrite_original -Make=Quillmere -Model=Bench -Orientation#=1 \
  -DateTimeOriginal="2020:01:01 12:00:00" -XMP-dc:Subject=Old "$work/base.heic"
for n in $(seq 0 $((photos - 1))); do cp "$work/base.heic" "$work/photos/IMG_$n.HEIC"; done
size=$(stat -c %s "$work/base.heic")

# exiftool's run: the same tags, each photo written to a new file in one process.
args="$work/exiftool.args"
for file in "$work"/photos/*; do
  printf '%s\n' -DateTimeOriginal="2021:03:04 10:05:00" -CreateDate="2021:03:04 10:05:00" \
    -OffsetTimeOriginal=+02:00 -OffsetTimeDigitized=+02:00 \
    -XMP-photoshop:DateCreated="2021-03-04T10:05:00+02:00" \
    -GPSLatitude=48.8577 -GPSLatitudeRef=N -GPSLongitude=2.2945 -GPSLongitudeRef=E \
    -GPSAltitude=35 -GPSAltitudeRef=0 -ImageDescription="Tour Eiffel" \
    -XMP-dc:Description="Tour Eiffel" -XMP-dc:Subject+=Paris -XMP-dc:Subject+="Trip 2021" \
    -o "$work/exiftool/$(basename "$file")" "$file" -execute
done > "$args"

seconds() { local s; s=$(date +%s.%N); "$@" > /dev/null 2>&1; echo "$(date +%s.%N) $s" | awk '{print $1 - $2}'; }
rate() { awk -v n="$1" -v s="$2" 'BEGIN {printf "%.0f", n / s}'; }

# Both runs start with the photos in the page cache and no unwritten data pending: the copies
# made above (and each run's own output) would otherwise throttle whichever run comes next.
cat "$work"/photos/* > /dev/null
sync
ours=$(seconds env QUILLMERE_BENCH_HEIC="$work/photos" "$bench")
sync
exiftool_s=$(seconds exiftool -q -q -@ "$args")
written=$(find "$work/exiftool" -type f | wc -l)
echo "photos: $photos HEIC of $(awk -v s="$size" 'BEGIN {printf "%.1f", s / 1e6}') MB, 12 MP; exiftool wrote $written"
printf 'quillmere (in process):  %7.2f s  %6s files/s\n' "$ours" "$(rate "$photos" "$ours")"
printf 'exiftool -@ argfile:     %7.2f s  %6s files/s\n' "$exiftool_s" "$(rate "$photos" "$exiftool_s")"
printf 'speed ratio (quillmere / exiftool): %.1fx  (target >= 10x)\n' \
  "$(awk -v a="$exiftool_s" -v b="$ours" 'BEGIN {print a / b}')"
