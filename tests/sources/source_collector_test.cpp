#include "core/sources/source_collector.h"

#include <gtest/gtest.h>

#include "core/sources/folder_file.h"
#include "core/sources/quillmere_error.h"
#include "core/sources/zip_entry_file.h"
#include "tests/support/temp_dir.h"
#include "tests/support/zip_builder.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;
using testing::toBytes;
using testing::ZipBuilder;

void writeText(const fs::path& path, std::string_view text) {
  fs::create_directories(path.parent_path());
  testing::writeFile(path, toBytes(text));
}

std::vector<std::string> logicalPaths(const std::vector<SourceFilePtr>& files) {
  std::vector<std::string> paths;
  for (const auto& file : files) paths.push_back(file->logicalPath());
  return paths;
}

TEST(SourceCollectorTest, LogicalPathDropsWrapperFolders) {
  const struct {
    std::vector<std::string> components;
    std::string expected;
  } cases[] = {
      {{"Takeout", "Google Photos", "Photos from 2019", "IMG_1.JPG"}, "Photos from 2019/IMG_1.JPG"},
      {{"Downloads", "Takeout 2", "Google Fotos", "Urlaub", "IMG_2.JPG"}, "Urlaub/IMG_2.JPG"},
      {{"Takeout-20240101T000000Z-001", "Google Photos", "a.jpg"}, "a.jpg"},
      {{"Google Photos", "Trash", "IMG_3.JPG"}, "Trash/IMG_3.JPG"},
      {{"memories", "2021-05-01_abc-main.mp4"}, "memories/2021-05-01_abc-main.mp4"},
      {{"Takeout", "archive_browser.html"}, "Takeout/archive_browser.html"},
      {{"Takeout", "Google Photos"}, "Takeout/Google Photos"},
      {{"Google Photos"}, "Google Photos"},
      {{"Takeouts", "x", "y.jpg"}, "Takeouts/x/y.jpg"},  // not a wrapper: no space or dash
      {{"TakeoutX"}, "TakeoutX"},
      {{}, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(SourceCollector::logicalPath(c.components), c.expected);
  }
}

TEST(SourceCollectorTest, CollectsFoldersAndZipPartsInOrder) {
  TempDir dir;
  const fs::path root = dir / "export";
  writeText(root / "Takeout/Google Photos/Photos from 2019/IMG_1.JPG", "one");
  writeText(root / "Takeout/Google Photos/Photos from 2019/.hidden.jpg", "hidden");
  writeText(root / "Takeout/Google Photos/.Trash/IMG_9.JPG", "hidden folder");
  writeText(root / "Takeout/Google Photos/Album/IMG_1.JPG", "one");
  ZipBuilder()
      .add("Takeout/Google Photos/Trip/", "")
      .add("Takeout/Google Photos/Trip/IMG_2.JPG", "two")
      .add("__MACOSX/Takeout/._IMG_2.JPG", "fork")
      .add("Takeout/Google Photos/Trip/._IMG_2.JPG", "fork")
      .add("Takeout/Google Photos/Trip/.DS_Store", "finder")
      .write(root / "Takeout/part-002.ZIP");
  const auto before = testing::snapshotTree(root);

  const auto files =
      SourceCollector::collect({root, dir / "missing", root / "Takeout/part-002.ZIP"});
  EXPECT_EQ(logicalPaths(files), (std::vector<std::string>{
                                     "Album/IMG_1.JPG",
                                     "Photos from 2019/IMG_1.JPG",
                                     "Trip/IMG_2.JPG",
                                     "Trip/.DS_Store",
                                     "Trip/IMG_2.JPG",  // the part given again is collected again
                                     "Trip/.DS_Store",
                                 }));
  EXPECT_NE(dynamic_cast<const FolderFile*>(files[0].get()), nullptr);
  EXPECT_EQ(files[2]->displayLocation(),
            "part-002.ZIP \u203A Takeout/Google Photos/Trip/IMG_2.JPG");
  EXPECT_EQ(files[2]->fileName(), "IMG_2.JPG");
  EXPECT_EQ(files[2]->logicalDirectory(), "Trip");
  EXPECT_EQ(files[2]->readAll(), toBytes("two"));
  EXPECT_FALSE(files[2]->localURL().has_value());
  EXPECT_EQ(files[0]->localURL(), root / "Takeout/Google Photos/Album/IMG_1.JPG");
  EXPECT_EQ(testing::snapshotTree(root), before);
}

TEST(SourceCollectorTest, ZippedAndUnzippedExportsGiveTheSamePaths) {
  TempDir dir;
  const std::vector<std::string> entries = {"Takeout/Google Photos/Photos from 2020/a.jpg",
                                            "Takeout/Google Photos/Photos from 2020/a.jpg.json",
                                            "Takeout/Google Photos/Urlaub/metadata.json"};
  ZipBuilder builder;
  for (const auto& e : entries) {
    writeText(dir / "unzipped" / e, e);
    builder.add(e, e);
  }
  builder.write(dir / "takeout-001.zip");
  auto sorted = [](std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
  };
  EXPECT_EQ(sorted(logicalPaths(SourceCollector::collect({dir / "unzipped"}))),
            sorted(logicalPaths(SourceCollector::collect({dir / "takeout-001.zip"}))));
  // Choosing the Takeout folder itself, or the product folder, gives the same paths too.
  EXPECT_EQ(sorted(logicalPaths(SourceCollector::collect({dir / "unzipped/Takeout"}))),
            sorted(logicalPaths(SourceCollector::collect({dir / "takeout-001.zip"}))));
  EXPECT_EQ(
      sorted(logicalPaths(SourceCollector::collect({dir / "unzipped/Takeout/Google Photos"}))),
      sorted(logicalPaths(SourceCollector::collect({dir / "takeout-001.zip"}))));
}

TEST(SourceCollectorTest, SkipsLooseFilesAndLinksAndEmptyZips) {
  TempDir dir;
  writeText(dir / "photo.jpg", "loose");
  ZipBuilder().add("__MACOSX/a", "x").add("__MACOSX/b/c", "y").write(dir / "forks.zip");
  writeText(dir / "folder/real.jpg", "real");
  fs::create_symlink(dir / "photo.jpg", dir / "folder/link.jpg");
  fs::create_directory_symlink(dir / "folder", dir / "folder/loop");
  EXPECT_TRUE(SourceCollector::collect({dir / "photo.jpg", dir / "forks.zip"}).empty());
  EXPECT_EQ(logicalPaths(SourceCollector::collect({dir / "folder"})),
            std::vector<std::string>{"real.jpg"});
}

TEST(SourceCollectorTest, ADamagedZipFailsTheWholeCollection) {
  TempDir dir;
  writeText(dir / "export/a.jpg", "fine");
  writeText(dir / "export/nested/part.zip", "not really a zip, just text");
  try {
    SourceCollector::collect({dir / "export"});
    FAIL() << "expected notAZip";
  } catch (const QuillmereError& error) {
    EXPECT_STREQ(error.what(), "part.zip isn't a zip file.");
  }
}

class SourceFileCopyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeText(dir_ / "export/plain.jpg", "plain content");
    Bytes damaged =
        ZipBuilder().add("T/good.jpg", "zip content", 0).add("T/bad.jpg", "0123456789", 0).build();
    damaged[30 + 10 + 11 + 30 + 9 + 9] ^= 0x01;  // the last byte of bad.jpg
    testing::writeFile(dir_ / "export/part.zip", damaged);
    files_ = SourceCollector::collect({dir_ / "export"});
    ASSERT_EQ(files_.size(), 3u);
    before_ = testing::snapshotTree(dir_ / "export");
  }
  void TearDown() override { EXPECT_EQ(testing::snapshotTree(dir_ / "export"), before_); }

  TempDir dir_;
  std::vector<SourceFilePtr> files_;
  std::map<std::string, std::string> before_;
};

TEST_F(SourceFileCopyTest, CopiesAndReadsPrefixes) {
  const auto& [bad, good, plain] = std::tie(files_[1], files_[0], files_[2]);
  ASSERT_EQ(plain->logicalPath(), "plain.jpg");
  for (const SourceFilePtr& file : {good, plain}) {
    SCOPED_TRACE(file->logicalPath());
    const fs::path copy = dir_ / ("copy-" + file->fileName());
    file->copy(copy);
    EXPECT_EQ(testing::readFile(copy), file->readAll());
    const Bytes all = file->readAll();
    EXPECT_EQ(file->readPrefix(3), Bytes(all.begin(), all.begin() + 3));
    EXPECT_EQ(file->readPrefix(1000), all);
    EXPECT_TRUE(file->readPrefix(0).empty());
  }
  // A prefix read never verifies, so a damaged entry still yields its head.
  EXPECT_EQ(bad->readPrefix(4), toBytes("0123"));
}

TEST_F(SourceFileCopyTest, FailedCopiesLeaveNothingBehind) {
  const SourceFilePtr& bad = files_[1];
  const fs::path target = dir_ / "out.jpg";
  EXPECT_THROW(bad->copy(target), QuillmereError);
  EXPECT_FALSE(fs::exists(target));
  EXPECT_THROW(bad->readAll(), QuillmereError);

  const fs::path missingParent = dir_ / "no/such/folder/x.jpg";
  try {
    files_[0]->copy(missingParent);
    FAIL() << "expected cannotCreate";
  } catch (const QuillmereError& error) {
    EXPECT_EQ(std::string(error.what()), "Couldn't create " + missingParent.string() + ".");
  }
  // An existing destination is never overwritten, by either kind of file.
  writeText(dir_ / "existing.jpg", "keep me");
  EXPECT_THROW(files_[0]->copy(dir_ / "existing.jpg"), QuillmereError);
  EXPECT_THROW(files_[2]->copy(dir_ / "existing.jpg"), fs::filesystem_error);
  EXPECT_EQ(testing::readFile(dir_ / "existing.jpg"), toBytes("keep me"));
}

TEST(ZipEntryFileTest, ContentLongerThanTheDirectorySaysIsDamage) {
  TempDir dir;
  ZipBuilder().add("a.txt", std::string(5000, 'a')).write(dir / "lying.zip");
  auto archive = std::make_shared<const ZipArchive>(dir / "lying.zip");
  ZipArchive::Entry entry = archive->entries()[0];
  entry.uncompressedSize = 100;
  const ZipEntryFile file(archive, entry, "a.txt");
  EXPECT_THROW(file.readAll(), QuillmereError);
  EXPECT_EQ(file.readPrefix(50).size(), 50u);
}

}  // namespace
}  // namespace quillmere

namespace quillmere {
namespace {

TEST(FolderFileTest, PrefixReadsFollowTheFileNotItsListedSize) {
  testing::TempDir dir;
  const Bytes content(3 << 20, 'x');
  testing::writeFile(dir / "grown.jpg", content);
  const struct {
    std::int64_t listedSize;
    std::size_t count;
    std::size_t expected;
  } cases[] = {
      {10, 5, 5},                      // listed larger than asked
      {10, 2 << 20, 2 << 20},          // grown since listing
      {3 << 20, 5 << 20, 3 << 20},     // asked for more than there is
      {0, 1 << 20, 1 << 20},           // size unknown when listed
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.count);
    const FolderFile file(dir / "grown.jpg", "grown.jpg", c.listedSize);
    EXPECT_EQ(file.readPrefix(c.count).size(), c.expected);
  }
}

}  // namespace
}  // namespace quillmere
