#!/usr/bin/env bash
# Reading what photos and movies carry: 5,000 JPEG photos of about 3 MB (page cache warm) with
# `quillmere-cli inspect`, against `exiftool -fast -json` over the same files in the same run;
# then 1,000 MP4 and MOV movies; then the reader in process, with the bytes it reads per file.
# Inputs are made in a temporary folder. PHOTOS and MOVIES change the counts.
set -euo pipefail
cli=${1:?usage: metadata_reader_bench.sh PATH-TO-quillmere-cli}
cli="$(cd "$(dirname "$cli")" && pwd)/$(basename "$cli")"
bench="$(dirname "$(dirname "$cli")")/bench/embedded_metadata_reader_bench"
photos=${PHOTOS:-5000}
movies=${MOVIES:-1000}
work=$(mktemp -d "${TMPDIR:-/tmp}/quillmere-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/base" "$work/photos" "$work/movies"

# Ten different photos of about 3 MB (noise does not compress) carrying what a phone writes:
# date and offset, GPS, a description, IPTC keywords, XMP and a thumbnail.
convert -size 160x120 gradient:'#d08030-#3050a0' -quality 80 "$work/base/thumb.jpg"
for i in $(seq 0 9); do
  convert -size 2400x1700 -seed "$i" xc:gray -channel RGB +noise Random -quality 92 "$work/base/p$i.jpg"
  exiftool -q -q -overwrite_original -Make=Quillmere -Model="Bench $i" \
    -DateTimeOriginal="2021:03:0$((i + 1)) 10:05:00" -OffsetTimeOriginal=+02:00 \
    -GPSLatitude=48.8577 -GPSLatitudeRef=N -GPSLongitude=2.2945 -GPSLongitudeRef=E \
    -GPSAltitude=35 -ImageDescription="Photo $i" -IPTC:Keywords=Paris -IPTC:Keywords=bench \
    -XMP-photoshop:DateCreated="2021-03-0$((i + 1))T10:05:00+02:00" \
    "-ThumbnailImage<=$work/base/thumb.jpg" "$work/base/p$i.jpg"
done
for n in $(seq 0 $((photos - 1))); do cp "$work/base/p$((n % 10)).jpg" "$work/photos/IMG_$n.JPG"; done

# Two movies, one with its header first and one with it last, each copied half the time.
ffmpeg -v error -f lavfi -i testsrc=size=1280x720:rate=30 -t 2 -pix_fmt yuv420p -c:v libx264 \
  -preset ultrafast -metadata creation_time=2021-03-04T10:05:00Z -movflags +faststart \
  "$work/base/m0.mp4"
ffmpeg -v error -f lavfi -i testsrc=size=1280x720:rate=30 -t 2 -pix_fmt yuv420p -c:v libx264 \
  -preset ultrafast -metadata creation_time=2021-03-04T10:05:00Z "$work/base/m1.mov"
exiftool -q -q -overwrite_original -Keys:CreationDate=2021-03-04T10:05:00+0100 \
  -Keys:GPSCoordinates='48.8577, 2.2945, 35' -Keys:Description=Bench "$work/base/m0.mp4" \
  "$work/base/m1.mov"
for n in $(seq 0 $((movies - 1))); do
  if ((n % 2)); then cp "$work/base/m1.mov" "$work/movies/MOV_$n.MOV"
  else cp "$work/base/m0.mp4" "$work/movies/VID_$n.MP4"; fi
done

seconds() { local s; s=$(date +%s.%N); "$@" > /dev/null 2>&1; echo "$(date +%s.%N) $s" | awk '{print $1 - $2}'; }
best() { awk -v a="$1" -v b="$2" 'BEGIN {print (a < b) ? a : b}'; }
rate() { awk -v n="$1" -v s="$2" 'BEGIN {printf "%.0f", n / s}'; }

# Warm the page cache for both readers alike: each photo's first 256 KiB holds its metadata.
find "$work/photos" "$work/movies" -type f -print0 | xargs -0 head -q -c 262144 > /dev/null

cd "$work/photos"
ours=$(best "$(seconds "$cli" inspect -- *)" "$(seconds "$cli" inspect -- *)")
exiftool_s=$(seconds exiftool -fast -json .)
found=$("$cli" inspect -- * | grep -c '"offsetSeconds":7200' || true)
size=$(stat -c %s "$work/base/p0.jpg")
echo "photos: $photos JPEGs of $(awk -v s="$size" 'BEGIN {printf "%.1f", s / 1e6}') MB, dated with offset: $found"
printf 'quillmere-cli inspect:  %6.2f s  %6s files/s  (target >= 2000)\n' "$ours" "$(rate "$photos" "$ours")"
printf 'exiftool -fast -json:   %6.2f s  %6s files/s\n' "$exiftool_s" "$(rate "$photos" "$exiftool_s")"
printf 'speed ratio (quillmere / exiftool): %.1fx  (target >= 10x)\n' \
  "$(awk -v a="$exiftool_s" -v b="$ours" 'BEGIN {print a / b}')"

cd "$work/movies"
movie_s=$(best "$(seconds "$cli" inspect -- *)" "$(seconds "$cli" inspect -- *)")
printf 'movies: %d MP4/MOV, quillmere-cli inspect: %.2f s  %s files/s  (target >= 1000)\n' \
  "$movies" "$movie_s" "$(rate "$movies" "$movie_s")"

echo "in process (files/s as items_per_second; bytes read from disk per file):"
QUILLMERE_BENCH_PHOTOS="$work/photos" QUILLMERE_BENCH_MOVIES="$work/movies" "$bench" \
  --benchmark_min_time=1 2>/dev/null | grep -E '^BM_'
