#ifndef QUILLMERE_CORE_PHOTOS_PHOTOS_IMPORTER_H_
#define QUILLMERE_CORE_PHOTOS_PHOTOS_IMPORTER_H_

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/dates/geo_point.h"
#include "core/repair/repair_engine.h"
#include "core/repair/repair_result.h"
#include "core/scan/export_kind.h"
#include "core/scan/work_progress.h"

namespace quillmere {

// One thing to add to a photo library. Paths are relative to the run folder.
struct ImportItem {
  std::optional<std::string> photo;        // a still image
  std::optional<std::string> pairedVideo;  // the movie half of a Live Photo; only with `photo`
  std::optional<std::string> video;        // a stand-alone movie
  std::optional<double> date;              // capture instant, seconds since the Unix epoch
  std::optional<GeoPoint> location;
  std::vector<std::string> albums;  // the export's albums the item belongs to, sorted

  // photo, pairedVideo, video, leaving out the absent ones. The first is the item's key in the
  // import record and its name in the import log.
  std::vector<std::string> paths() const;

  bool operator==(const ImportItem&) const = default;
};

// The outcome of one import run.
struct ImportSummary {
  std::int64_t items = 0;            // items built from the repair result
  std::int64_t imported = 0;         // added in this run (paired, single, or split)
  std::int64_t alreadyImported = 0;  // skipped: an earlier run added them
  std::int64_t livePhotos = 0;       // Live Photos added as one paired asset
  std::int64_t livePhotosSplit = 0;  // Live Photos the library wouldn't pair, added apart
  std::int64_t failed = 0;           // items that could not be added
  std::int64_t albums = 0;           // albums filled, the album of all items included
  std::string folderTitle;           // the library folder that holds the albums

  bool operator==(const ImportSummary&) const = default;
};

// An object with the field names as keys (in declaration order with an ordered json).
// from_json requires every key with its type and throws nlohmann::json exceptions otherwise.
void to_json(nlohmann::json& json, const ImportSummary& summary);
void from_json(const nlohmann::json& json, ImportSummary& summary);
void to_json(nlohmann::ordered_json& json, const ImportSummary& summary);
void from_json(const nlohmann::ordered_json& json, ImportSummary& summary);

// A failure of a photo library. what() is one or two sentences a person can act on ("Check
// the server address…"), shown as it stands.
class PhotoLibraryError : public std::runtime_error {
 public:
  enum class Kind {
    unreachable,     // no answer from the library (address, network, TLS, time-out)
    notSignedIn,     // the library refused the credentials
    missingAccess,   // signed in, but without a permission the import needs
    refused,         // the library refused this file or request (type, pairing, size, quota)
    notFound,        // an album or folder that should exist is gone
    badAnswer,       // the library answered something this program cannot read
    unreadableFile,  // a file to add could not be read from disk
    misconfigured,   // no library address or key was given
  };

  PhotoLibraryError(Kind kind, const std::string& message)
      : std::runtime_error(message), kind_(kind) {}

  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

// A photo library the importer adds to. Identifiers are the library's own, opaque text. Calls
// are made one at a time from one thread; an implementation needs no locking of its own.
class PhotoLibrary {
 public:
  virtual ~PhotoLibrary() = default;

  // The library's name as the user knows it ("Immich"); progress reads "Adding to " + name.
  virtual std::string name() const = 0;
  // Where the library is, for messages (a server's address).
  virtual std::string address() const = 0;

  // True when adding to the library is allowed. Never throws.
  virtual bool authorize() = 0;
  // After authorize() returned false: why, as a sentence a person can act on ("The API key
  // lacks the album.create permission…"); may be empty.
  virtual std::string authorizationProblem() const { return {}; }

  // Creates one asset and returns its identifier: a Live Photo from `photo` and `pairedVideo`,
  // a still from `photo` alone, a movie from `video` alone (`video` is ignored beside `photo`).
  // `date` and `location` are the asset's creation instant and place when given. Throws
  // PhotoLibraryError when the asset can't be created. A failed Live Photo call may leave its
  // movie in the library; adding the same movie again then returns that asset.
  virtual std::string addAsset(const std::optional<std::filesystem::path>& photo,
                               const std::optional<std::filesystem::path>& pairedVideo,
                               const std::optional<std::filesystem::path>& video,
                               std::optional<double> date,
                               const std::optional<GeoPoint>& location) = 0;

  // The folder `existing` if given and still present, else a new folder titled `title`.
  // Throws PhotoLibraryError.
  virtual std::string folder(const std::string& title,
                             const std::optional<std::string>& existing) = 0;

  // The album `existing` if given and still present, else a new album titled `title` inside
  // the folder `folder`. Throws PhotoLibraryError.
  virtual std::string album(const std::string& title, const std::string& folder,
                            const std::optional<std::string>& existing) = 0;

  // Adds `assets` to the album `album`; assets it already holds are no error. Throws
  // PhotoLibraryError.
  virtual void add(const std::vector<std::string>& assets, const std::string& album) = 0;
};

// The library refused to let this program add to it.
class PhotosImportError : public std::runtime_error {
 public:
  enum class Kind { notAuthorized };

  // "Quillmere couldn't sign in to <library> at <address>. Check the server address and API
  // key (it needs the asset and album permissions), then try again."
  // `reason` is the library's authorizationProblem(), kept apart from the fixed message.
  static PhotosImportError notAuthorized(const std::string& library, const std::string& address,
                                         std::string reason = {});

  Kind kind() const { return kind_; }
  const std::string& address() const { return address_; }
  // What the library said was wrong, to show under the message; may be empty.
  const std::string& reason() const { return reason_; }

 private:
  PhotosImportError(Kind kind, std::string address, std::string reason, const std::string& message);

  Kind kind_;
  std::string address_;
  std::string reason_;
};

// The progress phase texts of an import ("Adding to " + the library's name is the first).
namespace ImportPhase {
inline constexpr std::string_view addingTo = "Adding to ";
inline constexpr std::string_view creatingAlbums = "Creating albums";
}  // namespace ImportPhase

// Adds the repaired copies of a run to a photo library, idempotently: what was added is kept in
// "photos-import.json" in the report folder, and each run appends what it tried to
// "photos-import.csv" there. Never changes or deletes anything already in the library.
// Stateless.
namespace PhotosImporter {

inline constexpr std::string_view recordFileName = "photos-import.json";
inline constexpr std::string_view logFileName = "photos-import.csv";

// What earlier runs added to the library for one run folder.
struct Record {
  std::optional<std::string> folderID;
  std::optional<std::string> folderTitle;
  std::map<std::string, std::string> albumIDs;  // album name -> album identifier
  std::map<std::string, std::string> assets;    // item path -> asset identifier

  bool operator==(const Record&) const = default;
};

// {"folderID", "folderTitle" (both left out when absent), "albumIDs", "assets"}.
nlohmann::json recordJSON(const Record& record);
// The record in `json`; an empty record when it isn't an object with "albumIDs" and "assets"
// objects of strings. Never throws.
Record recordFromJSON(const nlohmann::json& json);

// The record in `reportFolder`; empty when the file is missing, unreadable or not a record.
Record readRecord(const std::filesystem::path& reportFolder);
// Writes the whole record atomically. False when it could not be written (nothing changed).
bool saveRecord(const Record& record, const std::filesystem::path& reportFolder);

// One line of the import log: the item's first path, whether it was added, and the note.
struct LogLine {
  std::string file;
  bool imported = false;
  std::string note;

  bool operator==(const LogLine&) const = default;
};

// One log field: an apostrophe put before a leading "=", "+", "-" or "@" so spreadsheets don't
// take it for a formula, then quoted (with doubled quotes) when it holds a comma, a quote, a
// line feed or a carriage return.
std::string logField(std::string_view text);
// Appends `lines` to "photos-import.csv" in `reportFolder` under its one header line
// "file,outcome,note", rewriting the file whole and atomically; an existing file that isn't
// UTF-8 is replaced. False when it could not be written.
bool appendLog(const std::vector<LogLine>& lines, const std::filesystem::path& reportFolder);

// The items to add for the rows of `result`: failed and copy-less rows left out, one item per
// file except the still and movie of a Live Photo, which become one paired item. Pure.
std::vector<ImportItem> items(const RepairResult& result);

// "Quillmere: Google Photos (Mar 5, 2025 14:07)" or "Quillmere: Snapchat (…)" with the local
// time of `now` in the machine's zone. The result is not used; it stays for symmetry with the
// other calls that describe one run.
std::string folderTitle(
    const RepairResult& result, ExportKind kind,
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

// The album that holds every item: "Snapchat Memories" or "All imported items".
std::string allItemsAlbum(ExportKind kind);

// Adds the items of `result` to `library`. Polls `isCancelled` before each item; a cancelled run
// still fills the albums with what was added and returns normally. Throws
// PhotosImportError::notAuthorized when the library refuses access (nothing written), and the
// library's PhotoLibraryError when the folder can't be had (nothing written) or an album call
// fails (the record kept, the log not written).
ImportSummary run(const RepairResult& result, ExportKind scanKind, PhotoLibrary& library,
                  const ProgressCallback& progress = {}, const CancelQuery& isCancelled = {});

}  // namespace PhotosImporter

}  // namespace quillmere

#endif  // QUILLMERE_CORE_PHOTOS_PHOTOS_IMPORTER_H_
