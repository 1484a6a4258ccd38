#include "opening/DocumentOpenErrorPresentation.h"

#include <string_view>

#include "async/Failure.h"
#include "opening/OpeningFailures.h"
#include "opening/ReaderError.h"

namespace tomekeeper {

namespace {

constexpr std::string_view kDamagedTitle = "This EPUB appears to be damaged";
constexpr std::string_view kDamagedMessage =
    "Tomekeeper couldn’t read the book’s archive or publication metadata.";

DocumentOpenErrorPresentation general(std::string diagnostic) {
  return {"The EPUB couldn’t be opened",
          "Try opening the file again. If the problem continues, the book may be damaged or "
          "unsupported.",
          std::move(diagnostic)};
}

DocumentOpenErrorPresentation fromFailure(const Failure& failure) {
  const std::string_view type = failure.typeName();
  const std::string_view name = failure.caseName();
  std::string diagnostic = failure.reflectiveText();

  if (type == "DocumentOpenFailure") {
    if (name == "notAnEPUB") {
      return {"Choose an EPUB file", "Tomekeeper can open files with the .epub extension.",
              "not-an-epub"};
    }
    if (name == "sourceUnavailable") {
      return {"The EPUB can’t be accessed",
              "The file may have moved, been deleted, or no longer be readable.",
              "source-unavailable"};
    }
    if (name == "relocatedContentMismatch") {
      return {"This isn’t the same EPUB",
              "Choose the original file or an identical copy to restore its reading state.",
              "relocated-content-mismatch"};
    }
  }
  if (type == "EPUBArchiveInspectionFailure") {
    if (name == "invalidPath" || name == "symbolicLink" || name == "conflictingPath" ||
        name == "suspiciousExpansion") {
      return {"This EPUB can’t be opened safely",
              "The book contains an unsafe or suspicious archive structure.", diagnostic};
    }
    if (name == "unsupportedZIP64" || name == "encryptedEntry" ||
        name == "unsupportedCompression") {
      return {"This EPUB uses an unsupported feature",
              "Tomekeeper can’t open this book in its current format.", diagnostic};
    }
    return {std::string(kDamagedTitle), std::string(kDamagedMessage), diagnostic};
  }
  if (type == "EPUBContainerValidationFailure") {
    if (name == "unsupportedDRM") {
      return {"This EPUB is protected", "Tomekeeper doesn’t support DRM-protected books.",
              diagnostic};
    }
    return {std::string(kDamagedTitle), std::string(kDamagedMessage), diagnostic};
  }
  return general(std::move(diagnostic));
}

}  // namespace

DocumentOpenErrorPresentation DocumentOpenErrorPresentation::from(
    const std::exception_ptr& error) noexcept {
  try {
    std::rethrow_exception(error);
  } catch (const ReaderError& readerError) {
    return {"The EPUB couldn’t be opened", readerError.userMessage(),
            readerError.diagnosticCause()};
  } catch (const Failure& failure) {
    return fromFailure(failure);
  } catch (...) {
    return general(reflectiveText(error));
  }
}

}  // namespace tomekeeper
