#include "core/metadata/heif_metadata_rewriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "core/metadata/heif_container.h"
#include "core/metadata/heif_rewrite_plan.h"
#include "core/metadata/iso_box.h"

namespace quillmere::HeifMetadataRewriter {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kCopyChunk = 4 << 20;

// The Exif item as phones write it: the offset of the TIFF header after this field (6), then
// "Exif\0\0", then the TIFF bytes.
Bytes exifItem(const Bytes& tiff) {
  Bytes item = {0, 0, 0, 6, 'E', 'x', 'i', 'f', 0, 0};
  item.insert(item.end(), tiff.begin(), tiff.end());
  return item;
}

std::optional<Bytes> tiffOfExifItem(const Bytes& item) {
  IsoBox::Cursor cursor(item);
  const std::uint32_t headerOffset = cursor.u32();
  if (!cursor.ok() || headerOffset > cursor.remaining()) return std::nullopt;
  return Bytes(item.begin() + 4 + headerOffset, item.end());
}

std::optional<Bytes> xmpItem(const std::optional<std::string>& packet) {
  if (!packet) return std::nullopt;
  return Bytes(packet->begin(), packet->end());
}

bool writeAll(int descriptor, std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(descriptor, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(n));
  }
  return true;
}

bool writePieces(int descriptor, const RandomAccessBytes& source,
                 const std::vector<HeifRewritePlan::Piece>& pieces) {
  for (const HeifRewritePlan::Piece& piece : pieces) {
    if (!piece.literal.empty()) {
      if (!writeAll(descriptor, piece.literal)) return false;
      continue;
    }
    for (std::uint64_t done = 0; done < piece.length;) {
      const std::size_t count =
          static_cast<std::size_t>(std::min<std::uint64_t>(kCopyChunk, piece.length - done));
      const std::optional<Bytes> part = source.read(piece.offset + done, count);
      if (!part || !writeAll(descriptor, *part)) return false;
      done += count;
    }
  }
  return true;
}

// A new file in `destination`'s folder, removed again unless `keep` is called.
class TemporaryFile {
 public:
  explicit TemporaryFile(const fs::path& destination) {
    std::string pattern =
        (destination.parent_path() / ("." + destination.filename().string() + ".XXXXXX")).string();
    descriptor_ = ::mkstemp(pattern.data());
    if (descriptor_ >= 0) path_ = pattern;
  }
  ~TemporaryFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (!path_.empty()) ::unlink(path_.c_str());
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  int descriptor() const { return descriptor_; }
  // Closes the file and renames it to `destination`; true when both worked.
  bool keep(const fs::path& destination) {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0 || ::rename(path_.c_str(), destination.c_str()) != 0) return false;
    path_.clear();
    return true;
  }

 private:
  int descriptor_ = -1;
  std::string path_;
};

bool sameFile(const fs::path& a, const fs::path& b) {
  std::error_code error;
  return fs::exists(b, error) && fs::equivalent(a, b, error);
}

}  // namespace

bool isHeif(const fs::path& file) {
  const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inFile(file);
  if (!bytes) return false;
  const std::optional<Bytes> head = bytes->read(0, std::min<std::uint64_t>(bytes->size(), 4096));
  return head && HeifContainer::isHeif(*head);
}

std::optional<Existing> readExisting(const RandomAccessBytes& source) {
  const std::optional<HeifRewritePlan::Source> opened = HeifRewritePlan::open(source);
  if (!opened) return std::nullopt;
  const HeifRewritePlan::Selection selection = HeifRewritePlan::select(opened->meta);
  Existing existing;
  if (selection.exif) {
    if (const auto item = HeifRewritePlan::itemBytes(source, *opened, *selection.exif)) {
      existing.exifTiff = tiffOfExifItem(*item);
    }
  }
  if (selection.xmp) {
    if (const auto item = HeifRewritePlan::itemBytes(source, *opened, *selection.xmp)) {
      existing.xmp = std::string(item->begin(), item->end());
    }
  }
  return existing;
}

std::optional<Existing> readExisting(const fs::path& file) {
  const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inFile(file);
  if (!bytes) return std::nullopt;
  return readExisting(*bytes);
}

std::optional<Bytes> rewriteBytes(std::span<const std::uint8_t> source,
                                  const std::optional<Bytes>& exifTiff,
                                  const std::optional<std::string>& xmpPacket) {
  const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inMemory(source);
  const auto pieces = HeifRewritePlan::plan(
      *bytes, exifTiff ? std::optional(exifItem(*exifTiff)) : std::nullopt, xmpItem(xmpPacket));
  if (!pieces) return std::nullopt;
  Bytes out;
  for (const HeifRewritePlan::Piece& piece : *pieces) {
    if (!piece.literal.empty()) {
      out.insert(out.end(), piece.literal.begin(), piece.literal.end());
    } else {
      const auto part = source.subspan(static_cast<std::size_t>(piece.offset),
                                       static_cast<std::size_t>(piece.length));
      out.insert(out.end(), part.begin(), part.end());
    }
  }
  return out;
}

bool rewrite(const fs::path& source, const fs::path& destination,
             const std::optional<Bytes>& exifTiff, const std::optional<std::string>& xmpPacket) {
  try {
    if (sameFile(source, destination)) return false;
    const std::unique_ptr<RandomAccessBytes> bytes = RandomAccessBytes::inFile(source);
    if (!bytes) return false;
    const auto pieces = HeifRewritePlan::plan(
        *bytes, exifTiff ? std::optional(exifItem(*exifTiff)) : std::nullopt, xmpItem(xmpPacket));
    if (!pieces) return false;
    TemporaryFile temporary(destination);
    if (temporary.descriptor() < 0) return false;
    struct stat status;
    // A copy its owner may change, readable by whoever could read the original.
    if (::stat(source.c_str(), &status) != 0 ||
        ::fchmod(temporary.descriptor(), (status.st_mode & 0777) | S_IWUSR) != 0) {
      return false;
    }
    return writePieces(temporary.descriptor(), *bytes, *pieces) && temporary.keep(destination);
  } catch (const std::exception&) {
    return false;  // out of memory, or a path the file system rejects
  }
}

}  // namespace quillmere::HeifMetadataRewriter
