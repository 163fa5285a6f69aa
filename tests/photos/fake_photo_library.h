#ifndef QUILLMERE_TESTS_PHOTOS_FAKE_PHOTO_LIBRARY_H_
#define QUILLMERE_TESTS_PHOTOS_FAKE_PHOTO_LIBRARY_H_

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/photos/photos_importer.h"

namespace quillmere::testing {

// An in-memory photo library that can be told to refuse things, and that remembers every call.
class FakePhotoLibrary : public PhotoLibrary {
 public:
  struct Asset {
    std::string photo, pairedVideo, video;  // file names; empty when absent
    std::optional<double> date;
    std::optional<GeoPoint> location;
  };
  struct Album {
    std::string title, folder;
    std::vector<std::string> assets;
  };

  // Switches.
  bool allow = true;
  bool refusePairs = false;
  std::set<std::string> failFiles;   // file names whose every asset call fails
  std::set<std::string> failAlone;   // file names that fail only when added on their own
  std::set<std::string> failAlbums;  // album titles whose album() call fails
  bool failAdd = false;
  bool failFolder = false;
  // Called first thing in every operation with its name ("addAsset", "album", ...).
  std::function<void(const std::string&)> onCall;

  // State.
  std::map<std::string, Asset> assets;
  std::set<std::string> folders;  // id -> present
  std::map<std::string, std::string> folderTitles;
  std::map<std::string, Album> albums;
  std::vector<std::string> calls;  // "addAsset", "folder", "album:NAME", ...
  std::vector<std::pair<std::string, std::size_t>> addCalls;  // album id, chunk size

  std::string name() const override { return "Fake"; }
  std::string address() const override { return "fake://library"; }
  bool authorize() override {
    note("authorize");
    return allow;
  }
  std::string authorizationProblem() const override { return allow ? "" : "Not allowed."; }

  std::string addAsset(const std::optional<std::filesystem::path>& photo,
                       const std::optional<std::filesystem::path>& pairedVideo,
                       const std::optional<std::filesystem::path>& video,
                       std::optional<double> date,
                       const std::optional<GeoPoint>& location) override {
    note("addAsset");
    Asset asset{nameOf(photo), nameOf(pairedVideo), photo ? "" : nameOf(video), date, location};
    const bool alone = (asset.photo.empty() + asset.pairedVideo.empty() + asset.video.empty()) == 2;
    for (const std::string* file : {&asset.photo, &asset.pairedVideo, &asset.video}) {
      if (file->empty()) continue;
      if (failFiles.contains(*file) || (alone && failAlone.contains(*file))) {
        throw PhotoLibraryError(PhotoLibraryError::Kind::refused,
                                "The library refused " + *file + ", sorry.");
      }
    }
    if (refusePairs && !asset.pairedVideo.empty()) {
      throw PhotoLibraryError(PhotoLibraryError::Kind::refused, "These don't pair.");
    }
    const std::string id = "asset-" + std::to_string(nextID_++);
    assets[id] = asset;
    return id;
  }

  std::string folder(const std::string& title,
                     const std::optional<std::string>& existing) override {
    note("folder");
    if (failFolder) throw PhotoLibraryError(PhotoLibraryError::Kind::unreachable, "No folder.");
    if (existing && folders.contains(*existing)) return *existing;
    const std::string id = "folder-" + std::to_string(nextID_++);
    folders.insert(id);
    folderTitles[id] = title;
    return id;
  }

  std::string album(const std::string& title, const std::string& folder,
                    const std::optional<std::string>& existing) override {
    note("album:" + title);
    if (failAlbums.contains(title)) {
      throw PhotoLibraryError(PhotoLibraryError::Kind::refused, "No album for " + title + ".");
    }
    if (existing && albums.contains(*existing)) return *existing;
    if (!folders.contains(folder)) {
      throw PhotoLibraryError(PhotoLibraryError::Kind::notFound, "No such folder.");
    }
    const std::string id = "album-" + std::to_string(nextID_++);
    albums[id] = {title, folder, {}};
    return id;
  }

  void add(const std::vector<std::string>& ids, const std::string& album) override {
    note("add");
    if (failAdd) throw PhotoLibraryError(PhotoLibraryError::Kind::refused, "Can't fill albums.");
    addCalls.emplace_back(album, ids.size());
    auto& members = albums.at(album).assets;
    for (const std::string& id : ids) {
      if (std::find(members.begin(), members.end(), id) == members.end()) members.push_back(id);
    }
  }

  // The album titled `title`, which must exist exactly once.
  const Album& albumTitled(const std::string& title) const {
    const Album* found = nullptr;
    for (const auto& [id, album] : albums) {
      if (album.title == title) {
        if (found != nullptr) throw std::logic_error("two albums titled " + title);
        found = &album;
      }
    }
    if (found == nullptr) throw std::logic_error("no album titled " + title);
    return *found;
  }

 private:
  static std::string nameOf(const std::optional<std::filesystem::path>& file) {
    return file ? file->filename().string() : "";
  }
  void note(const std::string& call) {
    calls.push_back(call);
    if (onCall) onCall(call);
  }

  int nextID_ = 1;
};

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_PHOTOS_FAKE_PHOTO_LIBRARY_H_
