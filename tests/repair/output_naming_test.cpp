#include "core/repair/output_naming.h"

#include <gtest/gtest.h>

#include <fstream>

#include "core/repair/album_lists.h"
#include "core/repair/run_folder.h"
#include "core/sources/quillmere_error.h"
#include "tests/support/child_process.h"
#include "tests/support/scoped_environment.h"
#include "tests/support/temp_dir.h"

// Where copies and lists go and what they are called.
namespace quillmere::RepairEngine {
namespace {

using testing::TempDir;

std::string slurp(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST(UniqueNamesTest, OneNumberPerItemAndNoClashInAnyLetterCase) {
  UsedNames used;
  const std::string july = "Photos/2019/2019-07";
  EXPECT_EQ(uniqueNames({"IMG_1.JPG"}, july, used), std::vector<std::string>{"IMG_1.JPG"});
  EXPECT_EQ(uniqueNames({"img_1.jpg"}, july, used), std::vector<std::string>{"img_1 (2).jpg"});
  // A Live Photo whose still clashes takes the same number for both halves.
  EXPECT_EQ(uniqueNames({"Img_1.HEIC", "IMG_1.mov"}, july, used),
            (std::vector<std::string>{"Img_1.HEIC", "IMG_1.mov"}));
  EXPECT_EQ(uniqueNames({"IMG_1.heic", "IMG_1.MOV"}, july, used),
            (std::vector<std::string>{"IMG_1 (2).heic", "IMG_1 (2).MOV"}));
  EXPECT_EQ(uniqueNames({"IMG_1.JPG", "IMG_1.MOV"}, july, used),
            (std::vector<std::string>{"IMG_1 (3).JPG", "IMG_1 (3).MOV"}));
  // Names of one item that clash with each other; other folders are apart; Unicode case too.
  EXPECT_EQ(uniqueNames({"A.jpg", "a.JPG"}, july, used),
            (std::vector<std::string>{"A.jpg", "a (2).JPG"}));
  EXPECT_EQ(uniqueNames({"IMG_1.JPG"}, "Photos/Undated", used),
            std::vector<std::string>{"IMG_1.JPG"});
  EXPECT_EQ(uniqueNames({"\u00C4RGER.jpg"}, july, used),
            std::vector<std::string>{"\u00C4RGER.jpg"});
  EXPECT_EQ(uniqueNames({"\u00E4rger.jpg"}, july, used),
            std::vector<std::string>{"\u00E4rger (2).jpg"});
  EXPECT_EQ(uniqueNames({"README", ".hidden"}, july, used),
            (std::vector<std::string>{"README", ".hidden"}));
  EXPECT_EQ(uniqueNames({"readme", ".Hidden"}, july, used),
            (std::vector<std::string>{"readme (2)", ".Hidden (2)"}));
}

TEST(UniqueNamesTest, LongNamesAreCutInTheStemAndKeepTheirExtension) {
  UsedNames used;
  const std::string stem(246, 'x');
  const std::string name = stem + ".jpeg";  // 251 bytes: fits as it is
  ASSERT_EQ(uniqueNames({name}, "f", used), std::vector<std::string>{name});
  const auto second = uniqueNames({name}, "f", used).front();
  EXPECT_EQ(second, std::string(242, 'x') + " (2).jpeg");
  EXPECT_LE(second.size() + std::string(".xmp").size(), 255u);
  // A cut never splits a character: 'é' is two bytes in UTF-8.
  std::string accented;
  for (int i = 0; i < 123; ++i) accented += "\u00E9";
  const auto cut = uniqueNames({accented + ".jpg"}, "g", used).front();
  EXPECT_EQ(cut, accented.substr(0, 246) + ".jpg");
  const auto third = uniqueNames({accented + ".jpg"}, "g", used).front();
  EXPECT_EQ(third, accented.substr(0, 242) + " (2).jpg");
  // Two long names that differ only past the cut, or one name twice in one item, can't share
  // a number: each file gets its own.
  const auto pair =
      uniqueNames({std::string(300, 'y') + "1.png", std::string(300, 'y') + "2.png"}, "h", used);
  EXPECT_EQ(pair, (std::vector<std::string>{std::string(247, 'y') + ".png",
                                            std::string(243, 'y') + " (2).png"}));
  EXPECT_EQ(uniqueNames({"IMG.JPG", "img.jpg", "Img.Jpg"}, "h", used),
            (std::vector<std::string>{"IMG.JPG", "img (2).jpg", "Img (3).Jpg"}));
}

TEST(DatedFolderTest, TheLocalDateInTheDecidedZonePicksTheMonth) {
  // 2019-07-31 23:30 UTC is already August in Tokyo and still July in New York.
  const double instant = 1564615800;
  const struct {
    std::optional<double> utc;
    std::optional<int> offset;
    std::string folder;
  } cases[] = {
      {instant, 9 * 3600, "Photos/2019/2019-08"},     {instant, -4 * 3600, "Photos/2019/2019-07"},
      {instant, std::nullopt, "Photos/2019/2019-07"}, {std::nullopt, 3600, "Photos/Undated"},
      {253402300800.0, 0, "Photos/10000/10000-01"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.folder);
    DateDecision decision;
    decision.utc = c.utc;
    decision.offsetSeconds = c.offset;
    EXPECT_EQ(datedFolder(decision), c.folder);
  }
}

TEST(AlbumListsTest, FileNamesAreSafeAndDistinct) {
  const AlbumLists lists{{"Trip: 2019/2020", {"Photos/2019/2019-07/a.jpg"}},
                         {"..", {"x"}},
                         {".hidden", {"x"}},
                         {"trip- 2019-2020", {"y"}},
                         {"Trip- 2019-2020", {"z"}},
                         {"Empty", {}},
                         {std::string(300, 'L'), {"x"}}};
  const std::vector<std::pair<std::string, std::string>> expected{
      {"..", "_...txt"},
      {".hidden", "_.hidden.txt"},
      {std::string(300, 'L'), std::string(247, 'L') + ".txt"},
      {"Trip- 2019-2020", "Trip- 2019-2020.txt"},
      {"Trip: 2019/2020", "Trip- 2019-2020 (2).txt"},
      {"trip- 2019-2020", "trip- 2019-2020 (3).txt"},
  };
  EXPECT_EQ(albumFileNames(lists), expected);
  EXPECT_EQ(albumListText("Trip: 2019/2020", {"Photos/2019/2019-07/a.jpg", "Photos/Undated/b.png"}),
            "# Trip: 2019/2020\n../Photos/2019/2019-07/a.jpg\n../Photos/Undated/b.png");
}

TEST(AlbumListsTest, WritesEachListInsideAlbumsOnly) {
  TempDir run;
  writeAlbums({{"Empty", {}}}, run.path());
  EXPECT_FALSE(std::filesystem::exists(run / "Albums"));

  writeAlbums({{"../../escape", {"Photos/Undated/a.jpg"}}, {"Trip: 2019/2020", {"p/b.jpg"}}},
              run.path());
  EXPECT_EQ(slurp(run / "Albums" / "_..-..-escape.txt"), "# ../../escape\n../Photos/Undated/a.jpg");
  EXPECT_EQ(slurp(run / "Albums" / "Trip- 2019-2020.txt"), "# Trip: 2019/2020\n../p/b.jpg");
  std::vector<std::string> everything;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(run.path())) {
    everything.push_back(std::filesystem::relative(entry.path(), run.path()).string());
  }
  std::sort(everything.begin(), everything.end());
  EXPECT_EQ(everything, (std::vector<std::string>{".work", "Albums", "Albums/Trip- 2019-2020.txt",
                                                  "Albums/_..-..-escape.txt"}));
}

TEST(AlbumListsTest, AFolderThatCantBeWrittenEndsWithTheFileSystemsMessage) {
  TempDir run;
  std::filesystem::create_directories(run / "Albums");
  std::filesystem::create_directories(run / ".work");
  std::filesystem::permissions(run.path(), std::filesystem::perms::all);
  std::filesystem::permissions(run / ".work", std::filesystem::perms::all);
  std::filesystem::permissions(run / "Albums", std::filesystem::perms::owner_all);
  const int status = testing::runInChild(
      [&] {
        try {
          writeAlbums({{"A", {"x"}}}, run.path());
        } catch (const std::filesystem::filesystem_error& error) {
          return error.code() == std::errc::permission_denied ? 0 : 1;
        }
        return 2;
      },
      {.fileSizeBytes = std::nullopt, .withoutRoot = true});
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(std::filesystem::is_empty(run / "Albums"));
  EXPECT_TRUE(std::filesystem::is_empty(run / ".work"));
  // A file where the folder should be.
  TempDir blocked;
  std::ofstream(blocked / "Albums") << "in the way";
  EXPECT_THROW(writeAlbums({{"A", {"x"}}}, blocked.path()), std::filesystem::filesystem_error);
}

TEST(RunFolderTest, NamedForTheMinuteInTheComputersZoneWithANumberWhenTaken) {
  {
    const ScopedEnvironment zone("TZ", "Asia/Kathmandu");
    EXPECT_EQ(runFolderName(1763286187), "Quillmere Repair 2025-11-16 1528");  // 09:43:07 UTC
  }
  {
    const ScopedEnvironment zone("TZ", "America/St_Johns");
    EXPECT_EQ(runFolderName(1763286187), "Quillmere Repair 2025-11-16 0613");
  }
  TempDir out;
  const auto first = makeRunFolder(out / "new" / "nested");
  const auto second = makeRunFolder(out / "new" / "nested");
  std::ofstream(first.string() + " (3)") << "a file takes the third name";
  const auto third = makeRunFolder(out / "new" / "nested");
  // The three could straddle a minute; only compare when they did not.
  if (first.filename().string().size() == std::string("Quillmere Repair 2026-11-16 0943").size() &&
      second.filename().string() == first.filename().string() + " (2)") {
    EXPECT_EQ(third.filename().string(), first.filename().string() + " (4)");
  }
  EXPECT_TRUE(std::filesystem::is_directory(first));
  EXPECT_TRUE(std::filesystem::is_empty(third));
}

TEST(RunFolderTest, RefusesAnOutputFolderInsideAnExportFolder) {
  TempDir root;
  std::filesystem::create_directories(root / "export" / "Takeout");
  std::filesystem::create_directories(root / "exports");
  std::ofstream(root / "takeout-001.zip") << "zip";
  std::filesystem::create_symlink(root / "export", root / "link");
  const std::vector<std::filesystem::path> inputs{root / "export", root / "takeout-001.zip"};
  const struct {
    std::filesystem::path destination;
    bool refused;
  } cases[] = {
      {root / "export", true},
      {root / "export" / "Takeout" / "out", true},
      {root / "link" / "new" / "out", true},
      {root / "export" / ".." / "export" / "x", true},
      {root / "exports" / "out", false},  // /a/b must not match /a/bc
      {root.path(), false},               // beside the zip part
      {root / "takeout-001.zip.out", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.destination);
    if (!c.refused) {
      EXPECT_NO_THROW(checkOutsideSources(c.destination, inputs));
      continue;
    }
    try {
      checkOutsideSources(c.destination, inputs);
      ADD_FAILURE() << "accepted";
    } catch (const QuillmereError& error) {
      EXPECT_EQ(error.kind(), QuillmereError::Kind::outputInsideSource);
      EXPECT_EQ(error.payload(), c.destination.string());
    }
  }
}

}  // namespace
}  // namespace quillmere::RepairEngine
