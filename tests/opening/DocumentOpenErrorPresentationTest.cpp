#include "opening/DocumentOpenErrorPresentation.h"

#include <gtest/gtest.h>

#include <system_error>

#include "intake/IntakeFailures.h"
#include "opening/OpeningFailures.h"
#include "opening/ReaderError.h"

namespace tomekeeper {
namespace {

template <typename Error>
DocumentOpenErrorPresentation present(Error error) {
  return DocumentOpenErrorPresentation::from(std::make_exception_ptr(std::move(error)));
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

void expectTexts(const DocumentOpenErrorPresentation& actual,
                 const DocumentOpenErrorPresentation& expected, const std::string& diagnostic) {
  EXPECT_EQ(actual.title, expected.title) << diagnostic;
  EXPECT_EQ(actual.message, expected.message) << diagnostic;
  EXPECT_EQ(actual.diagnostic, diagnostic);
}

TEST(DocumentOpenErrorPresentationTest, AReaderErrorKeepsItsMessageAndDiagnostic) {
  const ReaderError error(ReaderErrorKind::bridgeTimedOut, "Shown to the reader", "for the log",
                          {});
  EXPECT_EQ(present(error), (DocumentOpenErrorPresentation{"The EPUB couldn’t be opened",
                                                           "Shown to the reader", "for the log"}));
}

TEST(DocumentOpenErrorPresentationTest, EachOpenFailureHasItsOwnAlert) {
  EXPECT_EQ(present(DocumentOpenFailureError(DocumentOpenFailure::notAnEPUB)),
            (DocumentOpenErrorPresentation{"Choose an EPUB file",
                                           "Tomekeeper can open files with the .epub extension.",
                                           "not-an-epub"}));
  EXPECT_EQ(present(DocumentOpenFailureError(DocumentOpenFailure::sourceUnavailable)),
            (DocumentOpenErrorPresentation{
                "The EPUB can’t be accessed",
                "The file may have moved, been deleted, or no longer be readable.",
                "source-unavailable"}));
  EXPECT_EQ(present(DocumentOpenFailureError(DocumentOpenFailure::relocatedContentMismatch)),
            (DocumentOpenErrorPresentation{
                "This isn’t the same EPUB",
                "Choose the original file or an identical copy to restore its reading state.",
                "relocated-content-mismatch"}));
}

TEST(DocumentOpenErrorPresentationTest, InspectionFailuresFallIntoThreeGroups) {
  using enum EPUBArchiveInspectionFailure;
  const std::vector<std::pair<EPUBArchiveInspectionFailure, DocumentOpenErrorPresentation>> rows = {
      {invalidPath, kUnsafe},
      {symbolicLink, kUnsafe},
      {conflictingPath, kUnsafe},
      {suspiciousExpansion, kUnsafe},
      {unsupportedZIP64, kUnsupported},
      {encryptedEntry, kUnsupported},
      {unsupportedCompression, kUnsupported},
      {malformedArchive, kDamaged},
      {tooManyEntries, kDamaged},
      {centralDirectoryTooLarge, kDamaged},
      {missingMimetype, kDamaged},
      {missingContainer, kDamaged},
  };
  for (const auto& [failure, expected] : rows) {
    const EPUBArchiveInspectionFailureError error(failure);
    expectTexts(present(error), expected, error.reflectiveText());
  }
  EXPECT_EQ(present(EPUBArchiveInspectionFailureError(symbolicLink)).diagnostic,
            "EPUBArchiveInspectionFailure.symbolicLink");
}

TEST(DocumentOpenErrorPresentationTest, ProtectedBooksAreToldApartFromDamagedOnes) {
  using enum EPUBContainerValidationFailure;
  expectTexts(present(EPUBContainerValidationFailureError(unsupportedDRM)),
              {"This EPUB is protected", "Tomekeeper doesn’t support DRM-protected books.", ""},
              "EPUBContainerValidationFailure.unsupportedDRM");
  for (auto failure : {missingContainer, malformedContainer, missingRootfile, invalidRootfilePath,
                       unavailablePackageDocument, malformedEncryptionMetadata}) {
    const EPUBContainerValidationFailureError error(failure);
    expectTexts(present(error), kDamaged, error.reflectiveText());
  }
}

TEST(DocumentOpenErrorPresentationTest, EverythingElseGetsTheGeneralText) {
  expectTexts(
      present(EPUBArchiveExtractionFailureError(EPUBArchiveExtractionFailure::sizeMismatch)),
      kGeneral, "EPUBArchiveExtractionFailure.sizeMismatch");
  expectTexts(
      present(SourceBookmarkStoreFailureError(SourceBookmarkStoreFailure::invalidFingerprint)),
      kGeneral, "SourceBookmarkStoreFailure.invalidFingerprint");
  const std::system_error fileError(std::make_error_code(std::errc::permission_denied), "open");
  expectTexts(present(fileError), kGeneral, fileError.what());
}

TEST(DocumentOpenErrorPresentationTest, NoUserTextCarriesAPathOrACode) {
  const DocumentOpenErrorPresentation presentation = present(
      std::system_error(std::make_error_code(std::errc::io_error), "/home/reader/book.epub"));
  EXPECT_EQ(presentation.message.find("/home"), std::string::npos);
  EXPECT_NE(presentation.diagnostic.find("/home/reader/book.epub"), std::string::npos);
}

}  // namespace
}  // namespace tomekeeper
