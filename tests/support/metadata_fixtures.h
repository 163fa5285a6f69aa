#ifndef QUILLMERE_TESTS_SUPPORT_METADATA_FIXTURES_H_
#define QUILLMERE_TESTS_SUPPORT_METADATA_FIXTURES_H_

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/metadata/embedded_metadata.h"

// The photos and movies of tests/data/metadata/ (made by tools/make-metadata-fixtures with real
// tools, tagged by exiftool), each with what the reader must find in it.
namespace quillmere::testing {

struct MetadataFixture {
  std::string name;  // file name (one extension lies on purpose)
  bool movie = false;
  EmbeddedMetadata expected;
};

// Every fixture, photos first.
const std::vector<MetadataFixture>& metadataFixtures();

// exiftool's reading of every file in `folder`, by file name; read once per folder.
const std::map<std::string, nlohmann::json>& exiftoolReadings(const std::filesystem::path& folder);

// What the reading rules make of exiftool's reading of a file: EXIF, TIFF, IPTC, GPS and XMP
// values for photos; QuickTime keys, user data and the movie header for movies, with
// `movieTagOrder` (libavformat's order of the container's tags) deciding between items.
EmbeddedMetadata expectedFromExiftool(
    const nlohmann::json& tags, bool movie,
    const std::vector<std::pair<std::string, std::string>>& movieTagOrder = {});

// Compares two readings field by field, positions to 1e-7 (GPS rationals do not add up to
// the decimal degrees they were written from exactly).
void expectSameMetadata(const std::optional<EmbeddedMetadata>& actual,
                        const std::optional<EmbeddedMetadata>& expected);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_METADATA_FIXTURES_H_
