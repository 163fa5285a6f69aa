#include "core/repair/vips_setup.h"

#include <vips/vips.h>

#include <algorithm>
#include <mutex>
#include <thread>

namespace quillmere::VipsSetup {
namespace {

// Enough threads for one photo at a time without taking the whole machine.
constexpr unsigned kMostThreads = 4;

void ignoreLogMessage(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

}  // namespace

bool prepare() {
  static std::once_flag once;
  static bool started = false;
  std::call_once(once, [] {
    if (VIPS_INIT("quillmere") != 0) return;
    vips_cache_set_max(0);
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    vips_concurrency_set(static_cast<int>(std::min(cores, kMostThreads)));
    vips_block_untrusted_set(TRUE);
    // A damaged file is reported as the composite's failure; libvips' own remarks about it
    // would only clutter the console.
    g_log_set_handler("VIPS",
                      static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE),
                      ignoreLogMessage, nullptr);
    started = true;
  });
  return started;
}

}  // namespace quillmere::VipsSetup
