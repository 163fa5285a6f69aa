#include "core/scan/content_hash_cache.h"

#include <openssl/evp.h>

#include <memory>
#include <stdexcept>

namespace quillmere {

Sha256Digest sha256Of(const SourceFile& file) {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                        EVP_MD_CTX_free);
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is not available");
  }
  file.stream([&](std::span<const std::uint8_t> chunk) {
    EVP_DigestUpdate(context.get(), chunk.data(), chunk.size());
  });
  Sha256Digest digest{};
  unsigned int length = 0;
  EVP_DigestFinal_ex(context.get(), digest.data(), &length);
  return digest;
}

ContentHashCache& ContentHashCache::shared() {
  static ContentHashCache cache;
  return cache;
}

Sha256Digest ContentHashCache::digest(const SourceFile& file) {
  const std::string key = file.displayLocation();
  {
    const std::lock_guard lock(mutex_);
    if (const auto found = digests_.find(key); found != digests_.end()) return found->second;
  }
  // Hash outside the lock: other scans may look up or hash other files meanwhile.
  const Sha256Digest digest = sha256Of(file);
  const std::lock_guard lock(mutex_);
  if (const auto [added, isNew] = digests_.emplace(key, digest); isNew) {
    order_.push_back(&added->first);
    while (order_.size() > capacity_) {
      digests_.erase(digests_.find(*order_.front()));
      order_.pop_front();
    }
  }
  return digest;
}

std::size_t ContentHashCache::size() const {
  const std::lock_guard lock(mutex_);
  return digests_.size();
}

}  // namespace quillmere
