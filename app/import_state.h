#ifndef QUILLMERE_APP_IMPORT_STATE_H_
#define QUILLMERE_APP_IMPORT_STATE_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "core/photos/photos_importer.h"
#include "core/repair/repair_engine.h"
#include "core/repair/repair_result.h"
#include "core/scan/export_kind.h"
#include "core/scan/work_progress.h"

namespace quillmere {

// Where the photo library is and the key that opens it. Kept for the session only.
struct ImportCredentials {
  std::string url;
  std::string key;
  bool operator==(const ImportCredentials&) const = default;
};

// The state of adding the repaired copies to the photo library.
namespace ImportCase {
struct Running {
  WorkProgress progress;
  bool operator==(const Running&) const = default;
};
struct Done {
  ImportSummary summary;
  bool operator==(const Done&) const = default;
};
struct Failed {
  std::string message;
  bool operator==(const Failed&) const = default;
};
struct Idle {
  bool operator==(const Idle&) const = default;
};
}  // namespace ImportCase

using ImportState =
    std::variant<ImportCase::Running, ImportCase::Done, ImportCase::Failed, ImportCase::Idle>;

// What the model and the result screen need of the importer and the library behind it.
struct ImportBackend {
  // Runs the import on the calling thread. `credentials` absent: the library's own defaults
  // (environment, the library's configuration file). Throws with a message to show.
  std::function<ImportSummary(const RepairResult&, ExportKind,
                              const std::optional<ImportCredentials>&, const ProgressCallback&,
                              const CancelQuery&)>
      run;
  // How many items an import of `result` would add.
  std::function<std::int64_t(const RepairResult&)> itemCount;
  // True when the library's address and key are known without asking the user.
  std::function<bool()> hasKnownCredentials;
  // Checks `credentials` against the server: absent when they work, else a message to show.
  std::function<std::optional<std::string>(const ImportCredentials&)> checkCredentials;
};

}  // namespace quillmere

#endif  // QUILLMERE_APP_IMPORT_STATE_H_
