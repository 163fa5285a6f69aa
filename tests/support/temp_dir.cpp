#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

namespace quillmere::testing {

const TempDir& processScratch() {
  static const TempDir dir;
  return dir;
}

namespace {

std::string sha256OfFile(const std::filesystem::path& path) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                  EVP_MD_CTX_free);
  EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr);
  std::ifstream file(path, std::ios::binary);
  std::vector<char> buffer(1 << 20);
  while (file) {
    file.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    EVP_DigestUpdate(context.get(), buffer.data(), static_cast<std::size_t>(file.gcount()));
  }
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(context.get(), digest, &length);
  static constexpr char kHex[] = "0123456789abcdef";
  std::string hex;
  for (unsigned int i = 0; i < length; ++i) {
    hex += kHex[digest[i] >> 4];
    hex += kHex[digest[i] & 15];
  }
  return hex;
}

}  // namespace

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quillmere-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(path_, ignored);
}

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::map<std::string, std::string> snapshotTree(const std::filesystem::path& root) {
  std::map<std::string, std::string> snapshot;
  for (const auto& item : std::filesystem::recursive_directory_iterator(root)) {
    const std::string key = std::filesystem::relative(item.path(), root).string();
    snapshot[key] = item.is_directory() ? "dir" : sha256OfFile(item.path());
  }
  return snapshot;
}

std::filesystem::path onlyEntry(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> entries;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    entries.push_back(entry.path());
  }
  EXPECT_EQ(entries.size(), 1u) << folder;
  return entries.size() == 1 ? entries.front() : std::filesystem::path();
}

}  // namespace quillmere::testing
