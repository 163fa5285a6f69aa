extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
}

#include <array>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>

#include "core/dates/iso_date.h"
#include "core/metadata/movie_properties.h"
#include "core/metadata/random_access_bytes.h"
#include "core/metadata/video_track_size.h"
#include "core/sources/unicode_text.h"

namespace quillmere::MoviePropertyReader {
namespace {

// Containers a camera or phone records movies in. Anything else libavformat can open (still
// images, raw streams, playlists) is not a movie for us.
constexpr std::string_view kQuickTimeFormat = "mov,mp4,m4a,3gp,3g2,mj2";
constexpr std::array<std::string_view, 7> kMovieFormats = {
    kQuickTimeFormat, "matroska,webm", "avi", "mpegts", "mpeg", "asf", "flv",
};

void ignoreLogMessage(void*, int, const char*, va_list) {}

void prepareLibav() {
  static std::once_flag once;
  std::call_once(once, [] {
    av_log_set_level(AV_LOG_QUIET);
    av_log_set_callback(ignoreLogMessage);
  });
}

struct FormatContextCloser {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
using FormatContext = std::unique_ptr<AVFormatContext, FormatContextCloser>;

struct DictionaryFreer {
  void operator()(AVDictionary* dictionary) const { av_dict_free(&dictionary); }
};

FormatContext open(const std::filesystem::path& file) {
  AVDictionary* rawOptions = nullptr;
  // Never follow references out of the file (data references, playlists) to other files or
  // the network.
  av_dict_set(&rawOptions, "protocol_whitelist", "file", 0);
  av_dict_set(&rawOptions, "enable_drefs", "0", 0);
  std::unique_ptr<AVDictionary, DictionaryFreer> options(rawOptions);
  AVFormatContext* context = nullptr;
  // "file:" so that a name like "http:x" or "pipe:0" is still a file name.
  const std::string url = "file:" + file.string();
  rawOptions = options.release();
  const int status = avformat_open_input(&context, url.c_str(), nullptr, &rawOptions);
  options.reset(rawOptions);
  if (status < 0) return nullptr;  // avformat_open_input frees the context itself on failure
  return FormatContext(context);
}

bool isMovieFormat(const AVFormatContext& context) {
  if (context.iformat == nullptr || context.iformat->name == nullptr) return false;
  const std::string_view name = context.iformat->name;
  for (const std::string_view format : kMovieFormats) {
    if (name == format) return true;
  }
  return false;
}

std::string asUTF8(const char* text) {
  const std::string_view view(text);
  return UnicodeText::repairUTF8({reinterpret_cast<const std::uint8_t*>(view.data()), view.size()});
}

}  // namespace

std::optional<MovieProperties> readFile(const std::filesystem::path& file) {
  // Only regular files: a pipe or a device would keep the demuxer waiting or reading forever.
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) return std::nullopt;
  prepareLibav();
  const FormatContext context = open(file);
  if (context == nullptr || !isMovieFormat(*context)) return std::nullopt;
  MovieProperties movie;
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(context->metadata, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
    if (entry->key == nullptr || entry->value == nullptr) continue;
    const std::string_view key = entry->key;
    if (key == "creation_time") {
      // libavformat renders the movie header's creation time as ISO 8601 in UTC.
      if (const std::optional<ISODate::Parsed> parsed = ISODate::parse(entry->value)) {
        movie.creationDate = parsed->date;
      }
      continue;
    }
    movie.items.push_back({std::string(key), asUTF8(entry->value)});
  }
  // QuickTime and MP4 state the size in the track header, which players show whatever the codec
  // (libavformat leaves it unset for some, MPEG-4 Part 2 among them, until frames are decoded).
  if (context->iformat->name == kQuickTimeFormat) {
    if (const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inFile(file)) {
      movie.videoSize = VideoTrackSize::read(*bytes);
      if (movie.videoSize) return movie;
    }
  }
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    const AVStream* stream = context->streams[i];
    if (stream == nullptr || stream->codecpar == nullptr) continue;
    if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
    if ((stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) continue;  // cover art
    if (stream->codecpar->width > 0 && stream->codecpar->height > 0) {
      movie.videoSize = MovieProperties::Size{static_cast<double>(stream->codecpar->width),
                                              static_cast<double>(stream->codecpar->height)};
    }
    break;
  }
  return movie;
}

}  // namespace quillmere::MoviePropertyReader
