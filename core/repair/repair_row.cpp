#include "core/repair/repair_row.h"

#include <limits>
#include <nlohmann/json.hpp>

namespace quillmere {

// The status's label doubles as its raw value, so readRawValue can decode it.
template <>
std::optional<RepairRow::Status> fromRawValue<RepairRow::Status>(std::string_view raw) {
  return repairStatusFromLabel(raw);
}

namespace {

template <typename Json>
[[noreturn]] void fail(const Json& json, const char* what) {
  throw Json::type_error::create(302, what, &json);
}

// A JSON integer that fits in 64 signed bits; floats and strings are refused rather than
// truncated or parsed.
template <typename Json>
std::int64_t integerAt(const Json& json, const char* key) {
  const Json& value = json.at(key);
  if (value.is_number_unsigned()) {
    const auto unsignedValue = value.template get<std::uint64_t>();
    if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      fail(value, "integer too large");
    }
    return static_cast<std::int64_t>(unsignedValue);
  }
  if (!value.is_number_integer()) fail(value, "not an integer");
  return value.template get<std::int64_t>();
}

template <typename Enum, typename Json>
Enum rawValueAt(const Json& json, const char* key, const char* what) {
  Enum value{};
  readRawValue(json.at(key), value, what);
  return value;
}

// The value at `key` unless it is missing or null.
template <typename Json>
const Json* presentAt(const Json& json, const char* key) {
  const auto found = json.find(key);
  if (found == json.end() || found->is_null()) return nullptr;
  return &*found;
}

template <typename Json>
void rowToJSON(Json& json, const RepairRow& row) {
  json = Json::object();
  json["item"] = row.item;
  json["itemKind"] = rawValue(row.itemKind);
  json["source"] = row.source;
  json["output"] = row.output;
  json["status"] = label(row.status);
  json["dateBefore"] = row.dateBefore;
  json["dateAfter"] = row.dateAfter;
  json["dateSource"] = rawValue(row.dateSource);
  json["timeZone"] = row.timeZone;
  json["timeZoneSource"] = rawValue(row.timeZoneSource);
  json["locationWritten"] = row.locationWritten;
  json["captionWritten"] = row.captionWritten;
  json["albums"] = row.albums;
  json["method"] = row.method;
  json["notes"] = row.notes;
  json["overlayMerged"] = row.overlayMerged;
  if (row.captureUTC) json["captureUTC"] = *row.captureUTC;
  if (row.location) json["location"] = *row.location;
}

template <typename Json>
void rowFromJSON(const Json& json, RepairRow& row) {
  if (!json.is_object()) fail(json, "not a repair row");
  RepairRow decoded;
  decoded.item = integerAt(json, "item");
  decoded.itemKind = rawValueAt<MediaUnit::Kind>(json, "itemKind", "not a media unit kind");
  decoded.source = json.at("source").template get<std::string>();
  decoded.output = json.at("output").template get<std::string>();
  decoded.status = rawValueAt<RepairRow::Status>(json, "status", "not a repair status");
  decoded.dateBefore = json.at("dateBefore").template get<std::string>();
  decoded.dateAfter = json.at("dateAfter").template get<std::string>();
  decoded.dateSource = rawValueAt<DateSource>(json, "dateSource", "not a date source");
  decoded.timeZone = json.at("timeZone").template get<std::string>();
  decoded.timeZoneSource = rawValueAt<OffsetSource>(json, "timeZoneSource", "not an offset source");
  decoded.locationWritten = json.at("locationWritten").template get<bool>();
  decoded.captionWritten = json.at("captionWritten").template get<bool>();
  decoded.albums = json.at("albums").template get<std::vector<std::string>>();
  decoded.method = json.at("method").template get<std::string>();
  decoded.notes = json.at("notes").template get<std::vector<std::string>>();
  decoded.overlayMerged = json.at("overlayMerged").template get<bool>();
  if (const Json* utc = presentAt(json, "captureUTC")) {
    if (!utc->is_number()) fail(*utc, "captureUTC is not a number");
    decoded.captureUTC = utc->template get<double>();
  }
  if (const Json* location = presentAt(json, "location")) {
    decoded.location = location->template get<GeoPoint>();
  }
  row = std::move(decoded);
}

}  // namespace

std::string_view label(RepairRow::Status status) {
  switch (status) {
    case RepairRow::Status::fixed:
      return "fixed";
    case RepairRow::Status::unchanged:
      return "unchanged";
    case RepairRow::Status::couldntFix:
      return "couldn't fix";
    case RepairRow::Status::failed:
      break;
  }
  return "failed";
}

std::optional<RepairRow::Status> repairStatusFromLabel(std::string_view text) {
  for (const auto status : {RepairRow::Status::fixed, RepairRow::Status::unchanged,
                            RepairRow::Status::couldntFix, RepairRow::Status::failed}) {
    if (label(status) == text) return status;
  }
  return std::nullopt;
}

void to_json(nlohmann::json& json, RepairRow::Status status) { json = label(status); }

void from_json(const nlohmann::json& json, RepairRow::Status& status) {
  readRawValue(json, status, "not a repair status");
}

void to_json(nlohmann::ordered_json& json, const RepairRow& row) { rowToJSON(json, row); }
void from_json(const nlohmann::ordered_json& json, RepairRow& row) { rowFromJSON(json, row); }
void to_json(nlohmann::json& json, const RepairRow& row) { rowToJSON(json, row); }
void from_json(const nlohmann::json& json, RepairRow& row) { rowFromJSON(json, row); }

}  // namespace quillmere
