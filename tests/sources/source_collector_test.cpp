#include "core/sources/source_collector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

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

// The logical paths collected from `inputs`, in order.
std::string logicalPaths(const std::vector<fs::path>& inputs) {
  std::string paths;
  for (const auto& file : SourceCollector::collect(inputs)) {
    paths += file->logicalPath();
    paths += "; ";
  }
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
      {{"Takeouts", "x", "y.jpg"}, "Takeouts/x/y.jpg"},  // not a wrapper: no space or dash
      {{}, ""},
  };
  for (const auto& c : cases) EXPECT_EQ(SourceCollector::logicalPath(c.components), c.expected);
}

TEST(SourceCollectorTest, CollectsReadsAndCopiesFoldersAndZipParts) {
  TempDir dir;
  const fs::path root = dir / "export", photos = root / "Takeout/Google Photos";
  writeText(photos / "Trip/IMG_2.JPG", "plain content");
  writeText(photos / "Trip/.hidden.jpg", "hidden");
  writeText(photos / ".Trash/IMG_9.JPG", "hidden folder");
  const std::string trip = "Takeout/Google Photos/Trip/";
  ZipBuilder()
      .add(trip, "")
      .add(trip + "IMG_2.JPG", "zip content", 0)
      .add("__MACOSX/Takeout/._IMG_2.JPG", "fork")
      .add(trip + "._IMG_2.JPG", "fork")
      .add({.name = toBytes(trip + "bad.jpg"), .content = toBytes("0123456789"), .crc = 1})
      .write(photos / "part-002.ZIP");
  writeText(dir / "photo.jpg", "loose files are skipped");
  ZipBuilder().add("__MACOSX/a", "x").write(dir / "forks.zip");
  fs::create_symlink(dir / "photo.jpg", photos / "link.jpg");
  fs::create_directory_symlink(root, photos / "loop");
  const auto before = testing::snapshotTree(root);
  const std::string paths = "Trip/IMG_2.JPG; Trip/IMG_2.JPG; Trip/bad.jpg; ";
  // Whichever folder level is chosen; a part given again is collected again.
  for (const fs::path& chosen : {root, root / "Takeout", photos}) {
    EXPECT_EQ(logicalPaths({chosen, dir / "missing", dir / "photo.jpg", dir / "forks.zip"}), paths);
  }
  EXPECT_EQ(logicalPaths({root, photos / "part-002.ZIP"}),
            paths + "Trip/IMG_2.JPG; Trip/bad.jpg; ");

  const auto files = SourceCollector::collect({root});
  const SourceFilePtr &plain = files[0], &good = files[1], &bad = files[2];
  EXPECT_EQ(plain->localURL(), photos / "Trip/IMG_2.JPG");
  EXPECT_EQ(good->displayLocation(), "part-002.ZIP \u203A Takeout/Google Photos/Trip/IMG_2.JPG");
  EXPECT_EQ(good->localURL(), std::nullopt);
  for (const auto& [file, copy] : {std::pair{plain, dir / "plain"}, {good, dir / "good"}}) {
    const Bytes all = file->readAll();
    file->copy(copy);
    EXPECT_EQ(testing::readFile(copy), all);
    EXPECT_EQ(file->readPrefix(3), Bytes(all.begin(), all.begin() + 3));
  }
  // A prefix read never verifies, so a damaged entry still yields its head; a failed copy
  // leaves nothing behind.
  EXPECT_EQ(bad->readPrefix(4), toBytes("0123"));
  EXPECT_THROW(bad->readAll(), QuillmereError);
  EXPECT_THROW(bad->copy(dir / "out.jpg"), QuillmereError);
  EXPECT_FALSE(fs::exists(dir / "out.jpg"));
  EXPECT_THAT([&] { good->copy(dir / "no/such/x.jpg"); },
              ::testing::ThrowsMessage<QuillmereError>(
                  ::testing::StrEq("Couldn't create " + (dir / "no/such/x.jpg").string() + ".")));
  // An existing destination is never overwritten, by either kind of file.
  EXPECT_THROW(good->copy(dir / "plain"), QuillmereError);
  EXPECT_THROW(plain->copy(dir / "good"), QuillmereError);
  EXPECT_EQ(testing::readFile(dir / "good"), toBytes("zip content"));
  // Reads follow the content, not the listed size: a zip entry longer than its directory says
  // is damage, yet its head can be read; a plain file that grew is read as it is now.
  auto archive = std::make_shared<const ZipArchive>(photos / "part-002.ZIP");
  ZipArchive::Entry lying = archive->entries()[1];
  lying.uncompressedSize = 5;
  EXPECT_THROW(ZipEntryFile(archive, lying, "a.jpg").readAll(), QuillmereError);
  EXPECT_EQ(ZipEntryFile(archive, lying, "a.jpg").readPrefix(3), toBytes("zip"));
  EXPECT_EQ(FolderFile(photos / "Trip/IMG_2.JPG", "a.jpg", 3).readPrefix(99),
            toBytes("plain content"));
  EXPECT_EQ(testing::snapshotTree(root), before);
  // A part that is not a zip fails the whole collection.
  writeText(root / "nested/part.zip", "not really a zip, just text");
  EXPECT_THAT(
      [&] { SourceCollector::collect({root}); },
      ::testing::ThrowsMessage<QuillmereError>(::testing::StrEq("part.zip isn't a zip file.")));
}

TEST(SourceCollectorTest, NamesFromAZipCannotEscapeAFolderBuiltFromThem) {
  TempDir dir;
  using namespace std::string_literals;
  const std::string longName = std::string(300, 'n') + ".jpg";
  const std::tuple<std::string, std::string> kCases[] = {
      {"../../evil.jpg", "evil.jpg"},
      {"Takeout/Google Photos/Trip/../../../../x.jpg", "Trip/x.jpg"},
      {"/abs/./path.jpg", "abs/path.jpg"},
      {"a\0b.jpg"s, "a\uFFFDb.jpg"},
      {"Trip//" + longName, "Trip/" + longName},
      {"..", ""},  // nothing left: not collected
      {"", ""},
  };
  ZipBuilder zip;
  for (const auto& [name, logical] : kCases) zip.add({.name = Bytes(name.begin(), name.end())});
  zip.write(dir / "names.zip");
  const auto before = testing::snapshotTree(dir.path());
  std::vector<std::string> expected;
  for (const auto& [name, logical] : kCases) {
    if (!logical.empty()) expected.push_back(logical);
  }
  std::vector<std::string> got;
  const fs::path out = dir / "out";
  fs::create_directory(out);
  for (const SourceFilePtr& file : SourceCollector::collect({dir / "names.zip"})) {
    SCOPED_TRACE(file->logicalPath());
    got.emplace_back(file->logicalPath());
    // Whatever a name was, joining it to a folder stays in that folder.
    EXPECT_EQ((out / file->fileName()).lexically_normal().parent_path(), out);
    const fs::path joined = (out / file->logicalPath()).lexically_normal();
    EXPECT_FALSE(joined.lexically_relative(out).string().starts_with("..")) << joined;
    // A name too long for the file system fails to be created; it never lands elsewhere.
    if (file->fileName().size() > 255) {
      EXPECT_THROW(file->copy(out / file->fileName()), QuillmereError);
    } else {
      file->copy(out / file->fileName());
    }
  }
  EXPECT_EQ(got, expected);
  std::vector<std::string> written;
  for (const auto& item : fs::directory_iterator(out)) written.push_back(item.path().filename());
  std::sort(written.begin(), written.end());
  EXPECT_EQ(written, (std::vector<std::string>{"a\uFFFDb.jpg", "evil.jpg", "path.jpg", "x.jpg"}));
  fs::remove_all(out);
  EXPECT_EQ(testing::snapshotTree(dir.path()), before);
}

}  // namespace
}  // namespace quillmere
