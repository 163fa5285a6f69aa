#include "core/metadata/heif_container.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace quillmere {
namespace {

// Writers for ISO base media boxes, big-endian like the format.
Bytes be(std::uint64_t value, int width) {
  Bytes bytes;
  for (int i = width - 1; i >= 0; --i) {
    bytes.push_back(i >= 8 ? 0 : static_cast<std::uint8_t>(value >> (8 * i)));
  }
  return bytes;
}
Bytes text(const std::string& s, bool terminated = false) {
  Bytes bytes(s.begin(), s.end());
  if (terminated) bytes.push_back(0);
  return bytes;
}
Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}
Bytes box(const char* type, const Bytes& payload) {
  return cat({be(payload.size() + 8, 4), text(type), payload});
}
Bytes fullBox(const char* type, int version, std::uint32_t flags, const Bytes& payload) {
  return box(type, cat({be(version, 1), be(flags, 3), payload}));
}

const Bytes kTiff = text("MM\0*\0\0\0\x08tiff-bytes");
const std::string kXmp = "<x:xmpmeta xmlns:x='adobe:ns:meta/'/>";
// An Exif item: the offset of the TIFF header after this field, "Exif\0\0", then TIFF.
const Bytes kExifItem = cat({be(6, 4), text(std::string("Exif\0\0", 6)), kTiff});

struct Layout {
  int ilocVersion = 0;
  int infeVersion = 2;
  int ipmaVersion = 0;
  std::uint32_t ipmaFlags = 0;
  int exifConstruction = 0;    // 0 file, 1 idat, 2 item reference
  bool splitExif = false;      // two extents, with a base offset
  bool exifToEnd = false;      // extent length 0
  std::int64_t exifShift = 0;  // moves the Exif extent (beyond the file, say)
  const char* handler = "pict";
  std::uint16_t primaryProperty = 2;  // index into ipco: 1 = 10x10, 2 = 640x480
  Bytes exifItem = kExifItem;
};

// ftyp, meta, mdat: the Exif item (unless in idat) and the XMP packet lie in mdat.
Bytes heif(const Layout& layout) {
  const Bytes ftyp = box("ftyp", cat({text("heic"), be(0, 4), text("mif1"), text("heic")}));
  const auto itemId = [&](std::uint32_t id) { return be(id, layout.ilocVersion == 2 ? 4 : 2); };
  const auto infe = [&](std::uint32_t id, const char* type, const Bytes& extra) {
    return fullBox("infe", layout.infeVersion, 0,
                   cat({be(id, layout.infeVersion == 3 ? 4 : 2), be(0, 2), text(type),
                        text("", true), extra}));
  };
  const Bytes iinf = fullBox("iinf", 0, 0,
                             cat({be(3, 2), infe(1, "hvc1", {}), infe(2, "Exif", {}),
                                  infe(3, "mime", text("application/rdf+xml", true))}));
  const Bytes ipco = box("ipco", cat({fullBox("ispe", 0, 0, cat({be(10, 4), be(10, 4)})),
                                      fullBox("ispe", 0, 0, cat({be(640, 4), be(480, 4)}))}));
  const bool wide = (layout.ipmaFlags & 1) != 0;
  const Bytes ipma =
      fullBox("ipma", layout.ipmaVersion, layout.ipmaFlags,
              cat({be(1, 4), be(1, layout.ipmaVersion < 1 ? 2 : 4), be(1, 1),
                   be(layout.primaryProperty | (wide ? 0x8000 : 0x80), wide ? 2 : 1)}));
  const Bytes idat = box("idat", layout.exifConstruction == 1 ? layout.exifItem : Bytes{});

  // iloc with 4-byte offsets and lengths and a 4-byte base offset; its size is fixed, so the
  // mdat position can be computed before the offsets are written.
  const auto iloc = [&](std::uint64_t mdatData) {
    Bytes entries;
    const auto entry = [&](std::uint32_t id, int construction, std::uint64_t base,
                           std::vector<std::pair<std::uint64_t, std::uint64_t>> extents) {
      Bytes e = itemId(id);
      if (layout.ilocVersion >= 1) e = cat({e, be(construction, 2)});
      e = cat({e, be(0, 2), be(base, 4), be(extents.size(), 2)});
      for (const auto& [offset, length] : extents) e = cat({e, be(offset, 4), be(length, 4)});
      entries = cat({entries, e});
    };
    const std::uint64_t exifSize = layout.exifItem.size();
    entry(1, 0, 0, {{0, 0}});
    if (layout.exifConstruction == 1) {
      entry(2, 1, 0, {{0, exifSize}});
    } else if (layout.splitExif) {
      entry(2, layout.exifConstruction, mdatData, {{0, 5}, {5, exifSize - 5}});
    } else {
      const std::uint64_t exifAt = mdatData + (layout.exifToEnd ? kXmp.size() : 0);
      entry(2, layout.exifConstruction, 0,
            {{exifAt + layout.exifShift, layout.exifToEnd ? 0 : exifSize}});
    }
    const std::uint64_t xmpAt =
        mdatData + (layout.exifConstruction == 1 || layout.exifToEnd ? 0 : exifSize);
    entry(3, 0, 0, {{xmpAt, kXmp.size()}});
    return fullBox(
        "iloc", layout.ilocVersion, 0,
        cat({be(0x44, 1), be(0x40, 1), be(3, layout.ilocVersion == 2 ? 4 : 2), entries}));
  };
  const auto meta = [&](std::uint64_t mdatData) {
    return fullBox("meta", 0, 0,
                   cat({fullBox("hdlr", 0, 0,
                                cat({be(0, 4), text(layout.handler), be(0, 12), text("", true)})),
                        fullBox("pitm", layout.ilocVersion == 2 ? 1 : 0, 0,
                                be(1, layout.ilocVersion == 2 ? 4 : 2)),
                        iinf, box("iprp", cat({ipco, ipma})), idat, iloc(mdatData)}));
  };
  const std::uint64_t mdatData = ftyp.size() + meta(0).size() + 8;
  Bytes mdatPayload = layout.exifConstruction == 1 ? Bytes{} : layout.exifItem;
  mdatPayload = cat({mdatPayload, text(kXmp)});
  if (layout.exifToEnd) mdatPayload = cat({text(kXmp), layout.exifItem});  // Exif last
  return cat({ftyp, meta(mdatData), box("mdat", mdatPayload)});
}

std::optional<HeifContainer::Contents> read(const Bytes& bytes) {
  return HeifContainer::read(*RandomAccessBytes::inMemory(bytes));
}

TEST(HeifContainerTest, FindsPrimarySizeExifAndXmpInEveryLayout) {
  Layout exifToEnd;
  exifToEnd.exifToEnd = true;
  const struct {
    const char* name;
    Layout layout;
  } kCases[] = {
      {"iloc version 0", {}},
      {"iloc version 1, file offsets", {.ilocVersion = 1}},
      {"iloc version 1, Exif in idat", {.ilocVersion = 1, .exifConstruction = 1}},
      {"iloc version 2, 32-bit item ids", {.ilocVersion = 2}},
      {"infe version 3", {.infeVersion = 3}},
      {"ipma version 1 with 16-bit property indices", {.ipmaVersion = 1, .ipmaFlags = 1}},
      {"Exif in two extents after a base offset", {.ilocVersion = 1, .splitExif = true}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::optional<HeifContainer::Contents> contents = read(heif(c.layout));
    ASSERT_TRUE(contents.has_value());
    EXPECT_EQ(contents->pixelWidth, 640u);
    EXPECT_EQ(contents->pixelHeight, 480u);
    EXPECT_EQ(contents->exif, kTiff);
    EXPECT_EQ(contents->xmp, kXmp);
  }
}

TEST(HeifContainerTest, LeavesOutWhatItCannotReach) {
  Layout beyond;
  beyond.exifShift = 1 << 20;
  Layout byReference;
  byReference.ilocVersion = 1;
  byReference.exifConstruction = 2;
  Layout badHeaderOffset;
  badHeaderOffset.exifItem = cat({be(1000, 4), kTiff});
  Layout otherProperty;
  otherProperty.primaryProperty = 1;
  Layout missingProperty;
  missingProperty.primaryProperty = 9;
  const struct {
    const char* name;
    Layout layout;
    bool exif;
    std::optional<std::uint32_t> width;
  } kCases[] = {
      {"Exif extent beyond the file", beyond, false, 640},
      {"Exif built from another item", byReference, false, 640},
      {"Exif header offset beyond the item", badHeaderOffset, false, 640},
      {"the primary item's own property", otherProperty, true, 10},
      {"a property index past the list", missingProperty, true, std::nullopt},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    const std::optional<HeifContainer::Contents> contents = read(heif(c.layout));
    ASSERT_TRUE(contents.has_value());
    EXPECT_EQ(contents->exif.has_value(), c.exif);
    EXPECT_EQ(contents->pixelWidth, c.width);
    EXPECT_EQ(contents->xmp, kXmp);
  }
}

TEST(HeifContainerTest, AnExtentOfLengthZeroRunsToTheEnd) {
  Layout layout;
  layout.exifToEnd = true;
  const Bytes bytes = heif(layout);
  // The Exif item is last in the file and its extent says "to the end".
  const std::optional<HeifContainer::Contents> contents = read(bytes);
  ASSERT_TRUE(contents.has_value());
  ASSERT_TRUE(contents->exif.has_value());
  EXPECT_EQ(contents->exif, kTiff);
  EXPECT_EQ(contents->xmp, kXmp);
}

TEST(HeifContainerTest, IsAbsentWithoutAPictureMetaBox) {
  Layout video;
  video.handler = "vide";
  const Bytes whole = heif(Layout{});
  const Bytes ftypOnly(whole.begin(), whole.begin() + 24);
  const Bytes cutInMeta(whole.begin(), whole.begin() + 100);
  const struct {
    const char* name;
    Bytes bytes;
  } kCases[] = {
      {"handler is not a picture", heif(video)},
      {"no meta box", ftypOnly},
      {"meta box cut off", cutInMeta},
      {"nothing", {}},
      {"a box claiming 4 GiB",
       cat({box("ftyp", text("heic\0\0\0\0")), be(0xFFFFFFF0, 4), text("meta")})},
      {"a 64-bit size of 0",
       cat({box("ftyp", text("heic\0\0\0\0")), be(1, 4), text("meta"), be(0, 8)})},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(read(c.bytes), std::nullopt);
  }
}

TEST(HeifContainerTest, RecognisesStillImageBrandsOnly) {
  const auto ftyp = [](const char* major, std::vector<const char*> compatible) {
    Bytes payload = cat({text(major), be(0, 4)});
    for (const char* brand : compatible) payload = cat({payload, text(brand)});
    return box("ftyp", payload);
  };
  const struct {
    const char* name;
    Bytes head;
    bool heif;
  } kCases[] = {
      {"heic", ftyp("heic", {"mif1", "heic"}), true},
      {"mif1 major", ftyp("mif1", {}), true},
      {"avif among compatible", ftyp("avif", {"mif1", "miaf"}), true},
      {"brand only among compatible", ftyp("isom", {"mp41", "heix"}), true},
      {"Canon CR3", ftyp("crx ", {"crx ", "isom"}), false},
      {"MP4 movie", ftyp("isom", {"isom", "iso2", "avc1", "mp41"}), false},
      {"QuickTime", ftyp("qt  ", {"qt  "}), false},
      {"too short",
       text("\0\0\0\x18"
            "ftyph"),
       false},
      {"not ftyp", box("free", text("heicmif1")), false},
      {"JPEG", text("\xFF\xD8\xFF\xE0\0\x10JFIF\0\x01\x01\0\0\x01"), false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(HeifContainer::isHeif(c.head), c.heif);
  }
}

TEST(HeifContainerTest, ReadsTheHeifEncOutputThatExiv2Misses) {
  // heif-enc writes a grid of tiles with iloc version 1 and base offsets; the primary item is
  // the grid, whose size is the picture's, not a tile's.
  const std::filesystem::path path =
      std::filesystem::path(QUILLMERE_TEST_DATA) / "metadata/full.heic";
  std::ifstream in(path, std::ios::binary);
  const Bytes bytes(std::istreambuf_iterator<char>(in), {});
  const std::optional<HeifContainer::Contents> contents = read(bytes);
  ASSERT_TRUE(contents.has_value());
  EXPECT_EQ(contents->pixelWidth, 64u);
  EXPECT_EQ(contents->pixelHeight, 48u);
  ASSERT_TRUE(contents->exif.has_value());
  ASSERT_GE(contents->exif->size(), 4u);
  EXPECT_TRUE((*contents->exif)[0] == 'M' || (*contents->exif)[0] == 'I');  // a TIFF header
  ASSERT_TRUE(contents->xmp.has_value());
  EXPECT_NE(contents->xmp->find("photoshop:DateCreated"), std::string::npos);
}

}  // namespace
}  // namespace quillmere
