#include "opening/ReaderError.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <system_error>

#include "async/OperationCancelled.h"
#include "intake/IntakeFailures.h"
#include "model/ReaderTypographyFailure.h"
#include "persistence/PersistenceFailures.h"
#include "runtime/ReaderBridgeFailure.h"

namespace tomekeeper {
namespace {

template <typename Error>
std::exception_ptr raised(Error error) {
  return std::make_exception_ptr(std::move(error));
}

const ReaderErrorPolicy kInlineRetryable{true, false, true, ReaderErrorPresentation::inline_};
const ReaderErrorPolicy kClosing{true, true, false, ReaderErrorPresentation::blocking};
const ReaderErrorPolicy kDegraded{false, false, true, ReaderErrorPresentation::inline_};
const char* const kGeneral = "This book could not be opened by the reader.";
const char* const kHighlight = "A saved highlight could not be shown at its original text.";
const char* const kProcessDied = "The book renderer stopped unexpectedly. You can reopen the book.";
const char* const kCancelled = "The reading operation was cancelled.";
const char* const kReadingData = "Your local reading data could not be saved or restored.";

ReaderError closing(std::string diagnostic) {
  return {ReaderErrorKind::readerRuntimeFailed, kGeneral, std::move(diagnostic), kClosing};
}
ReaderError cancelled(std::string diagnostic) {
  return {ReaderErrorKind::operationCancelled, kCancelled, std::move(diagnostic), kInlineRetryable};
}
ReaderError readingData(std::string diagnostic) {
  return {ReaderErrorKind::persistenceFailed, kReadingData, std::move(diagnostic),
          kInlineRetryable};
}

// Each failure of the reader's subsystems, and the one record it becomes: the kind, the
// sentence shown (never a runtime's own text), the diagnostic and the policy.
TEST(ReaderErrorTest, MapsEveryFailureToItsRecord) {
  using Kind = ReaderErrorKind;
  using Bridge = ReaderBridgeFailure;
  using Host = ReaderWebViewHostFailureError;
  const ReaderError passedThrough(Kind::corruptPublication, "shown", "logged",
                                  {false, true, false, ReaderErrorPresentation::alert});
  const auto runtime = [](const char* code, const char* message,
                          std::optional<std::string> diagnostic) {
    return raised(Bridge::runtime({code, message, std::move(diagnostic)}));
  };
  const std::filesystem::filesystem_error gone("gone", std::make_error_code(std::errc::io_error));
  const std::pair<std::exception_ptr, ReaderError> cases[] = {
      {raised(passedThrough), passedThrough},
      {runtime("annotation-anchor-unresolved", "the message", "the diagnostic"),
       {Kind::readerRuntimeFailed, kHighlight, "annotation-anchor-unresolved: the diagnostic",
        kDegraded}},
      {runtime("highlight-rendering-unavailable", "the message", "the diagnostic"),
       {Kind::readerRuntimeFailed, kHighlight, "highlight-rendering-unavailable: the diagnostic",
        kDegraded}},
      // Without a diagnostic, the message stands in for it.
      {runtime("annotation-anchor-unresolved", "no anchor", {}),
       {Kind::readerRuntimeFailed, kHighlight, "annotation-anchor-unresolved: no anchor",
        kDegraded}},
      {runtime("selection-too-long", "too long", "x"),
       {Kind::unsupportedFeature, "Select fewer than 2000 characters to create a highlight.",
        "selection-too-long", kInlineRetryable}},
      // Codes compare exactly: another letter case is an unknown code.
      {runtime("layout-exploded", "secret runtime text", {}),
       closing("ReaderBridgeFailure.runtime(layout-exploded)")},
      {runtime("Selection-Too-Long", "secret runtime text", {}),
       closing("ReaderBridgeFailure.runtime(Selection-Too-Long)")},
      {raised(Bridge(Bridge::Case::timedOut)),
       {Kind::bridgeTimedOut,
        "The reader took too long to respond. Try again.",
        "ReaderBridgeFailure.timedOut",
        {true, false, true, ReaderErrorPresentation::alert}}},
      {raised(Host(ReaderWebViewHostFailure::runtimeLoadTimedOut)),
       closing("ReaderWebViewHostFailure.runtimeLoadTimedOut")},
      {raised(Bridge(Bridge::Case::webContentProcessTerminated)),
       {Kind::webContentProcessTerminated, kProcessDied,
        "ReaderBridgeFailure.webContentProcessTerminated", kInlineRetryable}},
      {raised(Host(ReaderWebViewHostFailure::webContentProcessTerminated)),
       {Kind::webContentProcessTerminated, kProcessDied,
        "ReaderWebViewHostFailure.webContentProcessTerminated", kInlineRetryable}},
      {raised(Bridge(Bridge::Case::cancelled)), cancelled("ReaderBridgeFailure.cancelled")},
      {raised(Bridge(Bridge::Case::readerClosed)), cancelled("ReaderBridgeFailure.readerClosed")},
      {raised(Host(ReaderWebViewHostFailure::closed)),
       cancelled("ReaderWebViewHostFailure.closed")},
      {raised(async::OperationCancelled()), cancelled("OperationCancelled")},
      {raised(
           ReadingPositionPersistenceFailureError(ReadingPositionPersistenceFailure::cannotRead)),
       readingData("ReadingPositionPersistenceFailure.cannotRead")},
      {raised(TypographyPreferencesPersistenceFailureError(
           TypographyPreferencesPersistenceFailure::unsupportedSchema)),
       readingData("TypographyPreferencesPersistenceFailure.unsupportedSchema")},
      {raised(ReadingThemePersistenceFailureError(ReadingThemePersistenceFailure::cannotWrite)),
       readingData("ReadingThemePersistenceFailure.cannotWrite")},
      {raised(ReadingModePersistenceFailureError(ReadingModePersistenceFailure::corruptStore)),
       readingData("ReadingModePersistenceFailure.corruptStore")},
      {raised(PageLayoutPersistenceFailureError(PageLayoutPersistenceFailure::cannotWrite)),
       readingData("PageLayoutPersistenceFailure.cannotWrite")},
      {raised(ScrolledContentWidthPersistenceFailureError(
           ScrolledContentWidthPersistenceFailure::corruptStore)),
       readingData("ScrolledContentWidthPersistenceFailure.corruptStore")},
      {raised(BookmarkPersistenceFailureError(BookmarkPersistenceFailure::invalidStore)),
       readingData("BookmarkPersistenceFailure.invalidStore")},
      {raised(AnnotationPersistenceFailureError(AnnotationPersistenceFailure::invalidFingerprint)),
       readingData("AnnotationPersistenceFailure.invalidFingerprint")},
      {raised(Bridge::protocolVersion(2)), closing("ReaderBridgeFailure.protocolVersion(2)")},
      {raised(Bridge(Bridge::Case::malformedResponse)),
       closing("ReaderBridgeFailure.malformedResponse")},
      {raised(Bridge(Bridge::Case::navigationReset)),
       closing("ReaderBridgeFailure.navigationReset")},
      {raised(Host(ReaderWebViewHostFailure::alreadyLoading)),
       closing("ReaderWebViewHostFailure.alreadyLoading")},
      {raised(Host(ReaderWebViewHostFailure::runtimeLoadFailed)),
       closing("ReaderWebViewHostFailure.runtimeLoadFailed")},
      {raised(ReaderTypographyFailureError(ReaderTypographyFailure::invalidFontScale)),
       closing("ReaderTypographyFailure.invalidFontScale")},
      {raised(EPUBArchiveInspectionFailureError(EPUBArchiveInspectionFailure::symbolicLink)),
       closing("EPUBArchiveInspectionFailure.symbolicLink")},
      {raised(gone), closing(gone.what())},
  };
  for (const auto& [error, expected] : cases) {
    SCOPED_TRACE(expected.diagnosticCause());
    const ReaderError actual = ReaderError::from(error);
    EXPECT_EQ(actual.kind(), expected.kind());
    EXPECT_EQ(actual.userMessage(), expected.userMessage());
    EXPECT_EQ(actual.diagnosticCause(), expected.diagnosticCause());
    EXPECT_EQ(actual.policy(), expected.policy());
  }
}

}  // namespace
}  // namespace tomekeeper
