#include "core/scan/takeout_json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "core/sources/unicode_text.h"

namespace quillmere {
namespace {

using nlohmann::json;

// The top-level keys parse reads; every other member is checked for syntax and dropped.
constexpr std::array<std::string_view, 11> kKeptKeys = {
    "title",       "description", "url",       "photoTakenTime", "creationTime", "geoData",
    "geoDataExif", "people",      "favorited", "archived",       "trashed"};

bool isKeptKey(std::string_view key) {
  for (const std::string_view kept : kKeptKeys) {
    if (key == kept) return true;
  }
  return false;
}

// Builds the top-level object with only the members parse reads, so a file full of other data
// costs no allocations for it, and aborts the parse on nesting deeper than maximumDepth. Any
// other top level (array, scalar) is checked for syntax and dropped too.
class TopLevelCollector final : public nlohmann::json_sax<json> {
 public:
  bool isObject() const { return isObject_; }
  std::size_t memberCount() const { return memberCount_; }
  const json& object() const { return root_; }

  bool null() override { return add(json()); }
  bool boolean(bool value) override { return add(json(value)); }
  bool number_integer(number_integer_t value) override { return add(json(value)); }
  bool number_unsigned(number_unsigned_t value) override { return add(json(value)); }
  bool number_float(number_float_t value, const string_t& /*text*/) override {
    return add(json(value));
  }
  bool string(string_t& value) override { return add(json(std::move(value))); }
  bool binary(binary_t& /*value*/) override { return false; }  // not produced by JSON text

  bool start_object(std::size_t /*elements*/) override { return open(json::object()); }
  bool start_array(std::size_t /*elements*/) override { return open(json::array()); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& key) override {
    if (skipDepth_ > 0) return true;
    json& container = *open_.back();
    if (open_.size() == 1) {
      ++memberCount_;
      if (!isKeptKey(key)) {
        skipNext_ = true;
        return true;
      }
    }
    // Assigning over an earlier member of the same name keeps the last one, like a full parse.
    slot_ = &container[std::move(key)];
    return true;
  }

  bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& /*error*/) override {
    return false;
  }

 private:
  // Where a value arriving now goes: nullptr when it is dropped.
  json* slotForValue() {
    if (skipDepth_ > 0) return nullptr;
    if (skipNext_) {
      skipNext_ = false;
      return nullptr;
    }
    if (open_.empty()) return nullptr;  // a top-level scalar
    json& container = *open_.back();
    if (container.is_array()) {
      container.push_back(json());
      return &container.back();
    }
    return slot_;
  }

  bool add(json value) {
    if (json* slot = slotForValue()) *slot = std::move(value);
    return true;
  }

  bool open(json container) {
    if (++depth_ > TakeoutJSON::maximumDepth) return false;
    if (depth_ == 1) {
      isObject_ = container.is_object();
      if (!isObject_) {
        skipDepth_ = 1;  // only an object can be of use
        return true;
      }
      root_ = std::move(container);
      open_.push_back(&root_);
      return true;
    }
    if (skipDepth_ > 0) {
      ++skipDepth_;
      return true;
    }
    json* slot = slotForValue();
    if (slot == nullptr) {
      skipDepth_ = 1;
      return true;
    }
    *slot = std::move(container);
    open_.push_back(slot);  // stays valid: its parent grows only after it is closed
    return true;
  }

  bool close() {
    --depth_;
    if (skipDepth_ > 0) {
      --skipDepth_;
    } else {
      open_.pop_back();
    }
    return true;
  }

  json root_;
  std::vector<json*> open_;  // containers being built, innermost last
  json* slot_ = nullptr;     // the member named by the last key
  std::size_t depth_ = 0;
  std::size_t skipDepth_ = 0;  // > 0 while inside a dropped container
  bool skipNext_ = false;      // the next value belongs to a dropped member
  bool isObject_ = false;
  std::size_t memberCount_ = 0;
};

const json* member(const json& object, std::string_view key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> stringMember(const json& object, std::string_view key) {
  const json* value = member(object, key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

// A string member that is not blank, kept exactly as written.
std::optional<std::string> textMember(const json& object, std::string_view key) {
  auto text = stringMember(object, key);
  if (text && UnicodeText::isBlank(*text)) return std::nullopt;
  return text;
}

// Exact JSON Booleans only (see the header).
bool flagMember(const json& object, std::string_view key) {
  const json* value = member(object, key);
  return value != nullptr && value->is_boolean() && value->get<bool>();
}

// A JSON number as a finite double; Booleans are not numbers here.
std::optional<double> numberValue(const json& value) {
  if (!value.is_number()) return std::nullopt;
  const double number = value.get<double>();
  if (!std::isfinite(number)) return std::nullopt;
  return number;
}

// A decimal floating-point number filling the whole text, with an optional sign; no white
// space, hexadecimal, infinity or NaN.
std::optional<double> decimalNumber(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
    if (text.starts_with('-')) return std::nullopt;
  }
  double number = 0;
  const auto [end, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::general);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  if (!std::isfinite(number)) return std::nullopt;
  return number;
}

std::vector<std::string> people(const json& object) {
  std::vector<std::string> names;
  const json* list = member(object, "people");
  if (list == nullptr || !list->is_array()) return names;
  for (const json& entry : *list) {
    if (!entry.is_object()) return {};  // not a list of objects as a whole
  }
  for (const json& entry : *list) {
    if (auto name = stringMember(entry, "name")) names.push_back(std::move(*name));
  }
  return names;
}

TakeoutSidecar readSidecar(const json& object) {
  TakeoutSidecar sidecar;
  sidecar.title = stringMember(object, "title");
  sidecar.description = textMember(object, "description");
  if (const json* value = member(object, "photoTakenTime")) {
    sidecar.photoTakenTime = TakeoutJSON::timestamp(*value);
  }
  if (const json* value = member(object, "creationTime")) {
    sidecar.creationTime = TakeoutJSON::timestamp(*value);
  }
  if (const json* value = member(object, "geoData")) sidecar.geoData = TakeoutJSON::geo(*value);
  if (const json* value = member(object, "geoDataExif")) {
    sidecar.geoDataExif = TakeoutJSON::geo(*value);
  }
  sidecar.url = stringMember(object, "url");
  sidecar.people = people(object);
  sidecar.favorited = flagMember(object, "favorited");
  sidecar.archived = flagMember(object, "archived");
  sidecar.trashed = flagMember(object, "trashed");
  return sidecar;
}

}  // namespace

TakeoutJSON TakeoutJSON::parse(std::span<const std::uint8_t> data) {
  if (data.size() >= maximumSize) return {};
  // A raw NUL byte is never valid JSON, but the parser takes it as the end of the input; refuse
  // it so that "{...}" followed by a NUL and garbage is not read as "{...}".
  if (std::find(data.begin(), data.end(), std::uint8_t{0}) != data.end()) return {};
  try {
    TopLevelCollector collector;
    if (!json::sax_parse(data.data(), data.data() + data.size(), &collector)) return {};
    if (!collector.isObject() || collector.memberCount() == 0) return {};
    const json& object = collector.object();
    const bool isPhoto = object.contains("photoTakenTime") ||
                         (object.contains("creationTime") && object.contains("geoData"));
    if (isPhoto) return {readSidecar(object)};
    if (auto title = stringMember(object, "title")) {
      return {TakeoutAlbumInfo{std::move(*title), textMember(object, "description")}};
    }
    return {};
  } catch (const std::exception&) {
    // Only running out of memory can get here; one unreadable file must not end a scan.
    return {};
  }
}

TakeoutJSON TakeoutJSON::parse(std::string_view text) {
  return parse(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::optional<double> TakeoutJSON::timestamp(const json& value) {
  if (!value.is_object()) return std::nullopt;
  const json* stamp = member(value, "timestamp");
  if (stamp == nullptr) return std::nullopt;
  std::optional<double> seconds;
  if (stamp->is_string()) {
    seconds = decimalNumber(stamp->get_ref<const std::string&>());
  } else {
    seconds = numberValue(*stamp);
  }
  if (!seconds || !(*seconds > 0)) return std::nullopt;
  return seconds;
}

std::optional<TakeoutSidecar::Geo> TakeoutJSON::geo(const json& value) {
  if (!value.is_object()) return std::nullopt;
  const json* latitude = member(value, "latitude");
  const json* longitude = member(value, "longitude");
  if (latitude == nullptr || longitude == nullptr) return std::nullopt;
  const auto lat = numberValue(*latitude);
  const auto lon = numberValue(*longitude);
  if (!lat || !lon) return std::nullopt;
  TakeoutSidecar::Geo geo{*lat, *lon, 0};
  if (const json* altitude = member(value, "altitude"))
    geo.altitude = numberValue(*altitude).value_or(0);
  return geo;
}

}  // namespace quillmere
