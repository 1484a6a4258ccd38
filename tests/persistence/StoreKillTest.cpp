// A store must survive its writer being killed at any moment: after every SIGKILL the file is
// the old version or a new one, whole, and never missing. Children are forked from the test so
// that each kill costs little; they use only the blocking store code, and the repository's own
// executor is first made inside the child (the parent never starts one before forking).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <iostream>
#include <random>
#include <thread>

#include "PersistenceTestSupport.h"
#include "async/RunUntilDone.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/StoreBackups.h"
#include "platform/AtomicFileWriter.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::kFingerprint;

const Uuid kMarkerID = Uuid::fromString("00000000-0000-4000-8000-00000000AAAA").value();
// Where the generation stands in the encoded store: the marker's locator has only these keys.
const std::string kGenerationField = R"("spineHref":"marker.xhtml","spineIndex":)";
// Generations keep seven digits, so that a new version differs from the last in those bytes
// only and a child can make one without copying megabytes.
constexpr std::int64_t kFirstGeneration = 1'000'000;
constexpr std::size_t kGenerationDigits = 7;

void report(int descriptor, char what) {
  while (::write(descriptor, &what, 1) < 0 && errno == EINTR) {
  }
}

// A forked child that runs `loop` with the descriptor it reports on, and the pipe's other end.
// A child that is not killed ends itself when its loop returns.
class ChildProcess {
 public:
  explicit ChildProcess(const std::function<void(int)>& loop) {
    int pipeEnds[2];
    if (::pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
    process_ = ::fork();
    if (process_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (process_ == 0) {
      ::close(pipeEnds[0]);
      loop(pipeEnds[1]);
      ::_exit(3);
    }
    ::close(pipeEnds[1]);
    output_ = pipeEnds[0];
  }
  ~ChildProcess() {
    if (process_ > 0) killAndReap();
    ::close(output_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Waits until the child reports `expected`, counting the saves it reports on the way; false
  // when the child ends or `limit` passes first.
  bool awaitReport(char expected, std::chrono::milliseconds limit = 60s) {
    for (;;) {
      pollfd descriptor{output_, POLLIN, 0};
      if (::poll(&descriptor, 1, static_cast<int>(limit.count())) != 1) return false;
      char byte = 0;
      if (::read(output_, &byte, 1) != 1) return false;
      if (byte == 'w') ++saves_;
      if (byte == expected) return true;
    }
  }

  // SIGKILL, and the reports that were still in the pipe.
  void killAndReap() {
    ::kill(process_, SIGKILL);
    int status = 0;
    ::waitpid(process_, &status, 0);
    process_ = -1;
    char buffer[256];
    for (ssize_t count; (count = ::read(output_, buffer, sizeof buffer)) > 0;) {
      saves_ += static_cast<int>(std::count(buffer, buffer + count, 'w'));
    }
  }

  // The saves the child reported as finished.
  int saves() const { return saves_; }

 private:
  pid_t process_ = -1;
  int output_ = -1;
  int saves_ = 0;
};

class StoreKillTest : public ::testing::Test {
 protected:
  // A child loop: start after `generation` and save generation after generation, reporting "w"
  // after each, until its deadline. It reports "r" once, just before the save from which on the
  // kills are timed.
  using WriterLoop = std::function<void(std::int64_t generation, int reportDescriptor)>;

  struct Outcome {
    int kills = 0;
    int killsInsideAWrite = 0;
    int killsAfterASave = 0;
  };

  // Writes the first version: `count` bookmarks with long titles of text that needs escaping
  // and multi-byte characters, and the marker whose spineIndex counts the generations.
  void makeStore(int count, std::size_t titleLength) {
    const std::string pattern =
        "Ein \"Satz\" \\ mit Zeilen\numbruch, caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC. ";
    JSONBookmarkRepository::Store store;
    std::vector<Bookmark>& bookmarks = store.bookmarksByFingerprint[kFingerprint];
    for (int index = 0; index < count; ++index) {
      Bookmark bookmark = testing::makeBookmark(Uuid::random(), 1000.0 + index / 7.0);
      bookmark.locator.totalProgression = index / 10.0;
      while (bookmark.title.size() < titleLength) bookmark.title += pattern;
      bookmark.title += std::to_string(index);
      bookmarks.push_back(std::move(bookmark));
    }
    bookmarks.push_back(marker(kFirstGeneration));

    text_ = JSONBookmarkRepository::encodeStore(store);
    const std::size_t at = text_.find(kGenerationField);
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(text_.find(kGenerationField, at + 1), std::string::npos);
    generationAt_ = at + kGenerationField.size();
    ASSERT_EQ(text_.substr(generationAt_, kGenerationDigits), std::to_string(kFirstGeneration));
    std::filesystem::create_directories(store_.parent_path());
    writeFileAtomically(store_, text_);
    expected_ = store;
    generation_ = kFirstGeneration;
  }

  static Bookmark marker(std::int64_t generation) {
    Bookmark bookmark;
    bookmark.id = kMarkerID;
    bookmark.bookFingerprint = kFingerprint;
    bookmark.locator.spineHref = "marker.xhtml";
    bookmark.locator.spineIndex = generation;
    bookmark.title = "marker";
    bookmark.createdAt = Date(1);
    return bookmark;
  }

  // Turns `text`, a version of the store as the repository encodes it, into that of
  // `generation`.
  void setGeneration(std::string& text, std::int64_t generation) const {
    const std::string digits = std::to_string(generation);
    ASSERT_EQ(digits.size(), kGenerationDigits);
    text.replace(generationAt_, kGenerationDigits, digits);
  }

  // The generation of the store on disk. The file must be byte for byte one whole version as
  // the repository encodes it (which the real decoder reads: see the end of each test). Read
  // into a buffer kept between kills, as this runs hundreds of times over megabytes.
  std::int64_t generationOnDisk() { return generationIn(store_); }

  // The same of any file that holds a version of the store, a backup included.
  std::int64_t generationIn(const std::filesystem::path& path) {
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
      ADD_FAILURE() << path.filename() << " cannot be opened: " << std::strerror(errno);
      return -1;
    }
    buffer_.resize(text_.size() + 1);
    std::size_t size = 0;
    for (ssize_t count; size < buffer_.size() &&
                        (count = ::read(file, buffer_.data() + size, buffer_.size() - size)) > 0;) {
      size += static_cast<std::size_t>(count);
    }
    ::close(file);
    const std::string_view contents(buffer_.data(), size);
    const std::string_view expected(text_);
    const std::size_t end = generationAt_ + kGenerationDigits;
    const std::string_view digits =
        size == expected.size() ? contents.substr(generationAt_, kGenerationDigits) : "";
    if (size != expected.size() ||
        contents.substr(0, generationAt_) != expected.substr(0, generationAt_) ||
        contents.substr(end) != expected.substr(end) ||
        digits.find_first_not_of("0123456789") != std::string_view::npos) {
      ADD_FAILURE() << path.filename() << " is not a whole version (" << size << " bytes)";
      return -1;
    }
    return std::stoll(std::string(digits));
  }

  // Temporary files left by kills inside a write (of the store or of a backup); removed so that
  // the disk does not fill up.
  int removeStrayTemporaryFiles() const {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(store_.parent_path())) {
      const std::string name = entry.path().filename().string();
      if (name.starts_with(".bookmarks.json.") && name.find(".tmp-") != std::string::npos) {
        std::filesystem::remove(entry.path());
        ++count;
      } else {
        EXPECT_TRUE(name == "bookmarks.json" || isBackupName(name)) << name;
      }
    }
    return count;
  }

  static bool isBackupName(const std::string& name) {
    for (int generation = 1; generation <= kStoreBackupCount; ++generation) {
      if (name == "bookmarks.json." + std::to_string(generation)) return true;
    }
    return false;
  }

  // Every backup that exists is one whole version, no newer than the store or than the
  // generation before it; kills between the steps of a rotation may leave a generation out.
  void expectWholeBackupsInOrder() {
    std::int64_t newer = generationOnDisk();
    for (int generation = 1; generation <= kStoreBackupCount; ++generation) {
      const std::filesystem::path backup = storeBackupFile(store_, generation);
      if (!std::filesystem::exists(backup)) continue;
      const std::int64_t found = generationIn(backup);
      EXPECT_LE(found, newer) << backup.filename();
      newer = found;
    }
  }

  // Kills `kills` children running `loop` at random moments spread over three save cycles (a
  // fresh child's first save is slower than those that follow), and checks the store after each
  // kill. `afterEachKill` may check more.
  Outcome killRepeatedly(
      int kills, const WriterLoop& loop, const std::function<void()>& afterEachKill = [] {}) {
    const unsigned seed = std::random_device{}();
    std::mt19937 random(seed);
    RecordProperty("seed", std::to_string(seed));
    Outcome outcome;

    // One child, killed after a few saves, gives the length of a save cycle and of its first
    // save. On a fast disk a cycle can take less than the first save's page faults, so the kills
    // spread over the first save as well.
    std::chrono::microseconds cycle{};
    std::chrono::microseconds firstSave{};
    {
      ChildProcess child([&](int descriptor) { loop(generation_, descriptor); });
      EXPECT_TRUE(child.awaitReport('r'));
      const Clock::time_point ready = Clock::now();
      EXPECT_TRUE(child.awaitReport('w'));
      const Clock::time_point first = Clock::now();
      firstSave = std::chrono::duration_cast<std::chrono::microseconds>(first - ready);
      EXPECT_TRUE(child.awaitReport('w') && child.awaitReport('w'));
      cycle = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - first) / 2;
      child.killAndReap();
      const std::int64_t found = generationOnDisk();
      EXPECT_GE(found, generation_ + child.saves());
      EXPECT_LE(found, generation_ + child.saves() + 1);
      generation_ = found;
      removeStrayTemporaryFiles();
    }
    if (::testing::Test::HasFailure()) return outcome;

    std::uniform_int_distribution<std::int64_t> delay(
        0, std::max(cycle.count() * 3, firstSave.count() + cycle.count() * 2));
    int kill = 0;
    for (; kill < kills; ++kill) {
      ChildProcess child([&](int descriptor) { loop(generation_, descriptor); });
      if (!child.awaitReport('r')) {
        ADD_FAILURE() << "kill " << kill << ": the child did not start";
        break;
      }
      std::this_thread::sleep_for(std::chrono::microseconds(delay(random)));
      child.killAndReap();

      // Every reported save is on disk, and at most one more that was not yet reported.
      const std::int64_t found = generationOnDisk();
      if (found < generation_ + child.saves() || found > generation_ + child.saves() + 1) {
        ADD_FAILURE() << "kill " << kill << ": generation " << found << " after " << generation_
                      << " and " << child.saves() << " reported saves (seed " << seed << ")";
        break;
      }
      if (found > generation_) ++outcome.killsAfterASave;
      generation_ = found;
      if (removeStrayTemporaryFiles() > 0) ++outcome.killsInsideAWrite;
      afterEachKill();
      if (::testing::Test::HasFailure()) break;
    }
    outcome.kills = kill;
    std::cout << kill << " kills over save cycles of " << cycle.count() / 1000
              << " ms: " << outcome.killsInsideAWrite << " inside a write, "
              << outcome.killsAfterASave << " after a completed save; generation " << generation_
              << "\n";
    return outcome;
  }

  // The real decoder reads the store on disk as the version of the current generation.
  void expectTheRepositoryReadsTheCurrentVersion() const {
    JSONBookmarkRepository::Store expected = expected_;
    expected.bookmarksByFingerprint[kFingerprint].back().locator.spineIndex = generation_;
    EXPECT_TRUE(JSONBookmarkRepository::loadStore(store_) == expected);
  }

  testing::TemporaryDirectory directory_;
  std::filesystem::path store_ = directory_ / "Publications" / kFingerprint / "bookmarks.json";
  std::string text_;  // the first version; the others differ in the digits at generationAt_
  std::size_t generationAt_ = 0;
  std::string buffer_;
  JSONBookmarkRepository::Store expected_;
  std::int64_t generation_ = 0;
};

TEST_F(StoreKillTest, KillsDuringLargeWritesLeaveTheOldOrTheNewStoreWhole) {
  constexpr int kKills = 200;
  makeStore(48, 64 * 1024);
  ASSERT_GT(text_.size(), 3'000'000u) << "the store is meant to be several megabytes";

  // The child writes each version of the store, as the repository encodes it, through the
  // writer that every repository uses.
  const Outcome outcome = killRepeatedly(kKills, [this](std::int64_t generation, int descriptor) {
    // The child's own copy of the text, made page by page as it changes.
    setGeneration(text_, ++generation);
    report(descriptor, 'r');
    for (const auto deadline = Clock::now() + 1min; Clock::now() < deadline;) {
      writeFileAtomically(store_, text_);
      report(descriptor, 'w');
      setGeneration(text_, ++generation);
    }
  });
  EXPECT_EQ(outcome.kills, kKills);
  expectTheRepositoryReadsTheCurrentVersion();
  // Kills must have hit writes in progress and between them, or the test proved nothing.
  EXPECT_GE(outcome.killsInsideAWrite, kKills / 10);
  EXPECT_GE(outcome.killsAfterASave, kKills / 20);
}

TEST_F(StoreKillTest, KillsDuringRepositorySavesLeaveTheOldOrTheNewStoreWhole) {
  constexpr int kKills = 20;
  makeStore(8, 8 * 1024);

  // The child saves through the repository: load, replace the marker, encode, write.
  const Outcome outcome = killRepeatedly(
      kKills,
      [this](std::int64_t generation, int descriptor) {
        JSONBookmarkRepository repository(store_);
        // The first save also starts the executor's thread; the kills are timed after it.
        async::runUntilDone(repository.save(marker(++generation)), 1min);
        report(descriptor, 'w');
        report(descriptor, 'r');
        for (const auto deadline = Clock::now() + 1min; Clock::now() < deadline;) {
          async::runUntilDone(repository.save(marker(++generation)), 1min);
          report(descriptor, 'w');
        }
      },
      [this] {
        expectTheRepositoryReadsTheCurrentVersion();
        expectWholeBackupsInOrder();
      });
  EXPECT_EQ(outcome.kills, kKills);
  EXPECT_GE(outcome.killsAfterASave, 1);
  // The saves kept their backups; a kill inside a rotation leaves one generation out at most.
  int backups = 0;
  for (int generation = 1; generation <= kStoreBackupCount; ++generation) {
    backups += std::filesystem::exists(storeBackupFile(store_, generation)) ? 1 : 0;
  }
  EXPECT_GE(backups, kStoreBackupCount - 1);
}

}  // namespace
}  // namespace tomekeeper
