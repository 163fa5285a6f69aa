#include "core/dates/resource_folder.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>

#include "core/dates/time_zone_map.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;

// Sets or clears QUILLMERE_RESOURCES for one test, restoring what was there.
class ResourcesVariable {
 public:
  explicit ResourcesVariable(const char* value) {
    if (const char* old = getenv(kName)) old_ = old;
    if (value) {
      setenv(kName, value, 1);
    } else {
      unsetenv(kName);
    }
  }
  ~ResourcesVariable() {
    if (old_) {
      setenv(kName, old_->c_str(), 1);
    } else {
      unsetenv(kName);
    }
  }

 private:
  static constexpr const char* kName = "QUILLMERE_RESOURCES";
  std::optional<std::string> old_;
};

TEST(ResourceFolderTest, TheOverrideComesFirst) {
  ResourcesVariable variable("/somewhere/else");
  EXPECT_EQ(ResourceFolder::candidates().front(), fs::path("/somewhere/else"));
}

TEST(ResourceFolderTest, WithoutOverrideABuildFindsTheSourceTreesResources) {
  ResourcesVariable variable(nullptr);
  const std::vector<fs::path> folders = ResourceFolder::candidates();
  const fs::path source = fs::path(QUILLMERE_SOURCE_DIR) / "resources";
  EXPECT_NE(std::find(folders.begin(), folders.end(), source.lexically_normal()), folders.end());
  const std::optional<fs::path> found = ResourceFolder::firstExisting(folders);
  ASSERT_TRUE(found.has_value());
  EXPECT_TRUE(fs::equivalent(*found, source)) << *found;
  EXPECT_TRUE(fs::equivalent(ResourceFolder::locate(), source));
}

TEST(ResourceFolderTest, FirstExistingSkipsMissingFoldersAndFiles) {
  testing::TempDir dir;
  fs::create_directory(dir / "second");
  testing::writeFile(dir / "file", testing::toBytes("not a folder"));
  EXPECT_EQ(
      ResourceFolder::firstExisting({dir / "missing", dir / "file", dir / "second", dir.path()}),
      dir / "second");
  EXPECT_EQ(ResourceFolder::firstExisting({dir / "missing", dir / "file"}), std::nullopt);
  EXPECT_EQ(ResourceFolder::firstExisting({}), std::nullopt);
}

TEST(ResourceFolderTest, TheShippedGridAndItsNoticeAreInTheFolder) {
  ResourcesVariable variable(nullptr);
  const fs::path folder = ResourceFolder::locate();
  EXPECT_TRUE(fs::is_regular_file(folder / TimeZoneMap::kFileName));
  const Bytes notice = testing::readFile(folder / "tzgrid-NOTICE.txt");
  const std::string text(notice.begin(), notice.end());
  for (const char* needed : {"OpenStreetMap contributors", "ODbL", "Open Database License",
                             "timezones-1970", "Evan Siroky"}) {
    SCOPED_TRACE(needed);
    EXPECT_NE(text.find(needed), std::string::npos);
  }
}

}  // namespace
}  // namespace quillmere
