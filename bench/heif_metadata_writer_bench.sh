#!/usr/bin/env bash
# Writing date, offset, place, caption and keywords into 1,000 HEIC photos of 12 megapixels
# (4032x3024, as a phone takes them), against exiftool doing the same in one batch process, in
# the same run, page cache warm and no writes pending before each timed run:
# 1. into the photos themselves, as the repair writes its working copies: the rewriter in
#    process on its own copies, `exiftool -overwrite_original` on another set of copies;
# 2. each into a new copy: the rewriter in process, `exiftool -o` per photo (`-@ ARGFILE`).
# PHOTOS changes the count.
set -euo pipefail
cli=${1:?usage: heif_metadata_writer_bench.sh PATH-TO-quillmere-cli}
cli="$(cd "$(dirname "$cli")" && pwd)/$(basename "$cli")"
bench="$(dirname "$(dirname "$cli")")/bench/heif_metadata_writer_bench"
photos=${PHOTOS:-1000}
work=$(mktemp -d "${TMPDIR:-/tmp}/quillmere-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT

# One photo with grain, so that it is as large as a phone's, carrying the Exif a camera writes.
convert -size 4032x3024 -seed 1 gradient:'#d08030-#3050a0' -attenuate 0.15 +noise Gaussian \
  "$work/base.png"
heif-enc -p preset=ultrafast -q 70 -o "$work/base.heic" "$work/base.png"
exiftool -q -q -overwrite_original -Make=Quillmere -Model=Bench -Orientation#=1 \
  -DateTimeOriginal="2020:01:01 12:00:00" -XMP-dc:Subject=Old "$work/base.heic"
size=$(stat -c %s "$work/base.heic")

# The same tags as the rewriter writes, for exiftool.
tags=(-DateTimeOriginal="2021:03:04 10:05:00" -CreateDate="2021:03:04 10:05:00"
  -OffsetTimeOriginal=+02:00 -OffsetTimeDigitized=+02:00
  -XMP-photoshop:DateCreated="2021-03-04T10:05:00+02:00"
  -GPSLatitude=48.8577 -GPSLatitudeRef=N -GPSLongitude=2.2945 -GPSLongitudeRef=E
  -GPSAltitude=35 -GPSAltitudeRef=0 -ImageDescription="Tour Eiffel"
  -XMP-dc:Description="Tour Eiffel" -XMP-dc:Subject+=Paris -XMP-dc:Subject+="Trip 2021")

copies() {
  mkdir -p "$1"
  for n in $(seq 0 $((photos - 1))); do cp "$work/base.heic" "$1/IMG_$n.HEIC"; done
}
seconds() { local s; s=$(date +%s.%N); "$@" > /dev/null 2>&1; echo "$(date +%s.%N) $s" | awk '{print $1 - $2}'; }
rate() { awk -v n="$1" -v s="$2" 'BEGIN {printf "%.0f", n / s}'; }
# Photos written with the new date, by exiftool's reading.
dated() { exiftool -q -q -if '$DateTimeOriginal eq "2021:03:04 10:05:00"' -p '$FileName' "$1" | wc -l; }
# Each timed run starts with its photos in the page cache and no unwritten data pending: the
# copies made above (and the runs before) would otherwise throttle whichever run comes next.
ready() { cat "$@" > /dev/null; sync; }
report() {  # label, our seconds, exiftool's seconds, exiftool's label
  printf '%s\n' "$1"
  printf '  %-30s %7.2f s  %6s files/s\n' "quillmere (in process):" "$2" "$(rate "$photos" "$2")"
  printf '  %-30s %7.2f s  %6s files/s\n' "$4:" "$3" "$(rate "$photos" "$3")"
  printf '  speed ratio (quillmere / exiftool): %.1fx  (target >= 10x)\n' \
    "$(awk -v a="$3" -v b="$2" 'BEGIN {print a / b}')"
}

echo "photos: $photos HEIC of $(awk -v s="$size" 'BEGIN {printf "%.1f", s / 1e6}') MB, 12 MP"

# 1. Into the photos themselves.
copies "$work/in-place/ours"
copies "$work/in-place/exiftool"
{ printf '%s\n' -overwrite_original "${tags[@]}"; printf '%s\n' "$work"/in-place/exiftool/*; } \
  > "$work/in-place.args"
ready "$work"/in-place/ours/*
ours=$(seconds env QUILLMERE_BENCH_HEIC_IN_PLACE="$work/in-place/ours" "$bench" \
  --benchmark_filter=BM_WriteHeicInPlace)
ready "$work"/in-place/exiftool/*
exiftool_s=$(seconds exiftool -q -q -@ "$work/in-place.args")
echo "written with the new date: quillmere $(dated "$work/in-place/ours"), exiftool $(dated "$work/in-place/exiftool")"
report "writing into $photos photos" "$ours" "$exiftool_s" "exiftool -overwrite_original"
rm -rf "$work/in-place"

# 2. Each into a new copy.
copies "$work/photos"
mkdir -p "$work/exiftool"
for file in "$work"/photos/*; do
  printf '%s\n' "${tags[@]}" -o "$work/exiftool/$(basename "$file")" "$file" -execute
done > "$work/copies.args"
ready "$work"/photos/*
ours=$(seconds env QUILLMERE_BENCH_HEIC="$work/photos" "$bench" --benchmark_filter='^BM_WriteHeic/')
sync
exiftool_s=$(seconds exiftool -q -q -@ "$work/copies.args")
echo "exiftool wrote $(find "$work/exiftool" -type f | wc -l) copies"
report "writing $photos new copies" "$ours" "$exiftool_s" "exiftool -o (argfile)"
