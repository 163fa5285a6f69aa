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

std::vector<std::string> logicalPaths(const std::vector<fs::path>& inputs, bool sorted = false) {
  std::vector<std::string> paths;
  for (const auto& file : SourceCollector::collect(inputs)) paths.push_back(file->logicalPath());
  if (sorted) std::sort(paths.begin(), paths.end());
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
  writeText(dir / "photo.jpg", "loose files are skipped");
  ZipBuilder().add("__MACOSX/a", "x").write(dir / "forks.zip");
  fs::create_symlink(dir / "photo.jpg", root / "link.jpg");
  fs::create_directory_symlink(root, root / "loop");
  const auto before = testing::snapshotTree(root);

  const std::vector<fs::path> inputs = {root, dir / "missing", root / "Takeout/part-002.ZIP",
                                        dir / "photo.jpg", dir / "forks.zip"};
  EXPECT_EQ(logicalPaths(inputs), (std::vector<std::string>{
                                      "Album/IMG_1.JPG",
                                      "Photos from 2019/IMG_1.JPG",
                                      "Trip/IMG_2.JPG",
                                      "Trip/.DS_Store",
                                      "Trip/IMG_2.JPG",  // a part given again is collected again
                                      "Trip/.DS_Store",
                                  }));
  const auto files = SourceCollector::collect({root});
  EXPECT_EQ(files[0]->localURL(), root / "Takeout/Google Photos/Album/IMG_1.JPG");
  EXPECT_EQ(files[2]->displayLocation(),
            "part-002.ZIP \u203A Takeout/Google Photos/Trip/IMG_2.JPG");
  EXPECT_EQ(files[2]->localURL(), std::nullopt);
  EXPECT_EQ(testing::snapshotTree(root), before);
}

TEST(SourceCollectorTest, ZippedAndUnzippedExportsGiveTheSamePaths) {
  TempDir dir;
  ZipBuilder builder;
  for (const char* e : {"Takeout/Google Photos/Photos from 2020/a.jpg",
                        "Takeout/Google Photos/Photos from 2020/a.jpg.json",
                        "Takeout/Google Photos/Urlaub/metadata.json"}) {
    writeText(dir / "unzipped" / e, e);
    builder.add(e, e);
  }
  builder.write(dir / "takeout-001.zip");
  // Whichever folder level is chosen.
  for (const char* chosen : {"unzipped", "unzipped/Takeout", "unzipped/Takeout/Google Photos"}) {
    SCOPED_TRACE(chosen);
    EXPECT_EQ(logicalPaths({dir / chosen}, true), logicalPaths({dir / "takeout-001.zip"}, true));
  }
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

TEST(SourceFileTest, ReadsAndCopiesAndFailedCopiesLeaveNothingBehind) {
  TempDir dir;
  writeText(dir / "export/plain.jpg", "plain content");
  Bytes zip =
      ZipBuilder().add("T/good.jpg", "zip content", 0).add("T/bad.jpg", "0123456789", 0).build();
  zip[30 + 10 + 11 + 30 + 9 + 9] ^= 0x01;  // the last byte of bad.jpg
  testing::writeFile(dir / "export/part.zip", zip);
  const auto before = testing::snapshotTree(dir / "export");
  const auto files = SourceCollector::collect({dir / "export"});
  ASSERT_EQ(files.size(), 3u);
  const SourceFilePtr &good = files[0], &bad = files[1], &plain = files[2];
  for (const SourceFilePtr& file : {good, plain}) {
    SCOPED_TRACE(file->logicalPath());
    const Bytes all = file->readAll();
    file->copy(dir / file->fileName());
    EXPECT_EQ(testing::readFile(dir / file->fileName()), all);
    EXPECT_EQ(file->readPrefix(3), Bytes(all.begin(), all.begin() + 3));
    EXPECT_EQ(file->readPrefix(1000), all);
  }
  // A prefix read never verifies, so a damaged entry still yields its head.
  EXPECT_EQ(bad->readPrefix(4), toBytes("0123"));
  EXPECT_THROW(bad->readAll(), QuillmereError);
  EXPECT_THROW(bad->copy(dir / "out.jpg"), QuillmereError);
  EXPECT_FALSE(fs::exists(dir / "out.jpg"));
  const fs::path missingParent = dir / "no/such/folder/x.jpg";
  try {
    good->copy(missingParent);
    FAIL() << "expected cannotCreate";
  } catch (const QuillmereError& error) {
    EXPECT_EQ(std::string(error.what()), "Couldn't create " + missingParent.string() + ".");
  }
  // An existing destination is never overwritten, by either kind of file.
  EXPECT_THROW(good->copy(dir / "plain.jpg"), QuillmereError);
  EXPECT_THROW(plain->copy(dir / "good.jpg"), fs::filesystem_error);
  EXPECT_EQ(testing::readFile(dir / "good.jpg"), toBytes("zip content"));
  EXPECT_EQ(testing::snapshotTree(dir / "export"), before);
}

TEST(SourceFileTest, ReadsFollowTheContentNotTheListedSize) {
  TempDir dir;
  // A zip entry longer than its directory says is damage, yet its head can be read.
  ZipBuilder().add("a.txt", std::string(5000, 'a')).write(dir / "lying.zip");
  auto archive = std::make_shared<const ZipArchive>(dir / "lying.zip");
  ZipArchive::Entry entry = archive->entries()[0];
  entry.uncompressedSize = 100;
  const ZipEntryFile lying(archive, entry, "a.txt");
  EXPECT_THROW(lying.readAll(), QuillmereError);
  EXPECT_EQ(lying.readPrefix(50).size(), 50u);
  // A plain file that grew or shrank since it was listed is read as it is now.
  testing::writeFile(dir / "grown.jpg", Bytes(3 << 20, 'x'));
  const struct {
    std::int64_t listedSize;
    std::size_t count, expected;
  } cases[] = {
      {10, 5, 5}, {10, 2 << 20, 2 << 20}, {3 << 20, 5 << 20, 3 << 20}, {0, 1 << 20, 1 << 20}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.count);
    EXPECT_EQ(FolderFile(dir / "grown.jpg", "grown.jpg", c.listedSize).readPrefix(c.count).size(),
              c.expected);
  }
}

}  // namespace
}  // namespace quillmere
