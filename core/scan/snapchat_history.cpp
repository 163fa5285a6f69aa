#include "core/scan/snapchat_history.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

#include "core/dates/iso_date.h"
#include "core/scan/json_reader.h"
#include "core/sources/unicode_text.h"

namespace quillmere::SnapchatScanner {
namespace {

using nlohmann::json;

constexpr std::array<std::string_view, 5> kIdentifierKeys = {"Download Link", "Media Download Url",
                                                             "Media ID", "Id", "ID"};
constexpr std::array<std::string_view, 4> kIdentifierQueryNames = {"mid", "sid", "uid", "id"};

bool isHex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// True when an 8-4-4-4-12 identifier starts at `at`.
bool uuidAt(std::string_view text, std::size_t at) {
  static constexpr int kGroups[] = {8, 4, 4, 4, 12};
  if (text.size() - at < 36) return false;
  std::size_t pos = at;
  for (int g = 0; g < 5; ++g) {
    if (g > 0 && text[pos++] != '-') return false;
    for (int i = 0; i < kGroups[g]; ++i) {
      if (!isHex(text[pos++])) return false;
    }
  }
  return true;
}

std::string percentDecoded(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2])) {
      out += static_cast<char>(std::stoi(std::string(text.substr(i + 1, 2)), nullptr, 16));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

struct QueryItem {
  std::string name;
  std::string value;
};

// The query items of `text` when it reads as a URL with a scheme; nullopt otherwise.
std::optional<std::vector<QueryItem>> urlQueryItems(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon == 0 ||
      !std::isalpha(static_cast<unsigned char>(text[0]))) {
    return std::nullopt;
  }
  for (char c : text.substr(0, colon)) {
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.')
      return std::nullopt;
  }
  if (std::any_of(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\t'; })) {
    return std::nullopt;
  }
  const std::size_t question = text.find('?');
  if (question == std::string_view::npos) return std::nullopt;
  std::string_view query = text.substr(question + 1);
  query = query.substr(0, query.find('#'));
  std::vector<QueryItem> items;
  for (std::size_t start = 0; start <= query.size();) {
    std::size_t amp = query.find('&', start);
    if (amp == std::string_view::npos) amp = query.size();
    const std::string_view pair = query.substr(start, amp - start);
    if (!pair.empty()) {
      const std::size_t equals = pair.find('=');
      items.push_back(
          {percentDecoded(pair.substr(0, equals)),
           equals == std::string_view::npos ? "" : percentDecoded(pair.substr(equals + 1))});
    }
    start = amp + 1;
  }
  if (items.empty()) return std::nullopt;
  return items;
}

std::vector<std::string> identifiersOf(const json& object) {
  std::vector<std::string> ids;
  for (std::string_view key : kIdentifierKeys) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string()) continue;
    const std::string& value = found->get_ref<const std::string&>();
    std::string upper = value;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    if (UnicodeText::graphemeCount(value) < 5 || upper == "N/A") continue;
    if (const auto items = urlQueryItems(value)) {
      for (const QueryItem& item : *items) {
        const std::string name = UnicodeText::lowercased(item.name);
        const bool named = std::find(kIdentifierQueryNames.begin(), kIdentifierQueryNames.end(),
                                     name) != kIdentifierQueryNames.end();
        if (named && UnicodeText::graphemeCount(item.value) > 7) ids.push_back(item.value);
      }
      for (std::string& id : uuids(value)) ids.push_back(std::move(id));
    } else {
      ids.push_back(value);
    }
  }
  return ids;
}

bool isArrayOfObjects(const json& value) {
  return value.is_array() &&
         std::all_of(value.begin(), value.end(), [](const json& v) { return v.is_object(); });
}

const json* entryList(const json& top) {
  if (isArrayOfObjects(top)) return &top;
  if (!top.is_object()) return nullptr;
  if (const auto saved = top.find("Saved Media"); saved != top.end() && isArrayOfObjects(*saved)) {
    return &*saved;
  }
  for (const auto& [key, value] : top.items()) {
    if (isArrayOfObjects(value) && !value.empty() && value.front().contains("Date")) return &value;
  }
  return nullptr;
}

std::optional<std::string> textMember(const json& object, std::string_view key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

}  // namespace

std::optional<double> parseDate(std::string_view text) {
  std::string cleaned;
  for (std::size_t i = 0; i < text.size();) {
    if (text.substr(i, 4) == " UTC") {
      i += 4;
    } else {
      cleaned += text[i++];
    }
  }
  const std::size_t first = cleaned.find_first_not_of(" \t");
  if (first == std::string::npos) return std::nullopt;
  cleaned = cleaned.substr(first, cleaned.find_last_not_of(" \t") - first + 1);
  if (cleaned.size() < 19) return std::nullopt;
  const auto parsed = ISODate::parse(cleaned.substr(0, 10) + "T" + cleaned.substr(11, 8) + "Z");
  if (!parsed) return std::nullopt;
  return parsed->date;
}

std::optional<GeoPoint> parseLocation(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  std::vector<double> numbers;
  const std::string_view chars = "0123456789.-";
  std::size_t pos = 0;
  while ((pos = text->find_first_of(chars, pos)) != std::string::npos) {
    std::size_t end = text->find_first_not_of(chars, pos);
    if (end == std::string::npos) end = text->size();
    double value = 0;
    const auto [stop, error] = std::from_chars(text->data() + pos, text->data() + end, value);
    if (error == std::errc() && stop == text->data() + end && std::isfinite(value)) {
      numbers.push_back(value);
    }
    pos = end;
  }
  if (numbers.size() < 2) return std::nullopt;
  const double latitude = numbers[0], longitude = numbers[1];
  if (latitude == 0 && longitude == 0) return std::nullopt;
  if (std::abs(latitude) > 90 || std::abs(longitude) > 180) return std::nullopt;
  return GeoPoint{latitude, longitude, std::nullopt};
}

std::vector<std::string> uuids(std::string_view text) {
  std::vector<std::string> found;
  for (std::size_t i = 0; i + 36 <= text.size();) {
    if (uuidAt(text, i)) {
      found.emplace_back(text.substr(i, 36));
      i += 36;
    } else {
      ++i;
    }
  }
  return found;
}

std::vector<std::string> tokens(std::string_view text) {
  std::vector<std::string> out;
  for (const std::string& run : UnicodeText::wordRuns(text, "-")) {
    out.push_back(run);
    std::size_t start = 0;
    while (start <= run.size()) {
      std::size_t dash = run.find('-', start);
      if (dash == std::string::npos) dash = run.size();
      if (dash > start) out.push_back(run.substr(start, dash - start));
      start = dash + 1;
    }
    for (std::string& id : uuids(run)) out.push_back(std::move(id));
  }
  return out;
}

std::vector<Entry> parseHistory(std::span<const std::uint8_t> bytes) {
  const std::optional<json> top = JSONReader::parse(bytes);
  const json* list = top ? entryList(*top) : nullptr;
  std::vector<Entry> entries;
  if (list == nullptr) return entries;
  for (const json& object : *list) {
    const std::optional<std::string> date = textMember(object, "Date");
    const std::optional<double> utc = date ? parseDate(*date) : std::nullopt;
    if (!utc) continue;
    Entry entry;
    entry.utc = *utc;
    const std::string type = UnicodeText::lowercased(textMember(object, "Media Type").value_or(""));
    entry.kind = type.starts_with("video") ? MediaKind::video : MediaKind::photo;
    entry.ids = identifiersOf(object);
    entry.location = parseLocation(textMember(object, "Location"));
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace quillmere::SnapchatScanner
