#include "core/scan/media_file.h"

#include <cstdint>
#include <string>
#include <utility>

namespace quillmere {
namespace {

enum DateCase : std::uint8_t { kNoDate = 0, kLocalDate = 1, kAbsoluteDate = 2 };

void putCaptureDate(PackedWriter& out, const std::optional<EmbeddedMetadata::CaptureDate>& date) {
  if (!date) {
    out.putByte(kNoDate);
  } else if (const auto* local = date->asLocal()) {
    out.putByte(kLocalDate);
    out.putText(local->text);
  } else {
    out.putByte(kAbsoluteDate);
    out.putDouble(date->asAbsolute()->date);
  }
  if (date) out.putOptionalInt(date->offsetSeconds());
}

std::optional<EmbeddedMetadata::CaptureDate> captureDateFrom(PackedReader& in) {
  using CaptureDate = EmbeddedMetadata::CaptureDate;
  switch (in.byte()) {
    case kLocalDate: {
      std::string text = in.text();
      return CaptureDate::local(std::move(text), in.optionalInt());
    }
    case kAbsoluteDate: {
      const double date = in.doubleValue();
      return CaptureDate::absolute(date, in.optionalInt());
    }
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<TakeoutSidecar> MediaFile::sidecar() const {
  if (sidecar_.empty()) return std::nullopt;
  return TakeoutSidecar::unpack(sidecar_);
}

void MediaFile::setSidecar(const std::optional<TakeoutSidecar>& value) {
  sidecar_ = value ? value->pack() : PackedRecord();
}

std::optional<EmbeddedMetadata> MediaFile::embedded() const {
  if (embedded_.empty()) return std::nullopt;
  PackedReader in(embedded_);
  EmbeddedMetadata value;
  value.captureDate = captureDateFrom(in);
  if (in.byte() != 0) {
    GeoPoint location;
    location.latitude = in.doubleValue();
    location.longitude = in.doubleValue();
    location.altitude = in.optionalDouble();
    value.location = location;
  }
  value.caption = in.optionalText();
  value.keywords = in.texts();
  value.pixelWidth = in.optionalInt();
  value.pixelHeight = in.optionalInt();
  return value;
}

void MediaFile::setEmbedded(const std::optional<EmbeddedMetadata>& value) {
  if (!value) {
    embedded_ = {};
    return;
  }
  PackedWriter out;  // never empty: an empty record stands for "none"
  putCaptureDate(out, value->captureDate);
  out.putByte(value->location.has_value());
  if (value->location) {
    out.putDouble(value->location->latitude);
    out.putDouble(value->location->longitude);
    out.putOptionalDouble(value->location->altitude);
  }
  out.putOptionalText(value->caption);
  out.putTexts(value->keywords);
  out.putOptionalInt(value->pixelWidth);
  out.putOptionalInt(value->pixelHeight);
  embedded_ = out.finish();
}

MediaFile::Extras MediaFile::extras() const {
  if (extras_.empty()) return {};
  PackedReader in(extras_);
  Extras value;
  value.sidecarName = in.optionalText();
  value.specialFolders = in.texts();
  value.matchNote = in.optionalText();
  value.outputName = in.optionalText();
  return value;
}

void MediaFile::setExtras(const Extras& value) {
  if (!value.sidecarName && value.specialFolders.empty() && !value.matchNote && !value.outputName) {
    extras_ = {};
    return;
  }
  PackedWriter out;
  out.putOptionalText(value.sidecarName);
  out.putTexts(value.specialFolders);
  out.putOptionalText(value.matchNote);
  out.putOptionalText(value.outputName);
  extras_ = out.finish();
}

std::optional<std::string> MediaFile::sidecarName() const { return extras().sidecarName; }

void MediaFile::setSidecarName(const std::optional<std::string>& name) {
  Extras value = extras();
  value.sidecarName = name;
  setExtras(value);
}

std::vector<std::string> MediaFile::specialFolders() const { return extras().specialFolders; }

void MediaFile::setSpecialFolders(const std::vector<std::string>& folders) {
  Extras value = extras();
  value.specialFolders = folders;
  setExtras(value);
}

std::optional<std::string> MediaFile::matchNote() const { return extras().matchNote; }

void MediaFile::setMatchNote(const std::optional<std::string>& note) {
  Extras value = extras();
  value.matchNote = note;
  setExtras(value);
}

std::string MediaFile::outputName() const {
  std::optional<std::string> name = extras().outputName;
  return name ? std::move(*name) : fileName();
}

void MediaFile::setOutputName(const std::string& name) {
  Extras value = extras();
  // The file's own name is the default, so it takes no room.
  value.outputName = name == fileName() ? std::nullopt : std::optional(name);
  setExtras(value);
}

}  // namespace quillmere
