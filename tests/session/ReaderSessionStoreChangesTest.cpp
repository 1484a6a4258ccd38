// Stores replaced on disk while a book is open, as a file-sync engine or a restore does: the
// session over the real JSON stores rereads them, and the store directory monitor tells it when.
#include <gtest/gtest.h>

#include "SessionHarness.h"
#include "async/Spawn.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/StoreDirectoryMonitor.h"
#include "platform/AtomicFileWriter.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

using namespace std::chrono_literals;

class ReaderSessionStoreChangesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kept = SessionHarness::annotation("kept", "old note");
    removed = SessionHarness::annotation("removed");
    moved = SessionHarness::annotation("moved");
    writeAnnotations({kept, removed, moved});
    ReaderSessionDependencies dependencies;
    dependencies.host = harness.host;
    dependencies.fontCatalog = harness.fonts;
    dependencies.bookmarkRepository = std::make_shared<JSONBookmarkRepository>(bookmarksFile);
    dependencies.annotationRepository = std::make_shared<JSONAnnotationRepository>(annotationsFile);
    harness.session = ReaderSession::create(std::move(dependencies));
    ASSERT_EQ(harness.open(), std::nullopt);
  }

  // Replaces a store the way another program would: whole and atomically.
  void writeAnnotations(const std::vector<Annotation>& annotations) {
    JSONAnnotationRepository::Store store;
    store.annotationsByFingerprint[std::string(kFingerprint)] = annotations;
    std::filesystem::create_directories(directory);
    writeFileAtomically(annotationsFile, JSONAnnotationRepository::encodeStore(store));
  }

  std::vector<std::string> idsSent(const std::string& method, std::size_t from) const {
    std::vector<std::string> ids;
    const auto& calls = harness.host->runtime.calls;
    for (std::size_t index = from; index < calls.size(); ++index) {
      if (calls[index].method != method) continue;
      const json& payload = calls[index].payload;
      ids.push_back(payload.contains("annotation") ? payload["annotation"]["id"] : payload["id"]);
    }
    std::sort(ids.begin(), ids.end());
    return ids;
  }

  static std::vector<std::string> sorted(std::vector<std::string> ids) {
    std::sort(ids.begin(), ids.end());
    return ids;
  }

  TemporaryDirectory temporary;
  std::filesystem::path directory = temporary / "Publications" / std::string(kFingerprint);
  std::filesystem::path annotationsFile = directory / "annotations.json";
  std::filesystem::path bookmarksFile = directory / "bookmarks.json";
  SessionHarness harness;
  Annotation kept;
  Annotation removed;
  Annotation moved;
};

TEST_F(ReaderSessionStoreChangesTest, FollowsAnAnnotationStoreReplacedOnDisk) {
  const Annotation added = SessionHarness::annotation("added");
  Annotation renoted =
      kept.withNote("new note", Date(kept.modifiedAt.secondsSinceReferenceDate() + 1));
  Annotation elsewhere = moved;
  elsewhere.locator = locatorAt(2, "/6/6!/4/2/1:0");
  writeAnnotations({renoted, elsewhere, added});
  const std::size_t from = harness.runtime().calls.size();

  runToEnd(harness.session->rereadReadingData());

  // Only what the page draws differently is redrawn; a new note alone is not.
  EXPECT_EQ(idsSent("removeAnnotation", from), sorted({removed.id.string(), moved.id.string()}));
  EXPECT_EQ(idsSent("addAnnotation", from), sorted({moved.id.string(), added.id.string()}));
  EXPECT_EQ(
      harness.session->annotations().value(),
      runToEnd(JSONAnnotationRepository(annotationsFile).annotations(std::string(kFingerprint))));
  EXPECT_EQ(harness.session->error().value(), std::nullopt);
}

// The session's own saves come back through the monitor: the same records in another order
// leave the list and the page alone.
TEST_F(ReaderSessionStoreChangesTest, TheSameRecordsInAnotherOrderChangeNothing) {
  const std::vector<Annotation> before = harness.session->annotations().value();
  writeAnnotations({moved, kept, removed});
  const std::size_t from = harness.runtime().calls.size();
  runToEnd(harness.session->rereadReadingData());
  EXPECT_EQ(harness.session->annotations().value(), before);
  EXPECT_EQ(harness.runtime().calls.size(), from);
}

TEST_F(ReaderSessionStoreChangesTest, ABrokenStoreOnDiskSetsTheErrorAndKeepsTheList) {
  const std::vector<Annotation> before = harness.session->annotations().value();
  writeFileAtomically(annotationsFile, R"({"schemaVersion":1,"annotationsBy)");
  const std::size_t from = harness.runtime().calls.size();

  runToEnd(harness.session->rereadReadingData());

  EXPECT_NE(harness.session->error().value(), std::nullopt);
  EXPECT_EQ(harness.session->annotations().value(), before);
  EXPECT_TRUE(idsSent("removeAnnotation", from).empty());
  EXPECT_TRUE(idsSent("addAnnotation", from).empty());
}

// The whole road: a new bookmarks store arrives while the book is open, the monitor reports it,
// and the session's list and the page's marks follow.
TEST_F(ReaderSessionStoreChangesTest, TheMonitorBringsABookmarkWrittenByAnotherMachine) {
  const std::size_t from = harness.runtime().count("configureBookmarkVisibility");
  StoreDirectoryMonitor monitor(
      directory,
      [session = std::weak_ptr(harness.session)](const std::set<std::string>&) {
        if (const auto locked = session.lock()) async::spawn(locked->rereadReadingData());
      },
      50ms);
  const Bookmark bookmark = SessionHarness::bookmark(locatorAt(1, "/6/4!/4/2/1:0"));
  JSONBookmarkRepository::Store store;
  store.bookmarksByFingerprint[std::string(kFingerprint)] = {bookmark};
  writeFileAtomically(bookmarksFile, JSONBookmarkRepository::encodeStore(store));

  // The list changes first; the page's marks follow it.
  ASSERT_TRUE(iterateUntil(
      [&] {
        return !harness.session->bookmarks().value().empty() &&
               harness.runtime().count("configureBookmarkVisibility") > from;
      },
      60s));
  EXPECT_EQ(harness.session->bookmarks().value(), std::vector{bookmark});
}

}  // namespace
}  // namespace tomekeeper::testing
