#include "opening/DocumentOpenErrorPresentation.h"

#include <gtest/gtest.h>

#include <system_error>
#include <utility>
#include <vector>

#include "intake/IntakeFailures.h"
#include "opening/OpeningFailures.h"
#include "opening/ReaderError.h"

namespace tomekeeper {
namespace {

template <typename Error>
std::exception_ptr raised(Error error) {
  return std::make_exception_ptr(std::move(error));
}

const DocumentOpenErrorPresentation kUnsafe{
    "This EPUB can’t be opened safely",
    "The book contains an unsafe or suspicious archive structure.", ""};
const DocumentOpenErrorPresentation kUnsupported{
    "This EPUB uses an unsupported feature",
    "Tomekeeper can’t open this book in its current format.", ""};
const DocumentOpenErrorPresentation kDamaged{
    "This EPUB appears to be damaged",
    "Tomekeeper couldn’t read the book’s archive or publication metadata.", ""};
const DocumentOpenErrorPresentation kGeneral{
    "The EPUB couldn’t be opened",
    "Try opening the file again. If the problem continues, the book may be damaged or "
    "unsupported.",
    ""};

// Each failure an open can end in, and what the alert says: a sentence for the reader that
// carries no path or code, and the diagnostic for the log.
TEST(DocumentOpenErrorPresentationTest, PresentsEveryFailure) {
  using Presentation = DocumentOpenErrorPresentation;
  using Inspection = EPUBArchiveInspectionFailure;
  using Validation = EPUBContainerValidationFailure;
  const auto with = [](Presentation texts, std::string diagnostic) {
    texts.diagnostic = std::move(diagnostic);
    return texts;
  };
  std::vector<std::pair<std::exception_ptr, Presentation>> cases = {
      {raised(
           ReaderError(ReaderErrorKind::bridgeTimedOut, "Shown to the reader", "for the log", {})),
       {"The EPUB couldn’t be opened", "Shown to the reader", "for the log"}},
      {raised(DocumentOpenFailureError(DocumentOpenFailure::notAnEPUB)),
       {"Choose an EPUB file", "Tomekeeper can open files with the .epub extension.",
        "not-an-epub"}},
      {raised(DocumentOpenFailureError(DocumentOpenFailure::sourceUnavailable)),
       {"The EPUB can’t be accessed",
        "The file may have moved, been deleted, or no longer be readable.", "source-unavailable"}},
      {raised(DocumentOpenFailureError(DocumentOpenFailure::relocatedContentMismatch)),
       {"This isn’t the same EPUB",
        "Choose the original file or an identical copy to restore its reading state.",
        "relocated-content-mismatch"}},
      {raised(EPUBContainerValidationFailureError(Validation::unsupportedDRM)),
       {"This EPUB is protected", "Tomekeeper doesn’t support DRM-protected books.",
        "EPUBContainerValidationFailure.unsupportedDRM"}},
      {raised(EPUBArchiveExtractionFailureError(EPUBArchiveExtractionFailure::sizeMismatch)),
       with(kGeneral, "EPUBArchiveExtractionFailure.sizeMismatch")},
      {raised(SourceBookmarkStoreFailureError(SourceBookmarkStoreFailure::invalidFingerprint)),
       with(kGeneral, "SourceBookmarkStoreFailure.invalidFingerprint")},
  };
  for (const auto& [texts, failures] :
       std::vector<std::pair<Presentation, std::vector<Inspection>>>{
           {kUnsafe,
            {Inspection::invalidPath, Inspection::symbolicLink, Inspection::conflictingPath,
             Inspection::suspiciousExpansion}},
           {kUnsupported,
            {Inspection::unsupportedZIP64, Inspection::encryptedEntry,
             Inspection::unsupportedCompression}},
           {kDamaged,
            {Inspection::malformedArchive, Inspection::tooManyEntries,
             Inspection::centralDirectoryTooLarge, Inspection::missingMimetype,
             Inspection::missingContainer}},
       }) {
    for (const Inspection failure : failures) {
      const EPUBArchiveInspectionFailureError error(failure);
      cases.emplace_back(raised(error), with(texts, error.reflectiveText()));
    }
  }
  for (const Validation failure :
       {Validation::missingContainer, Validation::malformedContainer, Validation::missingRootfile,
        Validation::invalidRootfilePath, Validation::unavailablePackageDocument,
        Validation::malformedEncryptionMetadata}) {
    const EPUBContainerValidationFailureError error(failure);
    cases.emplace_back(raised(error), with(kDamaged, error.reflectiveText()));
  }
  const std::system_error fileError(std::make_error_code(std::errc::io_error),
                                    "/home/reader/book.epub");
  cases.emplace_back(raised(fileError), with(kGeneral, fileError.what()));
  for (const auto& [error, expected] : cases) {
    SCOPED_TRACE(expected.diagnostic);
    EXPECT_EQ(DocumentOpenErrorPresentation::from(error), expected);
  }
  // The path is in the diagnostic only; the message is the general text.
  EXPECT_NE(std::string(fileError.what()).find("/home/reader/book.epub"), std::string::npos);
}

}  // namespace
}  // namespace tomekeeper
