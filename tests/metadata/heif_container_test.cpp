#include "core/metadata/heif_container.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/iso_boxes.h"

namespace quillmere {
namespace {

using namespace std::string_literals;

using testing::be;
using testing::box;
using testing::fullBox;

const std::string kTiff = "MM\0*\0\0\0\x08tiff-bytes"s;
const std::string kXmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";

struct Layout {
  int exifConstruction = 0;    // 0 file, 1 idat, 2 item reference
  std::int64_t exifShift = 0;  // moves the Exif extent (beyond the file, say)
  std::string handler = "pict";
  int primaryProperty = 2;  // index into ipco: 1 = 10x10, 2 = 640x480
  // An Exif item: the offset of the TIFF header after this field, "Exif\0\0", then TIFF.
  std::string exifItem = be(6, 4) + "Exif\0\0"s + kTiff;
  int extraExtents = 0;  // in items of their own, listed before the real ones
  int claimedItems = 0;  // counted in iloc's item count without being there
};

// ftyp, mdat, meta: the Exif item (unless in idat) and the XMP packet lie in mdat.
std::string heif(const Layout& l) {
  const auto infe = [](int item, const std::string& type) {
    return fullBox("infe", 2, be(item, 2) + be(0, 2) + type + '\0');
  };
  const bool inIdat = l.exifConstruction == 1;
  const int version = l.exifConstruction > 0;  // iloc's
  const std::string ftyp = box("ftyp", "heic" + be(0, 4) + "mif1heic");
  const std::string mdat = box("mdat", (inIdat ? "" : l.exifItem) + kXmp);
  const std::uint64_t data = ftyp.size() + 8;
  // One extent an item, with 4-byte offsets, lengths and base offsets.
  const auto entry = [&](std::uint32_t item, int construction, std::uint64_t at, std::size_t n) {
    return be(item, 2) + (version ? be(construction, 2) : "") + be(0, 6) + be(1, 2) + be(at, 4) +
           be(n, 4);
  };
  std::string extra;
  int extraItems = 0;
  for (int left = l.extraExtents; left > 0; left -= 60000, ++extraItems) {
    const int n = std::min(left, 60000);
    extra += be(10 + extraItems, 2) + (version ? be(0, 2) : "") + be(0, 6) + be(n, 2);
    for (int e = 0; e < n; ++e) extra += be(0, 4) + be(1, 4);
  }
  const std::string iloc =
      be(0x4440, 2) + be(3 + extraItems + l.claimedItems, 2) + extra + entry(1, 0, 0, 0) +
      entry(2, l.exifConstruction, inIdat ? 0 : data + l.exifShift, l.exifItem.size()) +
      entry(3, 0, data + (inIdat ? 0 : l.exifItem.size()), kXmp.size());
  const std::string ipco = box("ipco", fullBox("ispe", 0, be(10, 4) + be(10, 4)) +
                                           fullBox("ispe", 0, be(640, 4) + be(480, 4)));
  const std::string ipma = be(1, 4) + be(1, 2) + be(1, 1) + be(0x80 | l.primaryProperty, 1);
  return ftyp + mdat +
         fullBox("meta", 0,
                 fullBox("hdlr", 0, be(0, 4) + l.handler + be(0, 13)) +
                     fullBox("pitm", 0, be(1, 2)) +
                     fullBox("iinf", 0,
                             be(3, 2) + infe(1, "hvc1") + infe(2, "Exif") +
                                 infe(3, "mime\0application/rdf+xml"s)) +
                     box("iprp", ipco + fullBox("ipma", 0, ipma)) +
                     box("idat", inIdat ? l.exifItem : "") + fullBox("iloc", version, iloc));
}

std::optional<HeifContainer::Contents> read(const std::string& file) {
  return HeifContainer::read(*RandomAccessBytes::inMemory(Bytes(file.begin(), file.end())));
}

TEST(HeifContainerTest, ReadsWhatItCanReachAndLeavesOutTheRest) {
  const struct {
    const char* name;
    Layout layout;
    bool exif;
    std::optional<std::uint32_t> width;
    bool xmp = true;
  } cases[] = {
      {"iloc version 0", {}, true, 640},
      {"Exif in idat, iloc version 1", {.exifConstruction = 1}, true, 640},
      {"Exif extent beyond the file", {.exifShift = 1 << 20}, false, 640},
      {"Exif built from another item", {.exifConstruction = 2}, false, 640},
      {"Exif header offset beyond the item", {.exifItem = be(1000, 4) + kTiff}, false, 640},
      {"the primary item's own property", {.primaryProperty = 1}, true, 10},
      {"a property index past the list", {.primaryProperty = 9}, true, std::nullopt},
      // Counts are held to what the bytes and a per-file budget allow, so a small file can't
      // make the reader walk or keep millions of records.
      {"1,000 other extents first", {.extraExtents = 1000}, true, 640},
      {"70,000 other extents first", {.extraExtents = 70000}, false, 640, false},
      {"60,000 more items counted than present", {.claimedItems = 60000}, false, 640, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::optional<HeifContainer::Contents> contents = read(heif(c.layout));
    ASSERT_TRUE(contents.has_value());
    EXPECT_EQ(contents->exif,
              c.exif ? std::optional(Bytes(kTiff.begin(), kTiff.end())) : std::nullopt);
    EXPECT_EQ(contents->pixelWidth, c.width);
    EXPECT_EQ(contents->xmp, c.xmp ? std::optional(kXmp) : std::nullopt);
  }
  // Absent without a picture's meta box: another handler, none, cut off, or boxes that lie.
  const std::string whole = heif({}), ftyp = box("ftyp", "heic\0\0\0\0"s);
  const std::size_t meta = whole.rfind("meta") - 4;
  for (const std::string& file :
       {heif({.handler = "vide"}), whole.substr(0, meta), whole.substr(0, meta + 100), ""s,
        ftyp + be(0xFFFFFFF0, 4) + "meta",       // a box claiming 4 GiB
        ftyp + be(1, 4) + "meta" + be(0, 8)}) {  // a 64-bit size of 0
    EXPECT_EQ(read(file), std::nullopt);
  }
}

}  // namespace
}  // namespace quillmere
