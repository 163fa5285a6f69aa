// The file half of the QuickTime metadata rewriter: finding the movie atom and streaming the
// copy around it.
#include "core/metadata/quick_time_metadata_rewriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <random>
#include <string>

#include "core/metadata/quick_time_atom_tree.h"
#include "core/metadata/quick_time_atoms.h"
#include "core/sources/file_io.h"

namespace quillmere::QuickTimeMetadataRewriter {
namespace {

// A movie atom larger than this is not a phone's or camera's; refusing it bounds memory.
constexpr std::uint64_t kMaxMovieAtomSize = 256ull << 20;

class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  ~Descriptor() { reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return descriptor_; }
  void adopt(int descriptor) {
    reset();
    descriptor_ = descriptor;
  }
  // Closes now; false when the close reports a failed write.
  bool reset() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor < 0 || ::close(descriptor) == 0;
  }

 private:
  int descriptor_;
};

bool readFully(int descriptor, std::uint64_t offset, std::uint8_t* into, std::size_t count) {
  try {
    return FileIO::preadAll(descriptor, {into, count}, offset, "read") == count;
  } catch (const std::system_error&) {
    return false;
  }
}

bool writeFully(int descriptor, std::uint64_t offset, const std::uint8_t* from, std::size_t count) {
  try {
    FileIO::pwriteAll(descriptor, {from, count}, offset, "write");
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

bool copyRange(int source, std::uint64_t from, int target, std::uint64_t to, std::uint64_t count) {
  try {
    FileIO::copyRange(source, from, target, to, count, "copy");
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

struct MovieAtomPlace {
  std::uint64_t start = 0;
  std::uint64_t size = 0;
};

// The one moov atom among top-level atoms that must fill the file exactly.
std::optional<MovieAtomPlace> locateMovieAtom(int descriptor, std::uint64_t fileSize) {
  std::optional<MovieAtomPlace> movie;
  std::uint64_t position = 0;
  while (position < fileSize) {
    std::array<std::uint8_t, 16> header{};
    const std::uint64_t left = fileSize - position;
    if (left < 8 || !readFully(descriptor, position, header.data(), left < 16 ? 8 : 16)) {
      return std::nullopt;
    }
    std::uint64_t size = readBigEndian(header, 0, 4);
    if (size == 0) {
      size = left;
    } else if (size == 1) {
      if (left < 16) return std::nullopt;
      size = readBigEndian(header, 8, 8);
      if (size < 16) return std::nullopt;
    } else if (size < 8) {
      return std::nullopt;
    }
    if (size > left) return std::nullopt;  // the file ends inside this atom
    if (readBigEndian(header, 4, 4) == fourCC("moov")) {
      if (movie) return std::nullopt;
      movie = MovieAtomPlace{position, size};
    }
    position += size;
  }
  return movie;
}

// A new file beside `destination`, named so no two writers meet and hidden while it grows.
std::optional<std::filesystem::path> createTemporary(const std::filesystem::path& destination,
                                                     Descriptor& descriptor) {
  std::random_device seed;
  std::mt19937_64 random(seed());
  for (int attempt = 0; attempt < 16; ++attempt) {
    std::filesystem::path candidate = destination;
    candidate.replace_filename("." + destination.filename().string() + ".quillmere-" +
                               std::to_string(random() % 1000000007u) + ".tmp");
    const int created = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (created >= 0) {
      descriptor.adopt(created);
      return candidate;
    }
    if (errno != EEXIST) return std::nullopt;
  }
  return std::nullopt;
}

bool writeCopy(int source, std::uint64_t fileSize, const MovieAtomPlace& movie,
               const Bytes& newMovie, int target) {
  const std::uint64_t afterMovie = movie.start + movie.size;
  return copyRange(source, 0, target, 0, movie.start) &&
         writeFully(target, movie.start, newMovie.data(), newMovie.size()) &&
         copyRange(source, afterMovie, target, movie.start + newMovie.size(),
                   fileSize - afterMovie);
}

}  // namespace

bool rewrite(const QuickTimeMetadataEdit& edit, const std::filesystem::path& source,
             const std::filesystem::path& destination) {
  Descriptor input(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (input.get() < 0 || ::fstat(input.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  // Renaming the copy over its own source would change the source.
  std::error_code sameError;
  if (std::filesystem::equivalent(source, destination, sameError)) return false;
  const auto fileSize = static_cast<std::uint64_t>(status.st_size);
  const std::optional<MovieAtomPlace> movie = locateMovieAtom(input.get(), fileSize);
  if (!movie || movie->size > kMaxMovieAtomSize) return false;
  Bytes movieAtom(static_cast<std::size_t>(movie->size));
  if (!readFully(input.get(), movie->start, movieAtom.data(), movieAtom.size())) return false;
  const std::optional<Bytes> newMovie = rewriteMovieAtom(movieAtom, movie->start, edit);
  if (!newMovie) return false;
  movieAtom = Bytes();

  Descriptor output;
  const std::optional<std::filesystem::path> temporary = createTemporary(destination, output);
  if (!temporary) return false;
  bool written = writeCopy(input.get(), fileSize, *movie, *newMovie, output.get());
  written = output.reset() && written;
  if (written && edit.creationTime) {
    // The items already carry the date; a header that can't take it is no reason to fail.
    try {
      QuickTimeAtoms::setMovieCreationTime(*edit.creationTime, *temporary);
    } catch (const std::system_error&) {
    }
  }
  if (!written || ::rename(temporary->c_str(), destination.c_str()) != 0) {
    ::unlink(temporary->c_str());
    return false;
  }
  return true;
}

}  // namespace quillmere::QuickTimeMetadataRewriter
