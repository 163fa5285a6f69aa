// MetadataWriter::writeVideo: the patch as QuickTime metadata items, through our own rewriter.
#include <algorithm>
#include <cctype>
#include <exception>
#include <string>

#include "core/dates/iso6709.h"
#include "core/dates/iso_date.h"
#include "core/metadata/metadata_writer.h"
#include "core/metadata/quick_time_atom_tree.h"
#include "core/metadata/quick_time_metadata_rewriter.h"

namespace quillmere::MetadataWriter {
namespace {

constexpr std::string_view kCreationDateKey = "com.apple.quicktime.creationdate";
constexpr std::string_view kLocationKey = "com.apple.quicktime.location.ISO6709";
constexpr std::string_view kDescriptionKey = "com.apple.quicktime.description";
constexpr std::string_view kKeywordsKey = "com.apple.quicktime.keywords";

bool isRewritableContainer(const std::filesystem::path& file) {
  std::string extension = file.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".mov" || extension == ".qt" || extension == ".mp4" || extension == ".m4v";
}

std::string joined(const std::vector<std::string>& keywords) {
  std::string text;
  for (const std::string& keyword : keywords) {
    if (!text.empty()) text += ", ";
    text += keyword;
  }
  return text;
}

// The items to write, and the older user-data items that state the same fact: QuickTime's
// "©day", "©xyz" and "©des" and the 3GPP place "loci" in moov/udta, and "©day", "©des" and
// "desc" in the iTunes item list there, and the mdta keys "date", "location" and "description"
// that ffmpeg writes for them. Left behind, they would give readers that keep the
// first date or place, or the last description, an old value.
QuickTimeMetadataEdit editFor(const MetadataPatch& patch) {
  QuickTimeMetadataEdit edit;
  if (patch.dateUTC) {
    edit.items.push_back({std::string(kCreationDateKey),
                          ISODate::format(*patch.dateUTC, patch.offsetSeconds.value_or(0))});
    edit.removeUserData.push_back(
        fourCC("\xA9"
               "day"));
    edit.removeKeys.push_back("date");
    edit.creationTime = patch.dateUTC;
  }
  if (patch.location) {
    edit.items.push_back({std::string(kLocationKey), ISO6709::format(*patch.location)});
    edit.removeUserData.push_back(
        fourCC("\xA9"
               "xyz"));
    edit.removeUserData.push_back(fourCC("loci"));
    edit.removeKeys.push_back("location");
  }
  if (patch.caption) {
    edit.items.push_back({std::string(kDescriptionKey), *patch.caption});
    edit.removeUserData.push_back(
        fourCC("\xA9"
               "des"));
    edit.removeUserData.push_back(fourCC("desc"));
    edit.removeKeys.push_back("description");
  }
  if (!patch.addKeywords.empty()) {
    edit.items.push_back({std::string(kKeywordsKey), joined(patch.addKeywords)});
  }
  return edit;
}

}  // namespace

bool writeVideo(const MetadataPatch& patch, const std::filesystem::path& source,
                const std::filesystem::path& destination) {
  if (!isRewritableContainer(source)) return false;
  try {
    return QuickTimeMetadataRewriter::rewrite(editFor(patch), source, destination);
  } catch (const std::exception&) {
    // Out of memory or a file name the system can't take: the caller falls back to a sidecar.
    return false;
  }
}

}  // namespace quillmere::MetadataWriter
