// The monitor of a book's store directory, over the real file monitor of GIO: files are written
// as a sync engine or the stores would write them, and the main context runs until it reports.
#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "PersistenceTestSupport.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/StoreDirectoryMonitor.h"
#include "platform/AtomicFileWriter.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using Names = std::set<std::string>;
using testing::writeFile;

// Long enough that the two writes of one case reach the main context within it, on a loaded machine.
constexpr auto kQuiet = 200ms;

// Runs the main context until `done` holds, or fails the test after a generous limit.
void iterateUntil(const std::function<bool()>& done) {
  bool expired = false;
  const guint limit = g_timeout_add_seconds(
      30, [](gpointer flag) { return *static_cast<bool*>(flag) = true, G_SOURCE_REMOVE; },
      &expired);
  while (!done() && !expired) g_main_context_iteration(nullptr, TRUE);
  if (!expired) g_source_remove(limit);
  EXPECT_FALSE(expired) << "no report came";
}

class StoreDirectoryMonitorTest : public ::testing::Test {
 protected:
  std::filesystem::path file(const std::string& name) const { return directory_ / name; }

  testing::TemporaryDirectory temporary_;
  std::filesystem::path directory_ = temporary_ / "Publications" / testing::kFingerprint;
};

// Each case changes files that must not be reported, then one that must (the sentinel), and
// expects one report naming only the stores of the second step.
TEST_F(StoreDirectoryMonitorTest, ReportsChangedStoresOnceTheDirectoryIsQuiet) {
  const std::string store = R"({"schemaVersion":1,"locators":{}})";
  const struct {
    const char* name;
    std::function<void(const std::filesystem::path&)> passedOver;
    std::function<void(const std::filesystem::path&)> reported;
    Names expected;
  } cases[] = {
      {"AStoreReplacedAtomically",
       {},
       [&](const std::filesystem::path& directory) {
         writeFileAtomically(directory / "reading-position.json", store);
       },
       {"reading-position.json"}},
      {"AConflictCopyCountsAsItsStore",
       {},
       [&](const std::filesystem::path& directory) {
         writeFile(directory / "bookmarks.sync-conflict-20261124-101010-ABCDEFG.json", store);
       },
       {"bookmarks.json"}},
      {"ARepositorySave",
       {},
       [](const std::filesystem::path& directory) {
         testing::await(JSONBookmarkRepository(directory / "bookmarks.json")
                            .save(testing::makeBookmark(Uuid::random(), 1)));
       },
       {"bookmarks.json"}},
      {"ChangesCloseTogetherComeInOneReport",
       {},
       [&](const std::filesystem::path& directory) {
         writeFileAtomically(directory / "annotations.json", store);
         writeFileAtomically(directory / "bookmarks.json", store);
       },
       {"annotations.json", "bookmarks.json"}},
      {"BackupsTemporaryFilesAndSetAsideCopiesAreNot",
       [&](const std::filesystem::path& directory) {
         writeFile(directory / "annotations.json.1", store);
         writeFile(directory / ".annotations.json.tmp-Ab12Cd", store);
         writeFile(directory / "conflicts/annotations.sync-conflict-1-2-A.json", store);
         writeFile(directory / "notes.txt", store);
       },
       [&](const std::filesystem::path& directory) {
         writeFileAtomically(directory / "reading-position.json", store);
       },
       {"reading-position.json"}},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    std::filesystem::remove_all(directory_);
    std::vector<Names> reports;
    StoreDirectoryMonitor monitor(
        directory_, [&](const Names& names) { reports.push_back(names); }, kQuiet);
    if (testCase.passedOver) testCase.passedOver(directory_);
    testCase.reported(directory_);
    iterateUntil([&] { return !reports.empty(); });
    EXPECT_EQ(reports, std::vector{testCase.expected});
  }
}

// A monitor destroyed while its report is due never reports: a monitor of a short quiet time
// shows that the change was seen, one of a long quiet time that the due report would have come.
TEST_F(StoreDirectoryMonitorTest, ADestroyedMonitorReportsNothing) {
  std::vector<Names> destroyedReports;
  std::vector<Names> firstReports;
  std::vector<Names> lateReports;
  auto destroyed = std::make_optional<StoreDirectoryMonitor>(
      directory_, [&](const Names& names) { destroyedReports.push_back(names); }, 100ms);
  StoreDirectoryMonitor first(
      directory_, [&](const Names& names) { firstReports.push_back(names); }, 10ms);
  StoreDirectoryMonitor late(
      directory_, [&](const Names& names) { lateReports.push_back(names); }, 500ms);
  writeFileAtomically(file("annotations.json"), "{}");
  iterateUntil([&] { return !firstReports.empty(); });
  destroyed.reset();
  iterateUntil([&] { return !lateReports.empty(); });
  EXPECT_TRUE(destroyedReports.empty());
}

}  // namespace
}  // namespace tomekeeper
