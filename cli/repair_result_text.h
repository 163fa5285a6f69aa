#ifndef QUILLMERE_CLI_REPAIR_RESULT_TEXT_H_
#define QUILLMERE_CLI_REPAIR_RESULT_TEXT_H_

#include <string>

#include "core/repair/repair_result.h"

namespace quillmere::cli {

// The result of a repair as the desktop app's result screen words it, as plain text for a
// terminal: where the copies went, the title, and the two rows of stats.
std::string repairResultText(const RepairResult& result);

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_REPAIR_RESULT_TEXT_H_
