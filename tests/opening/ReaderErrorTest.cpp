#include "opening/ReaderError.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <system_error>

#include "async/OperationCancelled.h"
#include "intake/IntakeFailures.h"
#include "model/ReaderTypographyFailure.h"
#include "persistence/PersistenceFailures.h"
#include "runtime/ReaderBridgeFailure.h"

namespace tomekeeper {
namespace {

template <typename Error>
ReaderError map(Error error) {
  return ReaderError::from(std::make_exception_ptr(std::move(error)));
}

const ReaderErrorPolicy kInlineRetryable{true, false, true, ReaderErrorPresentation::inline_};
const ReaderErrorPolicy kClosing{true, true, false, ReaderErrorPresentation::blocking};
const char* const kGeneral = "This book could not be opened by the reader.";

TEST(ReaderErrorTest, AReaderErrorPassesThroughUnchangedPolicyIncluded) {
  const ReaderError original(ReaderErrorKind::corruptPublication, "shown", "logged",
                             {false, true, false, ReaderErrorPresentation::alert});
  EXPECT_EQ(map(original), original);
}

TEST(ReaderErrorTest, UnresolvedHighlightCodesAreDegradedAndNotRetryable) {
  for (const char* code : {"annotation-anchor-unresolved", "highlight-rendering-unavailable"}) {
    const ReaderError error =
        map(ReaderBridgeFailure::runtime({code, "the message", std::string("the diagnostic")}));
    EXPECT_EQ(error.kind(), ReaderErrorKind::readerRuntimeFailed);
    EXPECT_EQ(error.userMessage(), "A saved highlight could not be shown at its original text.");
    EXPECT_EQ(error.diagnosticCause(), std::string(code) + ": the diagnostic");
    EXPECT_EQ(error.policy(),
              (ReaderErrorPolicy{false, false, true, ReaderErrorPresentation::inline_}));
  }
  // Without a diagnostic, the message stands in for it.
  const ReaderError error =
      map(ReaderBridgeFailure::runtime({"annotation-anchor-unresolved", "no anchor", {}}));
  EXPECT_EQ(error.diagnosticCause(), "annotation-anchor-unresolved: no anchor");
}

TEST(ReaderErrorTest, SelectionTooLongIsAnUnsupportedFeature) {
  const ReaderError error =
      map(ReaderBridgeFailure::runtime({"selection-too-long", "too long", std::string("x")}));
  EXPECT_EQ(error.kind(), ReaderErrorKind::unsupportedFeature);
  EXPECT_EQ(error.userMessage(), "Select fewer than 2000 characters to create a highlight.");
  EXPECT_EQ(error.diagnosticCause(), "selection-too-long");
  EXPECT_EQ(error.policy(), kInlineRetryable);
}

// Codes compare exactly: another letter case is an unknown code.
TEST(ReaderErrorTest, AnUnknownRuntimeCodeClosesThePublicationWithoutShowingItsMessage) {
  for (const char* code : {"layout-exploded", "Selection-Too-Long"}) {
    const ReaderError error = map(ReaderBridgeFailure::runtime({code, "secret runtime text", {}}));
    EXPECT_EQ(error.kind(), ReaderErrorKind::readerRuntimeFailed) << code;
    EXPECT_EQ(error.userMessage(), kGeneral);
    EXPECT_EQ(error.policy(), kClosing);
  }
}

TEST(ReaderErrorTest, BridgeTimeoutIsARetryableAlert) {
  const ReaderError error = map(ReaderBridgeFailure(ReaderBridgeFailure::Case::timedOut));
  EXPECT_EQ(error.kind(), ReaderErrorKind::bridgeTimedOut);
  EXPECT_EQ(error.userMessage(), "The reader took too long to respond. Try again.");
  EXPECT_EQ(error.diagnosticCause(), "ReaderBridgeFailure.timedOut");
  EXPECT_EQ(error.policy(), (ReaderErrorPolicy{true, false, true, ReaderErrorPresentation::alert}));
}

TEST(ReaderErrorTest, RuntimeLoadTimeoutClosesAndBlocks) {
  const ReaderError error =
      map(ReaderWebViewHostFailureError(ReaderWebViewHostFailure::runtimeLoadTimedOut));
  EXPECT_EQ(error.kind(), ReaderErrorKind::readerRuntimeFailed);
  EXPECT_EQ(error.diagnosticCause(), "ReaderWebViewHostFailure.runtimeLoadTimedOut");
  EXPECT_EQ(error.policy(), kClosing);
}

TEST(ReaderErrorTest, AWebProcessThatDiedFromEitherSideIsReopenable) {
  const ReaderError fromBridge =
      map(ReaderBridgeFailure(ReaderBridgeFailure::Case::webContentProcessTerminated));
  const ReaderError fromHost =
      map(ReaderWebViewHostFailureError(ReaderWebViewHostFailure::webContentProcessTerminated));
  for (const ReaderError& error : {fromBridge, fromHost}) {
    EXPECT_EQ(error.kind(), ReaderErrorKind::webContentProcessTerminated);
    EXPECT_EQ(error.userMessage(),
              "The book renderer stopped unexpectedly. You can reopen the book.");
    EXPECT_EQ(error.policy(), kInlineRetryable);
  }
  EXPECT_EQ(fromBridge.diagnosticCause(), "ReaderBridgeFailure.webContentProcessTerminated");
  EXPECT_EQ(fromHost.diagnosticCause(), "ReaderWebViewHostFailure.webContentProcessTerminated");
}

TEST(ReaderErrorTest, EveryFormOfCancellationIsOperationCancelled) {
  const std::vector<ReaderError> errors = {
      map(ReaderBridgeFailure(ReaderBridgeFailure::Case::cancelled)),
      map(ReaderBridgeFailure(ReaderBridgeFailure::Case::readerClosed)),
      map(ReaderWebViewHostFailureError(ReaderWebViewHostFailure::closed)),
      map(async::OperationCancelled()),
  };
  const std::vector<std::string> diagnostics = {
      "ReaderBridgeFailure.cancelled", "ReaderBridgeFailure.readerClosed",
      "ReaderWebViewHostFailure.closed", "OperationCancelled"};
  for (size_t index = 0; index < errors.size(); ++index) {
    EXPECT_EQ(errors[index].kind(), ReaderErrorKind::operationCancelled);
    EXPECT_EQ(errors[index].userMessage(), "The reading operation was cancelled.");
    EXPECT_EQ(errors[index].diagnosticCause(), diagnostics[index]);
    EXPECT_EQ(errors[index].policy(), kInlineRetryable);
  }
}

TEST(ReaderErrorTest, EveryPersistenceFailureLeavesReadingPossible) {
  const std::vector<ReaderError> errors = {
      map(ReadingPositionPersistenceFailureError(ReadingPositionPersistenceFailure::cannotRead)),
      map(TypographyPreferencesPersistenceFailureError(
          TypographyPreferencesPersistenceFailure::unsupportedSchema)),
      map(ReadingThemePersistenceFailureError(ReadingThemePersistenceFailure::cannotWrite)),
      map(ReadingModePersistenceFailureError(ReadingModePersistenceFailure::corruptStore)),
      map(PageLayoutPersistenceFailureError(PageLayoutPersistenceFailure::cannotWrite)),
      map(ScrolledContentWidthPersistenceFailureError(
          ScrolledContentWidthPersistenceFailure::corruptStore)),
      map(BookmarkPersistenceFailureError(BookmarkPersistenceFailure::invalidStore)),
      map(AnnotationPersistenceFailureError(AnnotationPersistenceFailure::invalidFingerprint)),
  };
  for (const ReaderError& error : errors) {
    EXPECT_EQ(error.kind(), ReaderErrorKind::persistenceFailed) << error.diagnosticCause();
    EXPECT_EQ(error.userMessage(), "Your local reading data could not be saved or restored.");
    EXPECT_EQ(error.policy(), kInlineRetryable);
  }
  EXPECT_EQ(errors[6].diagnosticCause(), "BookmarkPersistenceFailure.invalidStore");
  EXPECT_EQ(errors[7].diagnosticCause(), "AnnotationPersistenceFailure.invalidFingerprint");
}

TEST(ReaderErrorTest, EverythingElseClosesThePublication) {
  const std::vector<ReaderError> errors = {
      map(ReaderBridgeFailure::protocolVersion(2)),
      map(ReaderBridgeFailure(ReaderBridgeFailure::Case::malformedResponse)),
      map(ReaderBridgeFailure(ReaderBridgeFailure::Case::navigationReset)),
      map(ReaderWebViewHostFailureError(ReaderWebViewHostFailure::alreadyLoading)),
      map(ReaderWebViewHostFailureError(ReaderWebViewHostFailure::runtimeLoadFailed)),
      map(ReaderTypographyFailureError(ReaderTypographyFailure::invalidFontScale)),
      map(EPUBArchiveInspectionFailureError(EPUBArchiveInspectionFailure::symbolicLink)),
      map(std::filesystem::filesystem_error("gone", std::make_error_code(std::errc::io_error))),
  };
  for (const ReaderError& error : errors) {
    EXPECT_EQ(error.kind(), ReaderErrorKind::readerRuntimeFailed) << error.diagnosticCause();
    EXPECT_EQ(error.userMessage(), kGeneral);
    EXPECT_EQ(error.policy(), kClosing);
  }
  EXPECT_EQ(errors[0].diagnosticCause(), "ReaderBridgeFailure.protocolVersion(2)");
  EXPECT_EQ(errors[5].diagnosticCause(), "ReaderTypographyFailure.invalidFontScale");
}

TEST(ReaderErrorTest, NoFailureProducesCorruptPublication) {
  // The kind exists in the enumeration, but no row maps to it.
  EXPECT_EQ(rawValue(ReaderErrorKind::corruptPublication), "corruptPublication");
  EXPECT_EQ(rawValue(ReaderErrorKind::operationCancelled), "operationCancelled");
  EXPECT_EQ(rawValue(ReaderErrorPresentation::inline_), "inline");
}

}  // namespace
}  // namespace tomekeeper
