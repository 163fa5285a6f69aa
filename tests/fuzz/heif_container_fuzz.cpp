// Reads arbitrary bytes as a HEIF container, whole and cut short. Any outcome but a crash, a
// hang, a leak or memory out of proportion to the input is fine: the smoke run gives this target
// a tight memory limit (heif_container_fuzz.options), since claims of the file's counts are
// what it must not believe.
#include "core/metadata/heif_container.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> bytes(data, size);
  quillmere::HeifContainer::isHeif(bytes);
  quillmere::HeifContainer::read(*quillmere::RandomAccessBytes::inMemory(bytes));
  quillmere::HeifContainer::read(*quillmere::RandomAccessBytes::inMemory(bytes.first(size / 2)));
  return 0;
}
