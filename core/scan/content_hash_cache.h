#ifndef QUILLMERE_CORE_SCAN_CONTENT_HASH_CACHE_H_
#define QUILLMERE_CORE_SCAN_CONTENT_HASH_CACHE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>

#include "core/sources/source_file.h"

namespace quillmere {

using Sha256Digest = std::array<std::uint8_t, 32>;

// SHA-256 of a source file's whole content, remembered by its display location so that a
// file compared with many others is read once. One process-wide instance (shared()) serves
// every scan; it is safe for concurrent use. It keeps at most `capacity` digests and forgets
// the oldest beyond that; a forgotten digest is simply computed again.
class ContentHashCache {
 public:
  // Bounded so that a huge export's scan does not grow with it. A forgotten digest is only
  // read again when a photo has copies in albums matched far apart.
  explicit ContentHashCache(std::size_t capacity = 20'000) : capacity_(capacity) {}
  ContentHashCache(const ContentHashCache&) = delete;
  ContentHashCache& operator=(const ContentHashCache&) = delete;

  static ContentHashCache& shared();

  // The digest of `file`, from the cache or by streaming the whole content. Throws what the
  // file's read throws (a zip checksum failure among them); nothing is cached then.
  Sha256Digest digest(const SourceFile& file);

  std::size_t size() const;

 private:
  std::size_t capacity_;
  mutable std::mutex mutex_;
  std::unordered_map<std::string, Sha256Digest> digests_;
  // Insertion order, oldest first: the keys in digests_ (whose nodes never move).
  std::deque<const std::string*> order_;
};

// SHA-256 of the content streamed out of `file`, uncached.
Sha256Digest sha256Of(const SourceFile& file);

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_CONTENT_HASH_CACHE_H_
