#ifndef QUILLMERE_CLI_SCAN_SUMMARY_TEXT_H_
#define QUILLMERE_CLI_SCAN_SUMMARY_TEXT_H_

#include <string>

#include "core/scan/scan_result.h"

namespace quillmere::cli {

// The scan summary as the desktop app words it, as plain text for a terminal: the heading, the
// source line, the three stats and the findings with their fixes.
std::string scanSummaryText(const ScanResult& result);

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_SCAN_SUMMARY_TEXT_H_
