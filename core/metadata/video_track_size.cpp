#include "core/metadata/video_track_size.h"

#include "core/metadata/iso_boxes.h"

namespace quillmere::VideoTrackSize {
namespace {

using IsoBoxes::fourCC;

constexpr std::uint64_t kMaxMovieBox = 64 << 20;
constexpr int kMaxTopLevelBoxes = 1024;
constexpr double kFixed16 = 65536.0;

std::optional<IsoBoxes::Box> child(std::span<const std::uint8_t> payload, std::uint32_t type) {
  for (const IsoBoxes::Box& box : IsoBoxes::childBoxes(payload)) {
    if (box.type == type) return box;
  }
  return std::nullopt;
}

bool isVideoTrack(std::span<const std::uint8_t> track) {
  const std::optional<IsoBoxes::Box> media = child(track, fourCC("mdia"));
  if (!media) return false;
  const std::optional<IsoBoxes::Box> handler = child(media->payload, fourCC("hdlr"));
  if (!handler) return false;
  IsoBoxes::Cursor cursor(handler->payload);
  cursor.skip(8);  // version and flags, pre_defined
  return cursor.u32() == fourCC("vide") && cursor.ok();
}

std::optional<MovieProperties::Size> headerSize(std::span<const std::uint8_t> track) {
  const std::optional<IsoBoxes::Box> header = child(track, fourCC("tkhd"));
  if (!header) return std::nullopt;
  IsoBoxes::Cursor cursor(header->payload);
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
      IsoBoxes::topLevelPayload(movie, fourCC("moov"), kMaxMovieBox, kMaxTopLevelBoxes);
  if (!moov) return std::nullopt;
  for (const IsoBoxes::Box& box : IsoBoxes::childBoxes(*moov)) {
    if (box.type == fourCC("trak") && isVideoTrack(box.payload)) return headerSize(box.payload);
  }
  return std::nullopt;
}

}  // namespace quillmere::VideoTrackSize
