#pragma once

#include <optional>
#include <string>

#include "intake/ArchiveFile.h"
#include "intake/EPUBArchiveInspector.h"
#include "intake/EPUBArchiveSinglePass.h"
#include "opening/PreparationObserver.h"

namespace tomekeeper {

// The package document of a book, as it stands in the archive.
struct PackageDocumentInArchive {
  std::string path;  // The entry's normalised path.
  std::string document;
  bool operator==(const PackageDocumentInArchive&) const = default;
};

// The largest package document read ahead; a larger one waits for the extraction.
inline constexpr std::uint64_t kMaximumPackageDocumentReadAhead = 16 * 1024 * 1024;

// Reads META-INF/container.xml and the package document it names straight out of `archive`,
// whose central directory `central` describes, wherever they stand in the file: the book's
// window can show its title before the rest is extracted. Absent when either cannot be read
// (missing, too large, damaged, a rootfile the validator refuses): the extraction and its
// validation say what is wrong. Blocking; moves the file's position; throws nothing but
// std::bad_alloc.
std::optional<PackageDocumentInArchive> readPackageDocumentAhead(
    ArchiveFile& archive, const EPUBArchiveInspector::CentralDirectoryInspection& central);

// The observer of a single pass that reads the package document ahead for `observer` and tells
// it the progress of the read, once per whole per cent.
SinglePassObserver observeSinglePass(PreparationObserver observer);

}  // namespace tomekeeper
