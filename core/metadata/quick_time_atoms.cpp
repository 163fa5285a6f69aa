#include "core/metadata/quick_time_atoms.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <system_error>

#include "core/sources/file_io.h"

namespace quillmere::QuickTimeAtoms {
namespace {

// Closes the descriptor with the object; a failure to close is ignored, as nothing is buffered.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

[[noreturn]] void throwErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Up to `count` bytes at `offset`; fewer only at the end of the file.
std::size_t readAt(int descriptor, std::uint64_t offset, std::uint8_t* into, std::size_t count) {
  return FileIO::preadAll(descriptor, {into, count}, offset, "Couldn't read the movie");
}

void writeAt(int descriptor, std::uint64_t offset, const std::uint8_t* from, std::size_t count) {
  FileIO::pwriteAll(descriptor, {from, count}, offset, "Couldn't write the movie");
}

std::uint64_t bigEndian(const std::uint8_t* bytes, int width) {
  std::uint64_t value = 0;
  for (int i = 0; i < width; ++i) value = (value << 8) | bytes[i];
  return value;
}

}  // namespace

std::optional<Atom> find(std::string_view type, int descriptor, std::uint64_t from,
                         std::uint64_t to) {
  std::uint64_t position = from;
  while (position <= to && to - position >= 8) {
    std::array<std::uint8_t, 16> header{};
    const std::size_t got = readAt(descriptor, position, header.data(), header.size());
    if (got < 8) return std::nullopt;
    const std::uint64_t size32 = bigEndian(header.data(), 4);
    Atom atom{position, size32, 8};
    if (size32 == 0) {
      atom.size = to - position;
    } else if (size32 == 1) {
      if (got < 16) return std::nullopt;
      atom.size = bigEndian(header.data() + 8, 8);
      atom.headerLength = 16;
      if (atom.size < 16) return std::nullopt;
    } else if (size32 < 8) {
      return std::nullopt;
    }
    if (atom.size > to - position) return std::nullopt;
    if (std::string_view(reinterpret_cast<const char*>(header.data() + 4), 4) == type) {
      return atom;
    }
    position += atom.size;
  }
  return std::nullopt;
}

void setMovieCreationTime(double date, const std::filesystem::path& file) {
  Descriptor descriptor(::open(file.c_str(), O_RDWR | O_CLOEXEC));
  if (descriptor.get() < 0) throwErrno("Couldn't open the movie");
  const off_t length = ::lseek(descriptor.get(), 0, SEEK_END);
  if (length < 0) throwErrno("Couldn't read the movie");
  const std::optional<Atom> movie =
      find("moov", descriptor.get(), 0, static_cast<std::uint64_t>(length));
  if (!movie) return;
  const std::optional<Atom> header =
      find("mvhd", descriptor.get(), movie->payloadStart(), movie->end());
  if (!header) return;
  std::uint8_t version = 0;
  if (header->size - header->headerLength < 1 ||
      readAt(descriptor.get(), header->payloadStart(), &version, 1) != 1) {
    return;
  }
  const double seconds = date + static_cast<double>(kSecondsFrom1904To1970);
  // 2^64: anything from there on cannot be truncated to 64 bits.
  if (!(seconds > 0) || seconds >= 18446744073709551616.0) return;
  const auto value = static_cast<std::uint64_t>(seconds);
  const int width = version == 1 ? 8 : 4;
  if (width == 4 && value >= 0xFFFFFFFFull) return;
  // The field must lie inside the header atom, whatever the atom claims to hold.
  if (header->size - header->headerLength < 4u + width) return;
  std::array<std::uint8_t, 8> bytes{};
  for (int i = 0; i < width; ++i)
    bytes[i] = static_cast<std::uint8_t>(value >> (8 * (width - 1 - i)));
  writeAt(descriptor.get(), header->payloadStart() + 4, bytes.data(), width);
}

}  // namespace quillmere::QuickTimeAtoms
