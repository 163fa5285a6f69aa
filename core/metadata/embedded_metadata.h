#ifndef QUILLMERE_CORE_METADATA_EMBEDDED_METADATA_H_
#define QUILLMERE_CORE_METADATA_EMBEDDED_METADATA_H_

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/dates/geo_point.h"

namespace quillmere {

// What a photo or movie already carries. A plain value; a field is absent when the file does not
// state it (or states it unreadably).
struct EmbeddedMetadata {
  // The file's own capture date, in one of two forms.
  class CaptureDate {
   public:
    // A wall clock exactly as a photo's EXIF data writes it ("2021:03:04 10:05:00"), with the UTC
    // offset if the file states one. Without an offset the text names no instant; only the date
    // planner decides how to anchor it.
    struct Local {
      std::string text;
      std::optional<int> offsetSeconds;
      bool operator==(const Local&) const = default;
    };
    // An instant (seconds since the Unix epoch) as movies store it, with the offset if the file's
    // text stated one.
    struct Absolute {
      double date = 0;
      std::optional<int> offsetSeconds;
      bool operator==(const Absolute&) const = default;
    };

    static CaptureDate local(std::string text, std::optional<int> offsetSeconds) {
      return CaptureDate(Local{std::move(text), offsetSeconds});
    }
    static CaptureDate absolute(double date, std::optional<int> offsetSeconds) {
      return CaptureDate(Absolute{date, offsetSeconds});
    }

    // The payload of the case this date is, or null for the other case.
    const Local* asLocal() const { return std::get_if<Local>(&value_); }
    const Absolute* asAbsolute() const { return std::get_if<Absolute>(&value_); }
    // The offset of either case.
    std::optional<int> offsetSeconds() const {
      return asLocal() != nullptr ? asLocal()->offsetSeconds : asAbsolute()->offsetSeconds;
    }

    // Equal when of the same case with equal payloads.
    bool operator==(const CaptureDate&) const = default;

   private:
    explicit CaptureDate(std::variant<Local, Absolute> value) : value_(std::move(value)) {}
    std::variant<Local, Absolute> value_;
  };

  std::optional<CaptureDate> captureDate;
  std::optional<GeoPoint> location;
  std::optional<std::string> caption;  // UTF-8
  std::vector<std::string> keywords;   // UTF-8, as found; empty when none
  std::optional<int> pixelWidth;
  std::optional<int> pixelHeight;

  bool operator==(const EmbeddedMetadata&) const = default;
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_METADATA_EMBEDDED_METADATA_H_
