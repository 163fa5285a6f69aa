#ifndef QUILLMERE_CORE_METADATA_VIDEO_TRACK_SIZE_H_
#define QUILLMERE_CORE_METADATA_VIDEO_TRACK_SIZE_H_

#include <optional>

#include "core/metadata/movie_properties.h"
#include "core/metadata/random_access_bytes.h"

namespace quillmere::VideoTrackSize {

// The size its track header ("tkhd") gives the first video track of a QuickTime or MP4 movie:
// the natural size a player shows, before rotation, whatever the codec. Absent when the movie
// has no readable "moov" (at most 64 MiB), no video track, or a header of width or height 0.
std::optional<MovieProperties::Size> read(const RandomAccessBytes& movie);

}  // namespace quillmere::VideoTrackSize

#endif  // QUILLMERE_CORE_METADATA_VIDEO_TRACK_SIZE_H_
