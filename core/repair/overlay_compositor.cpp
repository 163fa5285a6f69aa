#include "core/repair/overlay_compositor.h"

#include <vips/vips.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <future>
#include <memory>
#include <vector>

#include "core/repair/vips_setup.h"
#include "core/sources/file_io.h"
#include "core/sources/quillmere_error.h"

namespace quillmere {

namespace {

namespace fs = std::filesystem;

// The largest photo or overlay, in pixels, that is decoded at all: beyond it a file is more
// likely a decompression bomb than a memory. Real photos stay well below it; Snapchat overlays
// are screen-sized.
constexpr std::int64_t kMostPixels = 100'000'000;

// Shapes within 2 % of the photo's ratio are the same shape: the overlay is stretched.
constexpr std::int64_t kSameShapeFraction = 50;  // 1 / 0.02

constexpr int kJPEGQuality = 92;

constexpr std::string_view kFittedNote =
    "Overlay was a different shape from the photo; it was fitted and centered";

// Any libvips failure inside this file; turned into the user-facing error at the top.
struct VipsFailure {};

struct ObjectUnref {
  void operator()(void* object) const { g_object_unref(object); }
};
using Image = std::unique_ptr<VipsImage, ObjectUnref>;
using Source = std::unique_ptr<VipsSource, ObjectUnref>;

// Runs the libvips operation `operation(in, &out, args..., NULL)` and owns its result.
template <typename Operation, typename... Args>
Image run(Operation operation, const Image& in, Args... args) {
  VipsImage* out = nullptr;
  const int status = operation(in.get(), &out, args..., nullptr);
  Image result(out);
  if (status != 0 || !result) throw VipsFailure{};
  return result;
}

// Opens `path` by its content, whatever its name says. Only the header is read here; pixels
// are decoded once, from top to bottom, into memory, and a truncated file fails then.
Image openImage(const fs::path& path) {
  const Source source(vips_source_new_from_file(path.c_str()));
  if (!source) throw VipsFailure{};
  Image image(vips_image_new_from_source(source.get(), "", "fail_on", VIPS_FAIL_ON_TRUNCATED,
                                         "access", VIPS_ACCESS_SEQUENTIAL, nullptr));
  if (!image) throw VipsFailure{};
  const std::int64_t pixels =
      static_cast<std::int64_t>(image->Xsize) * static_cast<std::int64_t>(image->Ysize);
  if (image->Xsize <= 0 || image->Ysize <= 0 || pixels > kMostPixels) throw VipsFailure{};
  return image;
}

// The pixels of `image` decoded into memory, where they can be read in any order.
Image inMemory(const Image& image) {
  Image copy(vips_image_copy_memory(image.get()));
  if (!copy) throw VipsFailure{};
  return copy;
}

bool isEightBitRGB(const Image& image) {
  const VipsInterpretation kind = vips_image_guess_interpretation(image.get());
  return (kind == VIPS_INTERPRETATION_sRGB || kind == VIPS_INTERPRETATION_RGB) &&
         image->BandFmt == VIPS_FORMAT_UCHAR && (image->Bands == 3 || image->Bands == 4);
}

// 8-bit sRGB, with the alpha band if there was one. An embedded profile is applied, since the
// saved JPEG carries none; greyscale, CMYK and 16-bit pixels are converted.
Image inSRGB(Image image) {
  if (vips_image_get_typeof(image.get(), VIPS_META_ICC_NAME)) {
    VipsImage* out = nullptr;
    if (vips_icc_transform(image.get(), &out, "srgb", "embedded", TRUE, "depth", 8, nullptr) == 0) {
      image = Image(out);
    } else {
      // A broken profile: read the pixels as they are, like a file without one.
      vips_error_clear();
    }
  }
  if (isEightBitRGB(image)) return image;
  image = run(vips_colourspace, image, VIPS_INTERPRETATION_sRGB);
  if (image->BandFmt != VIPS_FORMAT_UCHAR) image = run(vips_cast, image, VIPS_FORMAT_UCHAR);
  return image;
}

// The photo upright, as 8-bit sRGB without alpha. Transparent parts end up black, as they would
// in a JPEG made from premultiplied pixels. Turning needs the whole photo, so it is decoded into
// memory first.
Image uprightBase(const Image& photo) {
  Image base = inSRGB(run(vips_autorot, inMemory(photo)));
  if (vips_image_hasalpha(base.get())) base = run(vips_flatten, base);
  if (base->Bands != 3) throw VipsFailure{};
  return base;
}

// Where the overlay goes on a W x H base, in whole pixels.
struct Placement {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  bool fitted = false;
};

Placement place(int baseWidth, int baseHeight, int overlayWidth, int overlayHeight) {
  // |W/H - w/h| / (W/H) <= 2 %, in integers so that exactly 2 % is the same shape.
  const std::int64_t photoArea = std::int64_t{baseWidth} * overlayHeight;
  const std::int64_t difference = std::abs(photoArea - std::int64_t{overlayWidth} * baseHeight);
  if (difference * kSameShapeFraction <= photoArea) {
    return {0, 0, baseWidth, baseHeight, false};
  }
  const double scale = std::min(static_cast<double>(baseWidth) / overlayWidth,
                                static_cast<double>(baseHeight) / overlayHeight);
  const double width = scale * overlayWidth;
  const double height = scale * overlayHeight;
  Placement placement;
  placement.fitted = true;
  placement.x = static_cast<int>(std::lround((baseWidth - width) * 0.5));
  placement.y = static_cast<int>(std::lround((baseHeight - height) * 0.5));
  placement.width = std::clamp(static_cast<int>(std::lround(width)), 1, baseWidth - placement.x);
  placement.height = std::clamp(static_cast<int>(std::lround(height)), 1, baseHeight - placement.y);
  return placement;
}

// How far a resampled pixel reaches for its sources, in pixels of either image: Lanczos-3 reads
// three either side (three of the smaller image's when shrinking), and one more covers rounding.
constexpr int kKernelReach = 4;

// Visible parts of an overlay closer than this, in photo pixels, are blended as one; and never
// more than kMostParts parts: each costs a few operations, and a caption's lines needn't be
// parts of their own.
constexpr int kLeastGap = 32;
constexpr std::size_t kMostParts = 16;

// The runs of consecutive rows of `layer` (8-bit, alpha last) holding anything not fully clear,
// each as wide as its rows' visible columns; top to bottom, none when the whole layer is clear.
std::vector<VipsRect> visibleRuns(const Image& layer) {
  const Image alpha = run(vips_extract_band, layer, layer->Bands - 1);
  std::size_t size = 0;
  const std::unique_ptr<void, decltype(&g_free)> memory(
      vips_image_write_to_memory(alpha.get(), &size), g_free);
  const int width = layer->Xsize;
  const int height = layer->Ysize;
  if (!memory || size != static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
    throw VipsFailure{};
  }
  const auto* bytes = static_cast<const unsigned char*>(memory.get());
  std::vector<VipsRect> runs;
  bool inRun = false;
  for (int y = 0; y < height; ++y) {
    const unsigned char* row =
        bytes + static_cast<std::size_t>(y) * static_cast<std::size_t>(width);
    int first = 0;
    while (first < width && row[first] == 0) ++first;
    if (first == width) {
      inRun = false;
      continue;
    }
    int last = width - 1;
    while (row[last] == 0) --last;
    const VipsRect line{first, y, last - first + 1, 1};
    if (inRun) {
      vips_rect_unionrect(&runs.back(), &line, &runs.back());
    } else {
      runs.push_back(line);
    }
    inRun = true;
  }
  return runs;
}

// The part of a placement (in its own coordinates) whose resampled pixels can draw on `visible`
// pixels of the overlay; every pixel outside all such parts stays fully clear.
VipsRect reachOf(const VipsRect& visible, double horizontal, double vertical,
                 const Placement& placement) {
  const auto from = [](int start, double scale) {
    return static_cast<int>(std::floor((start - kKernelReach) * scale)) - kKernelReach;
  };
  const auto to = [](int end, double scale) {
    return static_cast<int>(std::ceil((end + kKernelReach) * scale)) + kKernelReach;
  };
  const int left = from(visible.left, horizontal);
  const int top = from(visible.top, vertical);
  VipsRect reach{left, top, to(VIPS_RECT_RIGHT(&visible), horizontal) - left,
                 to(VIPS_RECT_BOTTOM(&visible), vertical) - top};
  const VipsRect whole{0, 0, placement.width, placement.height};
  vips_rect_intersectrect(&reach, &whole, &reach);
  return reach;
}

// `reaches` (sorted by top) joined into at most kMostParts parts that neither overlap nor come
// closer than kLeastGap rows.
std::vector<VipsRect> joinedParts(const std::vector<VipsRect>& reaches) {
  for (int gap = kLeastGap;; gap *= 2) {
    std::vector<VipsRect> parts;
    for (const VipsRect& reach : reaches) {
      if (vips_rect_isempty(&reach)) continue;
      if (!parts.empty() && reach.top < VIPS_RECT_BOTTOM(&parts.back()) + gap) {
        vips_rect_unionrect(&parts.back(), &reach, &parts.back());
      } else {
        parts.push_back(reach);
      }
    }
    if (parts.size() <= kMostParts) return parts;
  }
}

// A part of the overlay scaled for the placement, as 8-bit colour and alpha, and where its top
// left corner goes on the base.
struct Layer {
  Image pixels;
  int x = 0;
  int y = 0;
};

// The overlay scaled for the placement as a whole, but only its visible parts computed: most
// overlays are a caption or a few stickers on a clear page, and upscaling is the costly step.
// Each part is cut from the whole scaled image, so it lines up exactly as the whole would.
std::vector<Layer> scaledOverlay(const Image& overlay, const Placement& placement) {
  Image layer = inSRGB(run(vips_copy, overlay));
  if (!vips_image_hasalpha(layer.get())) layer = run(vips_addalpha, layer);
  if (layer->Bands != 4) throw VipsFailure{};
  layer = inMemory(layer);
  const double horizontal = static_cast<double>(placement.width) / layer->Xsize;
  const double vertical = static_cast<double>(placement.height) / layer->Ysize;
  std::vector<VipsRect> reaches;
  for (const VipsRect& visible : visibleRuns(layer)) {
    reaches.push_back(reachOf(visible, horizontal, vertical, placement));
  }
  const std::vector<VipsRect> parts = joinedParts(reaches);
  if (parts.empty()) return {};
  // Resampled premultiplied, so that clear edges don't darken; premultiplied values fit in 8
  // bits, and 8-bit pixels resample fastest.
  const Image premultiplied = run(vips_cast, run(vips_premultiply, layer), VIPS_FORMAT_UCHAR);
  Image scaled = run(vips_resize, premultiplied, horizontal, "vscale", vertical, "kernel",
                     VIPS_KERNEL_LANCZOS3);
  // Exactly the placement, whatever the rounding of the scaled size.
  if (scaled->Xsize != placement.width || scaled->Ysize != placement.height) {
    scaled = run(vips_embed, scaled, 0, 0, placement.width, placement.height, "extend",
                 VIPS_EXTEND_COPY);
  }
  std::vector<Layer> layers;
  for (const VipsRect& part : parts) {
    const Image area = run(vips_extract_area, scaled, part.left, part.top, part.width, part.height);
    layers.push_back({inMemory(run(vips_cast, run(vips_unpremultiply, area), VIPS_FORMAT_UCHAR)),
                      placement.x + part.left, placement.y + part.top});
  }
  return layers;
}

// Blends only the areas under the overlay's parts and puts them back into the base. Weighting
// by the alpha in 8 bits gives the same pixels as blending in floating point, five times faster.
Image merged(Image base, const std::vector<Layer>& layers) {
  for (const Layer& layer : layers) {
    const Image& pixels = layer.pixels;
    const Image colour = run(vips_extract_band, pixels, 0, "n", 3);
    const Image alpha = run(vips_extract_band, pixels, 3);
    const Image under =
        run(vips_extract_area, base, layer.x, layer.y, pixels->Xsize, pixels->Ysize);
    VipsImage* out = nullptr;
    const int status =
        vips_ifthenelse(alpha.get(), colour.get(), under.get(), &out, "blend", TRUE, nullptr);
    const Image blended(out);
    if (status != 0 || !blended) throw VipsFailure{};
    VipsImage* result = nullptr;
    const int inserted = vips_insert(base.get(), blended.get(), &result, layer.x, layer.y, nullptr);
    base = Image(result);
    if (inserted != 0 || !base) throw VipsFailure{};
  }
  return base;
}

// Encodes a baseline JPEG without any metadata and writes it to `to` in one piece.
void saveJPEG(const Image& image, const fs::path& to) {
  void* buffer = nullptr;
  std::size_t length = 0;
  const int status = vips_jpegsave_buffer(image.get(), &buffer, &length, "Q", kJPEGQuality, "strip",
                                          TRUE, nullptr);
  const std::unique_ptr<void, decltype(&g_free)> encoded(buffer, g_free);
  if (status != 0 || !encoded) throw VipsFailure{};
  FileIO::writeFile(to, {static_cast<const std::uint8_t*>(encoded.get()), length},
                    /*exclusive=*/false);
}

}  // namespace

std::optional<std::string> OverlayCompositor::composite(const fs::path& main,
                                                        const fs::path& overlay,
                                                        const fs::path& to) {
  try {
    if (!VipsSetup::prepare()) throw VipsFailure{};
    const Image photo = openImage(main);
    const Image sticker = openImage(overlay);
    // The upright size is known from the header: the overlay is scaled on another thread while
    // this one decodes the photo, which libjpeg does on one core.
    const Image upright = run(vips_autorot, photo);
    const Placement placement =
        place(upright->Xsize, upright->Ysize, sticker->Xsize, sticker->Ysize);
    auto layers = std::async(std::launch::async, [&] { return scaledOverlay(sticker, placement); });
    Image base = uprightBase(photo);
    if (base->Xsize != upright->Xsize || base->Ysize != upright->Ysize) throw VipsFailure{};
    saveJPEG(merged(std::move(base), layers.get()), to);
    if (placement.fitted) return std::string(kFittedNote);
    return std::nullopt;
  } catch (const VipsFailure&) {
    vips_error_clear();
  } catch (const std::exception&) {
    // Out of memory or a file-name problem: the same outcome for the user.
  }
  throw QuillmereError::cannotComposite(main.filename().string());
}

}  // namespace quillmere
