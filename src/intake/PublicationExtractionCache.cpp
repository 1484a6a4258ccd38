#include "intake/PublicationExtractionCache.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "async/BackgroundPool.h"
#include "intake/EPUBArchiveSinglePass.h"
#include "intake/FileOperations.h"
#include "intake/IntakeFailures.h"
#include "intake/PackageDocumentReadAhead.h"
#include "intake/PublicationCacheOperationLease.h"
#include "model/Uuid.h"
#include "opening/OpenPerformanceTrace.h"

namespace tomekeeper {

struct PublicationExtractionCache::StagedExtraction {
  std::shared_ptr<PublicationCacheOperationLease> lease;
  // The extracted tree inside the lease's work area.
  std::filesystem::path extracted;
  std::int64_t entryCount = 0;
};

class PublicationExtractionCache::StagedExtractions {
 public:
  void put(const std::string& fingerprint, std::shared_ptr<StagedExtraction> staged) {
    std::shared_ptr<StagedExtraction> replaced;
    const std::lock_guard hold(lock_);
    replaced = std::exchange(byFingerprint_[fingerprint], std::move(staged));
  }
  std::shared_ptr<StagedExtraction> take(const std::string& fingerprint) {
    const std::lock_guard hold(lock_);
    const auto found = byFingerprint_.find(fingerprint);
    if (found == byFingerprint_.end()) return nullptr;
    std::shared_ptr<StagedExtraction> staged = std::move(found->second);
    byFingerprint_.erase(found);
    return staged;
  }

 private:
  std::mutex lock_;
  std::map<std::string, std::shared_ptr<StagedExtraction>> byFingerprint_;
};

namespace {

namespace fs = std::filesystem;
using Stage = OpenPerformanceTrace::Stage;

constexpr std::string_view kOperationPrefix = ".operation-";
constexpr std::string_view kPartialSuffix = ".partial";

// Marks one stage of the bound trace, if any, when it goes out of scope:
// stages are timed on success and on failure alike.
class StageMark {
 public:
  StageMark(std::shared_ptr<OpenPerformanceTrace> trace, Stage stage)
      : trace_(std::move(trace)), stage_(stage) {
    if (trace_) token_ = trace_->start();
  }
  ~StageMark() {
    if (trace_) trace_->mark(stage_, token_);
  }
  StageMark(const StageMark&) = delete;
  StageMark& operator=(const StageMark&) = delete;

 private:
  std::shared_ptr<OpenPerformanceTrace> trace_;
  Stage stage_;
  OpenPerformanceTrace::Token token_{};
};

// Ends the lease on every way out of the operation, cancellation included.
struct FinishLease {
  std::shared_ptr<PublicationCacheOperationLease> lease;
  ~FinishLease() {
    if (lease) lease->finish();
  }
};

enum class CommitOutcome { committed, alreadyThere };

CommitOutcome commit(const fs::path& staged, const fs::path& finalDirectory) {
  std::error_code error;
  if (fs::exists(finalDirectory, error)) return CommitOutcome::alreadyThere;
  moveWithoutReplacing(staged, finalDirectory, error);
  if (!error) return CommitOutcome::committed;
  // Another operation won the race for the final name.
  std::error_code ignored;
  if (fs::exists(finalDirectory, ignored)) return CommitOutcome::alreadyThere;
  throw fs::filesystem_error("commit of the extracted publication", staged, finalDirectory, error);
}

// Runs `function` on the background pool with the awaiting task's stop token.
template <typename Function>
auto inBackground(Function function) -> async::Task<async::detail::BackgroundResult<Function>> {
  auto work = async::runInBackground(std::move(function));
  co_return co_await work;
}

async::Task<PreparedPublicationResources> prepareWith(PublicationExtractionCache cache,
                                                      fs::path sourceURL, std::string fingerprint) {
  const std::shared_ptr<OpenPerformanceTrace> trace = co_await OpenPerformanceTrace::current();
  const fs::path publicationDirectory = cache.cachesRoot() / fingerprint;
  const fs::path finalDirectory = publicationDirectory / "Extracted";
  const EPUBContainerValidator validator = cache.containerValidator();
  // Taken whatever happens next, so that nothing stays staged for this book.
  const std::shared_ptr<PublicationExtractionCache::StagedExtraction> staged =
      cache.takeStaged(fingerprint);
  FinishLease stagedLease{staged ? staged->lease : nullptr};

  const bool finalExists = co_await inBackground([cache, finalDirectory] {
    cache.sweepStaleOperations();
    return fs::exists(finalDirectory);
  });

  if (finalExists) {
    std::optional<ValidatedEPUBContainer> cached;
    {
      StageMark mark(trace, Stage::extractionCacheValidation);
      cached = co_await inBackground(
          [validator,
           finalDirectory](std::stop_token stopToken) -> std::optional<ValidatedEPUBContainer> {
            try {
              return validator.validate(finalDirectory, stopToken);
            } catch (const EPUBContainerValidationFailureError&) {
              // A copy that stopped passing is rebuilt without a word; a book
              // that is refused again is refused by the full run.
              fs::remove_all(finalDirectory);
              return std::nullopt;
            }
          });
    }
    if (cached) {
      if (trace) trace->setExtractionCacheHit(true);
      co_return PublicationExtractionCache::buildResources(fingerprint, finalDirectory, *cached);
    }
  }
  if (trace) trace->setExtractionCacheHit(false);

  co_await inBackground([publicationDirectory] { fs::create_directories(publicationDirectory); });

  fs::path extracted;
  FinishLease lease;
  if (staged) {
    // The file was read once already, by the pass that fingerprinted it.
    if (trace) trace->setArchiveEntryCount(staged->entryCount);
    lease.lease = std::move(stagedLease.lease);
    extracted = staged->extracted;
  } else {
    EPUBArchiveInspection inspection;
    {
      StageMark mark(trace, Stage::archiveInspection);
      inspection = co_await cache.inspector().inspect(sourceURL);
    }
    if (trace) trace->setArchiveEntryCount(static_cast<std::int64_t>(inspection.entries.size()));

    lease.lease = co_await inBackground([root = cache.cachesRoot()] {
      return std::make_shared<PublicationCacheOperationLease>(root);
    });
    extracted = lease.lease->operationRoot() / "Extracted";

    StageMark mark(trace, Stage::archiveExtraction);
    co_await inBackground([extractor = cache.extractor(), sourceURL, &inspection,
                           extracted](std::stop_token stopToken) {
      return extractor.extract(sourceURL, inspection, extracted, stopToken);
    });
  }

  std::optional<ValidatedEPUBContainer> validated;
  {
    StageMark mark(trace, Stage::containerValidation);
    validated = co_await inBackground([validator, extracted](std::stop_token stopToken) {
      return validator.validate(extracted, stopToken);
    });
  }

  CommitOutcome outcome;
  {
    StageMark mark(trace, Stage::cacheCommit);
    outcome = co_await inBackground(
        [extracted, finalDirectory] { return commit(extracted, finalDirectory); });
  }

  if (outcome == CommitOutcome::alreadyThere) {
    validated = co_await inBackground([validator, finalDirectory](std::stop_token stopToken) {
      return validator.validate(finalDirectory, stopToken);
    });
  }
  co_return PublicationExtractionCache::buildResources(fingerprint, finalDirectory, *validated);
}

std::string escapedPath(const std::string& path) {
  gchar* escaped = g_uri_escape_string(path.c_str(), G_URI_RESERVED_CHARS_ALLOWED_IN_PATH, FALSE);
  std::string result(escaped);
  g_free(escaped);
  return result;
}

}  // namespace

PublicationExtractionCache::PublicationExtractionCache(fs::path cachesRoot)
    : PublicationExtractionCache(std::move(cachesRoot), EPUBArchiveInspector(),
                                 EPUBArchiveExtractor(), EPUBContainerValidator()) {}

PublicationExtractionCache::PublicationExtractionCache(fs::path cachesRoot,
                                                       EPUBArchiveInspector inspector,
                                                       EPUBArchiveExtractor extractor,
                                                       EPUBContainerValidator containerValidator)
    : cachesRoot_(std::move(cachesRoot)),
      inspector_(std::move(inspector)),
      extractor_(std::move(extractor)),
      containerValidator_(std::move(containerValidator)),
      staged_(std::make_shared<StagedExtractions>()) {}

fs::path PublicationExtractionCache::standardCachesRoot() {
  return fs::path(g_get_user_cache_dir()) / "tomekeeper" / "Publications";
}

namespace {

async::Task<std::string> fingerprintWhileExtractingWith(PublicationExtractionCache cache,
                                                        fs::path sourceURL,
                                                        PreparationObserver observer) {
  const std::shared_ptr<OpenPerformanceTrace> trace = co_await OpenPerformanceTrace::current();
  FinishLease lease{co_await inBackground([cache] {
    fs::create_directories(cache.cachesRoot());
    cache.sweepStaleOperations();
    return std::make_shared<PublicationCacheOperationLease>(cache.cachesRoot());
  })};
  const fs::path extracted = lease.lease->operationRoot() / "Extracted";
  std::optional<SinglePassExtraction> pass;
  {
    StageMark mark(trace, Stage::archiveExtraction);
    pass =
        co_await inBackground([single = EPUBArchiveSinglePass(cache.inspector(), cache.extractor()),
                               sourceURL, extracted,
                               observer = observeSinglePass(std::move(observer))](
                                  std::stop_token stopToken) {
          return single.extract(sourceURL, extracted, stopToken, observer);
        });
  }
  cache.stage(pass->fingerprint,
              std::make_shared<PublicationExtractionCache::StagedExtraction>(
                  PublicationExtractionCache::StagedExtraction{
                      std::move(lease.lease), extracted,
                      static_cast<std::int64_t>(pass->inspection.entries.size())}));
  co_return pass->fingerprint;
}

}  // namespace

async::Task<std::string> PublicationExtractionCache::fingerprintWhileExtracting(
    fs::path sourceURL, PreparationObserver observer) const {
  return fingerprintWhileExtractingWith(*this, std::move(sourceURL), std::move(observer));
}

void PublicationExtractionCache::discardStaged(const std::string& fingerprint) const {
  // The lease finishes, removing the work area, when its last holder lets go.
  staged_->take(fingerprint);
}

std::shared_ptr<PublicationExtractionCache::StagedExtraction>
PublicationExtractionCache::takeStaged(const std::string& fingerprint) const {
  return staged_->take(fingerprint);
}

void PublicationExtractionCache::stage(const std::string& fingerprint,
                                       std::shared_ptr<StagedExtraction> staged) const {
  staged_->put(fingerprint, std::move(staged));
}

async::Task<PreparedPublicationResources> PublicationExtractionCache::prepare(
    fs::path sourceURL, std::string fingerprint) const {
  return prepareWith(*this, std::move(sourceURL), std::move(fingerprint));
}

void PublicationExtractionCache::sweepStaleOperations() const {
  std::error_code error;
  if (!fs::exists(cachesRoot_, error)) return;
  for (const fs::directory_entry& child : fs::directory_iterator(cachesRoot_)) {
    const std::string name = child.path().filename().string();
    if (!name.starts_with(kOperationPrefix) || !name.ends_with(kPartialSuffix)) continue;
    if (!child.is_directory(error) || child.is_symlink(error)) continue;

    const fs::path lockPath =
        cachesRoot_ / (name.substr(0, name.size() - kPartialSuffix.size()) + ".lock");
    const int descriptor = ::open(lockPath.c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor < 0) continue;
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
      // A live operation, here or in another process.
      ::close(descriptor);
      continue;
    }
    fs::remove_all(child.path(), error);
    fs::remove(lockPath, error);
    ::flock(descriptor, LOCK_UN);
    ::close(descriptor);
  }
}

async::Task<std::int64_t> PublicationExtractionCache::measureSize() const {
  return inBackground([root = cachesRoot_]() -> std::int64_t {
    std::error_code error;
    if (!fs::exists(root, error)) return 0;
    fs::recursive_directory_iterator items(root, error);
    if (error) return 0;
    std::int64_t total = 0;
    for (; items != fs::recursive_directory_iterator(); items.increment(error)) {
      if (error) throw fs::filesystem_error("measure the publication cache", root, error);
      const fs::directory_entry& item = *items;
      // Hidden names are running (or stale) operations: not part of the cache.
      if (item.path().filename().string().starts_with('.')) {
        if (item.is_directory(error) && !item.is_symlink(error)) items.disable_recursion_pending();
        continue;
      }
      struct stat status {};
      if (::lstat(item.path().c_str(), &status) != 0) {
        throw fs::filesystem_error("measure the publication cache", item.path(),
                                   std::error_code(errno, std::generic_category()));
      }
      if (S_ISREG(status.st_mode)) total += static_cast<std::int64_t>(status.st_blocks) * 512;
    }
    if (error) throw fs::filesystem_error("measure the publication cache", root, error);
    return total;
  });
}

async::Task<void> PublicationExtractionCache::clear() const {
  return inBackground([root = cachesRoot_] {
    if (fs::exists(root)) fs::remove_all(root);
  });
}

PreparedPublicationResources PublicationExtractionCache::buildResources(
    const std::string& fingerprint, const fs::path& extractedRoot,
    const ValidatedEPUBContainer& container) {
  const Uuid publicationID = Uuid::random();
  const std::string baseURL = "tomekeeper://publication/" + publicationID.string() + "/";
  const std::string packageURL = baseURL + escapedPath(container.packageDocumentPath);
  const std::string resourceBaseURL = packageURL.substr(0, packageURL.rfind('/') + 1);
  return PreparedPublicationResources{
      .fingerprint = fingerprint,
      .extractedRoot = extractedRoot,
      .descriptor =
          PublicationDescriptor{
              .publicationID = publicationID,
              .packageURL = packageURL,
              .resourceBaseURL = resourceBaseURL,
              .accessMode = PublicationDescriptor::AccessMode::applicationResourceScheme,
          },
      .intakeFindings = {.fontObfuscationAlgorithms = container.fontObfuscationAlgorithms},
  };
}

}  // namespace tomekeeper
