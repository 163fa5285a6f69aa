#include "core/metadata/exiv2_setup.h"

#include <exiv2/exiv2.hpp>
#include <mutex>

namespace quillmere::Exiv2Setup {
namespace {

// The XMP toolkit inside Exiv2 is not thread-safe; Exiv2 takes this lock around every use.
std::mutex& xmpMutex() {
  static std::mutex mutex;
  return mutex;
}

void lockXmp(void*, bool lock) {
  if (lock) {
    xmpMutex().lock();
  } else {
    xmpMutex().unlock();
  }
}

void ignoreLogMessage(int, const char*) {}

}  // namespace

void prepare() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::LogMsg::setHandler(ignoreLogMessage);
    Exiv2::enableBMFF(true);
    Exiv2::XmpParser::initialize(lockXmp, nullptr);
  });
}

}  // namespace quillmere::Exiv2Setup
