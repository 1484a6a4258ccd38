// The archive inspector on arbitrary file bytes: it must either return a
// consistent inspection or refuse with one of its failures, never crash, read
// out of bounds or throw anything else.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "intake/ArchiveFile.h"
#include "intake/EPUBArchiveInspector.h"
#include "intake/IntakeFailures.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tomekeeper::MemoryArchiveFile file(std::span(data, size));
  try {
    const tomekeeper::EPUBArchiveInspection inspection =
        tomekeeper::EPUBArchiveInspector().inspectFile(file);
    std::uint64_t total = 0;
    for (const auto& entry : inspection.entries) {
      // Whatever passed must describe data inside the file.
      if (entry.localDataOffset > size || entry.compressedSize > size - entry.localDataOffset) {
        std::abort();
      }
      if (entry.path.empty() || entry.path.front() == '/') std::abort();
      total += entry.uncompressedSize;
    }
    if (total != inspection.totalUncompressedSize) std::abort();
  } catch (const tomekeeper::EPUBArchiveInspectionFailureError&) {
  }
  return 0;
}
