#include "core/repair/overlay_compositor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "core/sources/quillmere_error.h"
#include "tests/support/photo_checks.h"
#include "tests/support/run_command.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;
using Colour = std::array<int, 3>;

constexpr const char* kFittedNote =
    "Overlay was a different shape from the photo; it was fitted and centered";

void tool(std::vector<std::string> argv) {
  const auto result = runCommand(argv);
  ASSERT_EQ(result.exitCode, 0) << argv[0] << ": " << result.err;
}

// Pixels as ImageMagick decodes them: the independent reader.
struct Pixels {
  int width = 0;
  int height = 0;
  std::string rgb;

  Colour at(int x, int y) const {
    const std::size_t i = (static_cast<std::size_t>(y) * width + x) * 3;
    return {static_cast<unsigned char>(rgb[i]), static_cast<unsigned char>(rgb[i + 1]),
            static_cast<unsigned char>(rgb[i + 2])};
  }
};

Pixels readPixels(const fs::path& file, bool autoOrient = false) {
  std::vector<std::string> argv = {"convert", file.string()};
  if (autoOrient) argv.push_back("-auto-orient");
  argv.insert(argv.end(), {"-colorspace", "sRGB", "-depth", "8", "ppm:-"});
  const auto result = runCommand(argv);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  Pixels pixels;
  std::istringstream header(result.out);
  std::string magic;
  int depth = 0;
  header >> magic >> pixels.width >> pixels.height >> depth;
  const auto start = static_cast<std::size_t>(header.tellg()) + 1;
  pixels.rgb = result.out.substr(std::min(start, result.out.size()));
  EXPECT_EQ(pixels.rgb.size(), static_cast<std::size_t>(pixels.width) * pixels.height * 3);
  return pixels;
}

// JPEG at quality 92 keeps flat colours within a few levels.
::testing::AssertionResult near(const Colour& actual, const Colour& expected, int tolerance = 12) {
  for (int i = 0; i < 3; ++i) {
    if (std::abs(actual[i] - expected[i]) > tolerance) {
      return ::testing::AssertionFailure()
             << "(" << actual[0] << ", " << actual[1] << ", " << actual[2] << ") is not near ("
             << expected[0] << ", " << expected[1] << ", " << expected[2] << ")";
    }
  }
  return ::testing::AssertionSuccess();
}

nlohmann::json exiftool(const fs::path& file) {
  const auto result = runCommand({"exiftool", "-j", "-a", "-G1", file.string()});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  return nlohmann::json::parse(result.out).at(0);
}

std::string size(int width, int height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

class OverlayCompositorTest : public ::testing::Test {
 protected:
  fs::path path(const std::string& name) const { return temp_ / name; }

  // A photo of one flat colour.
  fs::path photo(const std::string& name, int width, int height, const std::string& colour,
                 std::vector<std::string> options = {}) const {
    std::vector<std::string> argv = {"convert", "-size", size(width, height), "xc:" + colour};
    argv.insert(argv.end(), options.begin(), options.end());
    argv.push_back(path(name).string());
    tool(argv);
    return path(name);
  }

  // Composites, checking that the inputs are left byte for byte as they were.
  std::optional<std::string> composite(const fs::path& main, const fs::path& overlay,
                                       const fs::path& to) const {
    auto before = testing::snapshotTree(temp_.path());
    auto note = OverlayCompositor::composite(main, overlay, to);
    auto after = testing::snapshotTree(temp_.path());
    before.erase(to.filename().string());
    after.erase(to.filename().string());
    EXPECT_EQ(after, before) << "the inputs changed, or something besides the output appeared";
    return note;
  }

  void expectFailure(const fs::path& main, const fs::path& overlay) const {
    const fs::path to = path("failed.jpg");
    const auto before = testing::snapshotTree(temp_.path());
    try {
      OverlayCompositor::composite(main, overlay, to);
      ADD_FAILURE() << "no error";
    } catch (const QuillmereError& error) {
      EXPECT_EQ(error.kind(), QuillmereError::Kind::cannotComposite);
      EXPECT_EQ(error.payload(), main.filename().string());
      EXPECT_STREQ(error.what(), QuillmereError::cannotComposite(main.filename().string()).what());
    }
    EXPECT_EQ(testing::snapshotTree(temp_.path()), before) << "something was left behind";
  }

  testing::TempDir temp_;
};

TEST_F(OverlayCompositorTest, StretchesASameShapeOverlayAndFitsAndCentresAnother) {
  // An opaque blue overlay, its left and right edge columns red.
  const fs::path overlay = path("overlay.png");
  tool({"convert", "-size", "1080x1920", "xc:blue", "-fill", "red", "-draw", "rectangle 0,0 1,1919",
        "-draw", "rectangle 1078,0 1079,1919", overlay.string()});

  const fs::path same = photo("same.jpg", 1080, 1920, "lime");
  EXPECT_EQ(composite(same, overlay, path("stretched.jpg")), std::nullopt);
  const Pixels stretched = readPixels(path("stretched.jpg"));
  ASSERT_EQ(size(stretched.width, stretched.height), "1080x1920");
  EXPECT_TRUE(near(stretched.at(0, 960), {255, 0, 0}, 40));
  EXPECT_TRUE(near(stretched.at(540, 960), {0, 0, 255}));

  const fs::path wider = photo("wider.jpg", 1440, 1920, "lime");
  EXPECT_EQ(composite(wider, overlay, path("fitted.jpg")), kFittedNote);
  const Pixels fitted = readPixels(path("fitted.jpg"));
  ASSERT_EQ(size(fitted.width, fitted.height), "1440x1920");
  for (const int y : {0, 960, 1919}) {
    SCOPED_TRACE(y);
    EXPECT_TRUE(near(fitted.at(170, y), {0, 255, 0}));
    EXPECT_TRUE(near(fitted.at(180, y), {255, 0, 0}, 40));  // the overlay starts at x = 180
    EXPECT_TRUE(near(fitted.at(720, y), {0, 0, 255}));
    EXPECT_TRUE(near(fitted.at(1259, y), {255, 0, 0}, 40));  // ... and ends at x = 1259
    EXPECT_TRUE(near(fitted.at(1270, y), {0, 255, 0}));
  }
  EXPECT_GT(fitted.at(179, 960)[1], 128) << "column 179 is still the photo";
  EXPECT_GT(fitted.at(1260, 960)[1], 128) << "column 1260 is still the photo";

  // Taller than the photo's shape: centred vertically instead.
  const fs::path flat = photo("flat.jpg", 1080, 960, "lime");
  EXPECT_EQ(composite(flat, overlay, path("letterbox.jpg")), kFittedNote);
  const Pixels letterbox = readPixels(path("letterbox.jpg"));
  EXPECT_TRUE(near(letterbox.at(100, 480), {0, 255, 0}));  // the overlay is 540 wide at x 270
  EXPECT_TRUE(near(letterbox.at(540, 480), {0, 0, 255}));
  EXPECT_TRUE(near(letterbox.at(540, 2), {0, 0, 255}));
}

TEST_F(OverlayCompositorTest, ScalesAndPlacesAStickerOnAClearPage) {
  // A clear 108 x 192 page with one red sticker at x 10-19, y 100-109.
  const fs::path overlay = path("sticker.png");
  tool({"convert", "-size", "108x192", "xc:none", "-fill", "red", "-draw",
        "rectangle 10,100 19,109", overlay.string()});
  const struct {
    int width;
    int height;
    int left;  // where the doubled sticker starts
  } cases[] = {{216, 384, 20}, {288, 384, 36 + 20}};
  for (const auto& c : cases) {
    SCOPED_TRACE(size(c.width, c.height));
    const fs::path main = photo("p" + std::to_string(c.width) + ".png", c.width, c.height, "lime");
    const fs::path to = path("sticker" + std::to_string(c.width) + ".jpg");
    composite(main, overlay, to);
    const Pixels out = readPixels(to);
    ASSERT_EQ(size(out.width, out.height), size(c.width, c.height));
    EXPECT_TRUE(near(out.at(c.left + 2, 202), {255, 0, 0}, 30));
    EXPECT_TRUE(near(out.at(c.left + 17, 217), {255, 0, 0}, 30));
    EXPECT_TRUE(near(out.at(c.left - 4, 210), {0, 255, 0}, 30));
    EXPECT_TRUE(near(out.at(c.left + 24, 210), {0, 255, 0}, 30));
    EXPECT_TRUE(near(out.at(c.left + 10, 195), {0, 255, 0}, 30));
    EXPECT_TRUE(near(out.at(c.left + 10, 224), {0, 255, 0}, 30));
    EXPECT_TRUE(near(out.at(c.width - 5, c.height - 5), {0, 255, 0}));
  }
}

TEST_F(OverlayCompositorTest, StickersFarApartLandAsOnAPageScaledWhole) {
  // Soft-edged stickers at the top, in the middle and in the bottom right corner of a clear
  // page; the second page adds a barely visible line down its left edge, making it one piece.
  const auto page = [&](const std::string& name, std::vector<std::string> extra) {
    std::vector<std::string> argv = {"convert", "-size",
                                     "108x192", "xc:none",
                                     "-fill",   "rgba(255,0,0,0.6)",
                                     "-draw",   "circle 30,20 30,32",
                                     "-fill",   "yellow",
                                     "-draw",   "roundrectangle 20,90 90,110 6,6",
                                     "-fill",   "rgba(0,0,255,0.8)",
                                     "-draw",   "circle 107,191 107,170"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    argv.push_back(path(name).string());
    tool(argv);
    return path(name);
  };
  const fs::path apart = page("apart.png", {});
  const fs::path whole =
      page("whole.png", {"-fill", "rgba(0,0,0,0.01)", "-draw", "rectangle 0,0 0,191"});
  const fs::path main = path("gradient.jpg");
  tool({"convert", "-size", "600x700", "gradient:#d08030-#3050a0", main.string()});

  // Fitted 394 x 700 at x = 103: a scale that puts the pieces' edges between pixels.
  EXPECT_EQ(composite(main, apart, path("apart.jpg")), kFittedNote);
  EXPECT_EQ(composite(main, whole, path("whole.jpg")), kFittedNote);
  const Pixels pieces = readPixels(path("apart.jpg"));
  const Pixels one = readPixels(path("whole.jpg"));
  ASSERT_EQ(size(pieces.width, pieces.height), "600x700");
  ASSERT_EQ(size(one.width, one.height), "600x700");
  EXPECT_TRUE(near(pieces.at(103 + 200, 365), {255, 255, 0}, 30)) << "the middle sticker is there";
  // The line changes only the 8 x 8 blocks around x = 103; every other pixel is the same.
  int differing = 0;
  for (int y = 0; y < one.height; ++y) {
    for (int x = 0; x < one.width; ++x) {
      if ((x < 96 || x >= 128) && pieces.at(x, y) != one.at(x, y)) ++differing;
    }
  }
  EXPECT_EQ(differing, 0) << "the stickers are not where the whole page puts them";
}

TEST_F(OverlayCompositorTest, ExactlyTwoPercentIsStillTheSameShape) {
  const fs::path square = photo("square.jpg", 1000, 1000, "lime");
  const struct {
    int width;
    std::optional<std::string> note;
  } cases[] = {{980, std::nullopt}, {1020, std::nullopt}, {979, kFittedNote}, {1021, kFittedNote}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.width);
    const fs::path overlay = photo("o" + std::to_string(c.width) + ".png", c.width, 1000, "blue");
    EXPECT_EQ(composite(square, overlay, path("out.jpg")), c.note);
  }
}

TEST_F(OverlayCompositorTest, BlendsTransparencyAndKeepsNoMetadata) {
  const fs::path main = photo("-=Café [1].jpg", 64, 48, "lime");
  tool({"exiftool", "-q", "-overwrite_original", "-DateTimeOriginal=2019:07:04 15:30:00",
        "-XMP:Description=kept out", "-GPSLatitude=48.85", main.string()});
  // Left half clear, right half red at half opacity.
  const fs::path overlay = path("half.png");
  tool({"convert", "-size", "64x48", "xc:none", "-fill", "rgba(255,0,0,0.5)", "-draw",
        "rectangle 32,0 63,47", overlay.string()});

  const fs::path to = path("=out ü.jpg");
  EXPECT_EQ(composite(main, overlay, to), std::nullopt);
  const Pixels out = readPixels(to);
  EXPECT_TRUE(near(out.at(10, 24), {0, 255, 0}));
  EXPECT_TRUE(near(out.at(50, 24), {128, 128, 0}));

  const nlohmann::json tags = exiftool(to);
  EXPECT_EQ(tags.at("File:FileType"), "JPEG");
  EXPECT_EQ(tags.at("File:ColorComponents"), 3);
  for (const auto& [key, value] : tags.items()) {
    const std::string group = key.substr(0, key.find(':'));
    EXPECT_THAT(group,
                ::testing::AnyOf("SourceFile", "ExifTool", "System", "File", "JFIF", "Composite"))
        << key << " = " << value.dump();
  }
}

TEST_F(OverlayCompositorTest, BlendsEachLevelOfTransparencyByItsWeight) {
  // Stripes 16 pixels wide (whole JPEG blocks) of one colour at rising opacity.
  const Colour paint = {250, 20, 120};
  const Colour ground = {30, 220, 60};
  const int alphas[] = {1, 64, 128, 200, 254, 255};
  std::vector<std::string> argv = {"convert", "-size", "96x32", "xc:none"};
  for (int i = 0; i < 6; ++i) {
    const std::string rgba = "rgba(250,20,120," + std::to_string(alphas[i] / 255.0) + ")";
    const std::string stripe =
        "rectangle " + std::to_string(16 * i) + ",0 " + std::to_string(16 * i + 15) + ",31";
    argv.insert(argv.end(), {"-fill", rgba, "-draw", stripe});
  }
  argv.push_back(path("stripes.png").string());
  tool(argv);
  const fs::path main = photo("ground.jpg", 96, 32, "rgb(30,220,60)", {"-quality", "100"});

  EXPECT_EQ(composite(main, path("stripes.png"), path("blended.jpg")), std::nullopt);
  const Pixels out = readPixels(path("blended.jpg"));
  for (int i = 0; i < 6; ++i) {
    SCOPED_TRACE("alpha " + std::to_string(alphas[i]));
    Colour expected;
    for (int c = 0; c < 3; ++c) {
      expected[c] = (alphas[i] * paint[c] + (255 - alphas[i]) * ground[c] + 127) / 255;
    }
    EXPECT_TRUE(near(out.at(16 * i + 8, 16), expected, 3));
  }
}

TEST_F(OverlayCompositorTest, DrawsOnThePhotoTurnedUprightForEveryOrientation) {
  // Four coloured quarters, stored 60 x 40.
  const fs::path stored = path("stored.jpg");
  tool({"convert", "(", "-size", "30x20", "xc:red", "xc:lime", "+append", ")", "(", "-size",
        "30x20", "xc:blue", "xc:white", "+append", ")", "-append", "-quality", "95",
        stored.string()});
  const fs::path clear = path("clear.png");
  tool({"convert", "-size", "8x8", "xc:none", clear.string()});

  for (int orientation = 1; orientation <= 8; ++orientation) {
    SCOPED_TRACE("orientation " + std::to_string(orientation));
    const fs::path main = path("o" + std::to_string(orientation) + ".jpg");
    fs::copy_file(stored, main, fs::copy_options::overwrite_existing);
    tool({"exiftool", "-q", "-overwrite_original", "-n",
          "-Orientation=" + std::to_string(orientation), main.string()});
    // A clear overlay of the upright shape: square against 3:2 would be fitted.
    const bool turned = orientation >= 5;
    const fs::path overlay = path(turned ? "tall.png" : "wide.png");
    tool({"convert", "-size", turned ? "40x60" : "60x40", "xc:none", overlay.string()});

    const fs::path to = path("upright" + std::to_string(orientation) + ".jpg");
    EXPECT_EQ(composite(main, overlay, to), std::nullopt);
    const Pixels out = readPixels(to);
    const Pixels expected = readPixels(main, /*autoOrient=*/true);
    ASSERT_EQ(size(out.width, out.height), size(expected.width, expected.height));
    ASSERT_EQ(size(out.width, out.height), turned ? "40x60" : "60x40");
    for (const auto& [x, y] : {std::pair{5, 5},
                               {out.width - 6, 5},
                               {5, out.height - 6},
                               {out.width - 6, out.height - 6}}) {
      EXPECT_TRUE(near(out.at(x, y), expected.at(x, y), 30)) << "at " << x << ", " << y;
    }
    if (orientation == 6) {
      EXPECT_FALSE(exiftool(to).contains("IFD0:Orientation"));
    }
    // A square overlay doesn't match the upright shape of either.
    EXPECT_EQ(composite(main, clear, to), kFittedNote);
  }
}

TEST_F(OverlayCompositorTest, DrawsGreyCMYKAndSixteenBitPhotosInSRGB) {
  const fs::path red = path("red.png");
  tool({"convert", "-size", "32x64", "xc:none", "-fill", "red", "-draw", "rectangle 0,0 31,15",
        red.string()});
  const struct {
    const char* name;
    std::vector<std::string> options;
    const char* colour;
    Colour expected;
    int tolerance;
  } cases[] = {
      {"grey.jpg", {"-colorspace", "Gray"}, "gray50", {128, 128, 128}, 8},
      {"grey16.png", {"-colorspace", "Gray", "-depth", "16"}, "gray(20%)", {51, 51, 51}, 8},
      {"rgb16.png", {"-depth", "16"}, "rgb(10%,50%,90%)", {26, 128, 230}, 8},
      {"rgb16.tif", {"-depth", "16"}, "rgb(90%,50%,10%)", {230, 128, 26}, 8},
      {"greyalpha.png",
       {"-colorspace", "Gray", "-alpha", "set"},
       "graya(60%,1)",
       {153, 153, 153},
       8},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path main = photo(c.name, 32, 64, c.colour, c.options);
    const fs::path to = path(std::string(c.name) + ".out.jpg");
    EXPECT_EQ(composite(main, red, to), std::nullopt);
    EXPECT_EQ(exiftool(to).at("File:ColorComponents"), 3);
    const Pixels out = readPixels(to);
    EXPECT_TRUE(near(out.at(16, 8), {255, 0, 0}, 16)) << "the overlay is drawn in colour";
    EXPECT_TRUE(near(out.at(16, 48), c.expected, c.tolerance));
  }

  // Full cyan and magenta ink: a deep blue through a press profile, pure blue by plain
  // arithmetic. Either way blue, in three channels.
  const fs::path cmyk = photo("cmyk.jpg", 32, 64, "rgb(0,0,255)", {"-colorspace", "CMYK"});
  ASSERT_EQ(exiftool(cmyk).at("File:ColorComponents"), 4);
  EXPECT_EQ(composite(cmyk, red, path("cmyk.out.jpg")), std::nullopt);
  EXPECT_EQ(exiftool(path("cmyk.out.jpg")).at("File:ColorComponents"), 3);
  const Colour blue = readPixels(path("cmyk.out.jpg")).at(16, 48);
  EXPECT_GT(blue[2], blue[0] + 60);
  EXPECT_GT(blue[2], blue[1] + 60);
}

TEST_F(OverlayCompositorTest, TinyOverlaysScaleAndBadOnesFailNamingThePhoto) {
  const fs::path main = photo("IMG_0001.jpg", 48, 48, "lime");
  const fs::path dot = photo("dot.png", 1, 1, "blue");
  EXPECT_EQ(composite(main, dot, path("dot.jpg")), std::nullopt);
  EXPECT_TRUE(near(readPixels(path("dot.jpg")).at(24, 24), {0, 0, 255}));

  std::ofstream(path("text.png")) << "not an image at all\n";
  expectFailure(main, path("text.png"));
  std::ofstream(path("empty.png"));
  expectFailure(main, path("empty.png"));
  expectFailure(main, path("missing.png"));
  expectFailure(path("missing.jpg"), dot);
  expectFailure(path("text.png"), dot);

  // A PNG cut off halfway through its pixels fails as it is decoded.
  const fs::path noisy = path("noisy.png");
  tool(
      {"convert", "-size", "300x300", "-seed", "1", "xc:gray", "+noise", "Random", noisy.string()});
  const auto bytes = fs::file_size(noisy);
  fs::resize_file(noisy, bytes / 2);
  expectFailure(main, noisy);
  // A photo cut short fails the same way.
  const fs::path photoNoise = path("noisy.jpg");
  tool({"convert", "-size", "300x300", "-seed", "2", "xc:gray", "+noise", "Random",
        photoNoise.string()});
  fs::resize_file(photoNoise, fs::file_size(photoNoise) / 2);
  expectFailure(photoNoise, dot);

  // No folder to write into.
  EXPECT_THROW(OverlayCompositor::composite(main, dot, path("no such folder") / "out.jpg"),
               QuillmereError);
}

// A valid PNG of `width` x `height` one-bit pixels, all black, made by Python's zlib: a few
// kilobytes that would decode to gigabytes.
void writeHugePNG(const fs::path& file, int width, int height) {
  const std::string script =
      "import struct, sys, zlib\n"
      "w, h = " +
      std::to_string(width) + ", " + std::to_string(height) +
      "\n"
      "def chunk(kind, data):\n"
      "    body = kind + data\n"
      "    return struct.pack('>I', len(data)) + body + struct.pack('>I', zlib.crc32(body))\n"
      "row = b'\\0' * (1 + (w + 7) // 8)\n"
      "z = zlib.compressobj(9)\n"
      "data = b''.join(z.compress(row) for _ in range(h)) + z.flush()\n"
      "png = b'\\x89PNG\\r\\n\\x1a\\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', w, h, 1, 0, 0, 0, "
      "0))"
      " + chunk(b'IDAT', data) + chunk(b'IEND', b'')\n"
      "open(sys.argv[1], 'wb').write(png)\n";
  tool({"python3", "-c", script, file.string()});
}

TEST_F(OverlayCompositorTest, RefusesImagesBeyondThePixelBudget) {
  const fs::path main = photo("IMG_0002.jpg", 48, 48, "lime");
  const fs::path huge = path("huge.png");
  writeHugePNG(huge, 20000, 20000);
  expectFailure(main, huge);
  expectFailure(huge, main);
  // Inside the budget, a long thin overlay is fine.
  const fs::path strip = path("strip.png");
  writeHugePNG(strip, 20000, 1);
  EXPECT_EQ(composite(main, strip, path("strip.jpg")), kFittedNote);
}

TEST_F(OverlayCompositorTest, WorksFromSeveralThreadsAtOnce) {
  const fs::path main = photo("IMG_0003.jpg", 200, 300, "lime");
  const fs::path overlay = photo("o.png", 200, 300, "blue", {"-alpha", "set"});
  std::vector<std::thread> threads;
  std::array<bool, 4> ok{};
  for (std::size_t i = 0; i < ok.size(); ++i) {
    threads.emplace_back([&, i] {
      ok[i] = !OverlayCompositor::composite(main, overlay, path("t" + std::to_string(i) + ".jpg"));
    });
  }
  for (auto& thread : threads) thread.join();
  for (std::size_t i = 0; i < ok.size(); ++i) {
    EXPECT_TRUE(ok[i]);
    EXPECT_TRUE(near(readPixels(path("t" + std::to_string(i) + ".jpg")).at(100, 150), {0, 0, 255}));
  }
}

TEST(OverlayCompositorSampleTest, TurnsARealPhoneHEICUprightOnce) {
  // Stored landscape with both a HEIF rotation and an EXIF orientation of 6, in Display P3.
  const fs::path samples = testing::sharedSamples();
  const fs::path iphone = samples / "heif" / "iphone_13_pro_max.HEIC";
  if (!fs::exists(iphone)) GTEST_SKIP() << "no sample files at " << samples;
  const auto before = testing::snapshotTree(iphone.parent_path());
  testing::TempDir temp;
  tool({"convert", "-size", "30x40", "xc:none", (temp / "clear.png").string()});
  EXPECT_EQ(OverlayCompositor::composite(iphone, temp / "clear.png", temp / "out.jpg"),
            std::nullopt);
  const nlohmann::json original = exiftool(iphone);
  ASSERT_EQ(original.at("IFD0:Orientation"), "Rotate 90 CW");
  const nlohmann::json out = exiftool(temp / "out.jpg");
  EXPECT_EQ(out.at("File:ImageWidth"), original.at("ExifIFD:ExifImageHeight"));
  EXPECT_EQ(out.at("File:ImageHeight"), original.at("ExifIFD:ExifImageWidth"));
  EXPECT_FALSE(out.contains("ICC_Profile:ProfileDescription"));
  EXPECT_EQ(testing::snapshotTree(iphone.parent_path()), before);
}

}  // namespace
}  // namespace quillmere
