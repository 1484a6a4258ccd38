#pragma once

#include "async/Failure.h"

namespace tomekeeper {

// Why the archive inspector refused a file. Checked in the order of the walk,
// so the first problem found is the one reported.
TOMEKEEPER_FAILURE(EPUBArchiveInspectionFailure, malformedArchive, unsupportedZIP64, tooManyEntries,
                   centralDirectoryTooLarge, encryptedEntry, unsupportedCompression, invalidPath,
                   symbolicLink, conflictingPath, suspiciousExpansion, missingMimetype,
                   missingContainer);

// Why extracting an inspected archive failed.
TOMEKEEPER_FAILURE(EPUBArchiveExtractionFailure, destinationExists, invalidEntryMetadata,
                   unreadableArchive, cannotCreateOutput, decompressionFailed, sizeMismatch,
                   checksumMismatch, commitFailed);

// Why an extracted publication is not usable.
TOMEKEEPER_FAILURE(EPUBContainerValidationFailure, missingContainer, malformedContainer,
                   missingRootfile, invalidRootfilePath, unavailablePackageDocument, unsupportedDRM,
                   malformedEncryptionMetadata);

}  // namespace tomekeeper
