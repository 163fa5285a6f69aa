#include "core/metadata/video_track_size.h"

#include "core/metadata/iso_box.h"

namespace quillmere::VideoTrackSize {
namespace {

using IsoBox::fourCC;

constexpr std::uint64_t kMaxMovieBox = 64 << 20;
constexpr int kMaxTopLevelBoxes = 1024;
constexpr double kFixed16 = 65536.0;

std::optional<IsoBox::Box> child(std::span<const std::uint8_t> payload, std::uint32_t type) {
  for (const IsoBox::Box& box : IsoBox::childBoxes(payload)) {
    if (box.type == type) return box;
  }
  return std::nullopt;
}

bool isVideoTrack(std::span<const std::uint8_t> track) {
  const std::optional<IsoBox::Box> media = child(track, fourCC("mdia"));
  if (!media) return false;
  const std::optional<IsoBox::Box> handler = child(media->payload, fourCC("hdlr"));
  if (!handler) return false;
  IsoBox::Cursor cursor(handler->payload);
  cursor.skip(8);  // version and flags, pre_defined
  return cursor.u32() == fourCC("vide") && cursor.ok();
}

std::optional<MovieProperties::Size> headerSize(std::span<const std::uint8_t> track) {
  const std::optional<IsoBox::Box> header = child(track, fourCC("tkhd"));
  if (!header) return std::nullopt;
  IsoBox::Cursor cursor(header->payload);
  const std::uint8_t version = cursor.u8();
  cursor.skip(3);                       // flags
  cursor.skip(version == 1 ? 32 : 20);  // times, track ID, reserved, duration
  cursor.skip(8 + 2 + 2 + 2 + 2 + 36);  // reserved, layer, group, volume, reserved, matrix
  const std::uint32_t width = cursor.u32();
  const std::uint32_t height = cursor.u32();
  if (!cursor.ok() || width == 0 || height == 0) return std::nullopt;
  return MovieProperties::Size{width / kFixed16, height / kFixed16};
}

}  // namespace

std::optional<MovieProperties::Size> read(const RandomAccessBytes& movie) {
  const std::optional<Bytes> moov =
      IsoBox::topLevelPayload(movie, fourCC("moov"), kMaxMovieBox, kMaxTopLevelBoxes);
  if (!moov) return std::nullopt;
  for (const IsoBox::Box& box : IsoBox::childBoxes(*moov)) {
    if (box.type == fourCC("trak") && isVideoTrack(box.payload)) return headerSize(box.payload);
  }
  return std::nullopt;
}

}  // namespace quillmere::VideoTrackSize
