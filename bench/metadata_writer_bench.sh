#!/usr/bin/env bash
# Writing date + place + caption + 2 keywords into 1,000 different JPEGs of about 3 MB (page
# cache warm): the metadata writer in process, against exiftool writing the same tags to the
# same files in the same run, once with one exiftool process per file and once as one batch
# process (-@ argfile, one -execute per file). Each side gets its own copy of the photos.
# Inputs are made in a temporary folder. PHOTOS changes the count.
set -euo pipefail
cli=${1:?usage: metadata_writer_bench.sh PATH-TO-quillmere-cli}
cli="$(cd "$(dirname "$cli")" && pwd)/$(basename "$cli")"
bench="$(dirname "$(dirname "$cli")")/bench/metadata_writer_bench"
photos=${PHOTOS:-1000}
work=$(mktemp -d "${TMPDIR:-/tmp}/quillmere-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/base" "$work/ours" "$work/out" "$work/perfile" "$work/batch"

# Ten different photos of about 3 MB (noise does not compress) carrying what a camera writes.
for i in $(seq 0 9); do
  convert -size 2400x1700 -seed "$i" xc:gray -channel RGB +noise Random -quality 92 "$work/base/p$i.jpg"
  exiftool -q -q -overwrite_original -Make=Quillmere -Model="Bench $i" \
    -DateTimeOriginal="2021:03:0$((i + 1)) 10:05:00" -IPTC:Keywords=Paris "$work/base/p$i.jpg"
done
for n in $(seq 0 $((photos - 1))); do
  for side in ours perfile batch; do cp "$work/base/p$((n % 10)).jpg" "$work/$side/IMG_$((1000 + n)).JPG"; done
done

# The same tags as the writer's patch: each photo a second later than the one before.
tags() {
  local second=$(( $1 % 60 )) minute=$(( 5 + $1 / 60 % 60 )) hour=$(( 11 + $1 / 3600 ))
  local clock; clock=$(printf '%02d:%02d:%02d' "$hour" "$minute" "$second")
  printf '%s\n' "-DateTimeOriginal=2021:03:04 $clock" "-CreateDate=2021:03:04 $clock" \
    -OffsetTimeOriginal=+01:00 -OffsetTimeDigitized=+01:00 \
    "-XMP-photoshop:DateCreated=2021-03-04T$clock+01:00" -GPSLatitude=48.8577 \
    -GPSLatitudeRef=N -GPSLongitude=2.2945 -GPSLongitudeRef=E -GPSAltitude=35 \
    -GPSAltitudeRef=0 "-ImageDescription=Tour Eiffel, vue du Champ-de-Mars" \
    "-IPTC:Caption-Abstract=Tour Eiffel, vue du Champ-de-Mars" -IPTC:Keywords+=Trip \
    -IPTC:CodedCharacterSet=UTF8 -overwrite_original
}
n=0
for file in "$work/batch"/*.JPG; do tags "$n"; echo "$file"; echo -execute; n=$((n + 1)); done \
  > "$work/batch.args"

seconds() { local s; s=$(date +%s.%N); "$@" > /dev/null 2>&1; echo "$(date +%s.%N) $s" | awk '{print $1 - $2}'; }
rate() { awk -v n="$1" -v s="$2" 'BEGIN {printf "%.1f", n / s}'; }
perfile() {
  local n=0 file args
  for file in "$work/perfile"/*.JPG; do
    mapfile -t args < <(tags "$n")
    exiftool -q -q "${args[@]}" "$file"
    n=$((n + 1))
  done
}

find "$work/ours" "$work/perfile" "$work/batch" -type f -print0 | xargs -0 cat > /dev/null
ours_s=$(seconds env QUILLMERE_BENCH_PHOTOS="$work/ours" QUILLMERE_BENCH_OUT="$work/out" "$bench")
batch_s=$(seconds exiftool -q -q -@ "$work/batch.args")
perfile_s=$(seconds perfile)

size=$(stat -c %s "$work/base/p0.jpg")
inside=$(exiftool -q -q -if '$OffsetTimeOriginal eq "+01:00" and $Keywords =~ /Trip/' \
  -p '$FileName' "$work/out" | wc -l)
echo "photos: $photos JPEGs of $(awk -v s="$size" 'BEGIN {printf "%.1f", s / 1e6}') MB; written in place and read back by exiftool: $inside"
printf 'MetadataWriter::write:        %7.2f s  %7s files/s\n' "$ours_s" "$(rate "$photos" "$ours_s")"
printf 'exiftool, one process a file: %7.2f s  %7s files/s\n' "$perfile_s" "$(rate "$photos" "$perfile_s")"
printf 'exiftool, one batch process:  %7.2f s  %7s files/s\n' "$batch_s" "$(rate "$photos" "$batch_s")"
printf 'speed ratio against per-file exiftool: %.1fx  (target >= 20x)\n' \
  "$(awk -v a="$perfile_s" -v b="$ours_s" 'BEGIN {print a / b}')"
printf 'speed ratio against batch exiftool:    %.1fx  (target > 1x)\n' \
  "$(awk -v a="$batch_s" -v b="$ours_s" 'BEGIN {print a / b}')"
