#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "SessionTestSupport.h"
#include "async/RunUntilDone.h"
#include "session/ReaderSession.h"

namespace tomekeeper::testing {

// ---- A session with its fakes ------------------------------------------------------------------

inline constexpr std::string_view kFingerprint =
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

// Which stores a harness gives its session.
enum class StorePresence { all, none };

// Runs `task` on the main context until it ends; rethrows what it threw.
template <typename T>
T runToEnd(async::Task<T> task) {
  return async::runUntilDone(std::move(task), std::chrono::seconds(60));
}

// Runs `task` and gives back the ReaderError that it threw, or absent when it ended normally.
// Any other exception fails the test with a description of it.
inline std::optional<ReaderError> failureOf(async::Task<void> task) {
  try {
    runToEnd(std::move(task));
  } catch (const ReaderError& error) {
    return error;
  }
  return std::nullopt;
}

// A session over the scripted runtime and stores in memory, with the location log recorded.
struct SessionHarness {
  std::shared_ptr<FakeReaderHost> host = std::make_shared<FakeReaderHost>();
  std::shared_ptr<MemoryPositionRepository> positions =
      std::make_shared<MemoryPositionRepository>();
  std::shared_ptr<MemoryBookmarkRepository> bookmarkStore =
      std::make_shared<MemoryBookmarkRepository>();
  std::shared_ptr<MemoryAnnotationRepository> annotationStore =
      std::make_shared<MemoryAnnotationRepository>();
  std::shared_ptr<FakeFontCatalog> fonts = std::make_shared<FakeFontCatalog>();
  std::shared_ptr<MemoryTypographyRepository> typography =
      std::make_shared<MemoryTypographyRepository>();
  std::shared_ptr<MemoryThemeRepository> theme =
      std::make_shared<MemoryThemeRepository>(ReadingThemeSelection::system);
  std::shared_ptr<MemoryReadingModeRepository> mode =
      std::make_shared<MemoryReadingModeRepository>(ReadingMode::paginated);
  std::shared_ptr<MemoryPageLayoutRepository> layout =
      std::make_shared<MemoryPageLayoutRepository>(PageLayout::adaptive);
  std::shared_ptr<MemoryScrolledWidthRepository> width =
      std::make_shared<MemoryScrolledWidthRepository>(ScrolledContentWidth::comfortable);
  std::shared_ptr<SwitchableDiagnosticsSetting> diagnostics =
      std::make_shared<SwitchableDiagnosticsSetting>();
  std::shared_ptr<RecordingLocationLog> log = std::make_shared<RecordingLocationLog>();
  std::shared_ptr<ReaderSession> session;

  ScriptedReaderRuntime& runtime() { return host->runtime; }

  std::shared_ptr<ReaderSession> create(
      StorePresence stores = StorePresence::all,
      std::chrono::steady_clock::duration locatorSaveDelay = std::chrono::milliseconds(350)) {
    ReaderSessionDependencies dependencies;
    dependencies.host = host;
    dependencies.fontCatalog = fonts;
    dependencies.locationDiagnosticsSetting = diagnostics;
    dependencies.locationDiagnosticLog = log;
    dependencies.locatorSaveDelay = locatorSaveDelay;
    if (stores == StorePresence::all) {
      dependencies.positionRepository = positions;
      dependencies.bookmarkRepository = bookmarkStore;
      dependencies.annotationRepository = annotationStore;
      dependencies.typographyRepository = typography;
      dependencies.themeRepository = theme;
      dependencies.readingModeRepository = mode;
      dependencies.pageLayoutRepository = layout;
      dependencies.scrolledContentWidthRepository = width;
    }
    session = ReaderSession::create(std::move(dependencies));
    return session;
  }

  PublicationDescriptor descriptor() const {
    PublicationDescriptor value;
    value.publicationID = *Uuid::fromString("11111111-2222-4333-8444-555555555555");
    value.packageURL =
        "tomekeeper://publication/11111111-2222-4333-8444-555555555555/OEBPS/content.opf";
    value.resourceBaseURL = "tomekeeper://publication/11111111-2222-4333-8444-555555555555/OEBPS/";
    return value;
  }

  async::Task<void> openTask(std::optional<Locator> initialLocator = std::nullopt) {
    return session->open(descriptor(), "/extracted/book", "/runtime", std::string(kFingerprint),
                         std::move(initialLocator));
  }

  // Opens and gives the failure of the open, or absent when it reached `ready`.
  std::optional<ReaderError> open(std::optional<Locator> initialLocator = std::nullopt) {
    return failureOf(openTask(std::move(initialLocator)));
  }

  // Creates the session and opens it; the test fails unless the open reached `ready`.
  void openReady(StorePresence stores = StorePresence::all) {
    create(stores);
    ASSERT_EQ(open(), std::nullopt);
  }

  // An annotation of this book, as the store holds it.
  static Annotation annotation(std::string selectedText, std::optional<std::string> note = {}) {
    const Date moment = Date::now();
    return Annotation{Uuid::random(),
                      std::string(kFingerprint),
                      locatorAt(1, "/6/4!/4/2/1:0", 0.5),
                      std::move(selectedText),
                      AnnotationColor::yellow,
                      std::move(note),
                      moment,
                      moment};
  }

  static Bookmark bookmark(Locator locator, std::string fingerprint = std::string(kFingerprint)) {
    return Bookmark{Uuid::random(), std::move(fingerprint), locator, "A mark", Date::now()};
  }
};

}  // namespace tomekeeper::testing
