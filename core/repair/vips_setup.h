#ifndef QUILLMERE_CORE_REPAIR_VIPS_SETUP_H_
#define QUILLMERE_CORE_REPAIR_VIPS_SETUP_H_

namespace quillmere::VipsSetup {

// Starts libvips for the core, once per process; call before any use of libvips. Turns its
// operation cache off (each photo is decoded once, and a cache would only hold memory), bounds
// its worker threads, refuses the loaders libvips marks as unsafe for untrusted files, and
// silences its console warnings. Thread-safe and cheap after the first call. False when
// libvips could not start; every later call then gives false too.
bool prepare();

}  // namespace quillmere::VipsSetup

#endif  // QUILLMERE_CORE_REPAIR_VIPS_SETUP_H_
