#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "async/SerialExecutor.h"
#include "async/Task.h"
#include "model/PageLayout.h"
#include "model/ReadingMode.h"
#include "model/ReadingThemeSelection.h"
#include "model/ScrolledContentWidth.h"
#include "persistence/PageLayoutRepository.h"
#include "persistence/PersistenceFailures.h"
#include "persistence/ReadingModeRepository.h"
#include "persistence/ReadingThemeRepository.h"
#include "persistence/ScrolledContentWidthRepository.h"

namespace tomekeeper {

// What tells the four one-value preference stores apart: interface, value, failure, file name,
// the key of the value, and the value when there is no file.
struct ReadingThemeStoreFormat {
  using Interface = ReadingThemeRepository;
  using Value = ReadingThemeSelection;
  using Failure = ReadingThemePersistenceFailure;
  static constexpr std::string_view kFileName = "appearance.json";
  static constexpr std::string_view kValueKey = "selection";
  static constexpr Value kValueWithoutFile = ReadingThemeSelection::system;
};

struct ReadingModeStoreFormat {
  using Interface = ReadingModeRepository;
  using Value = ReadingMode;
  using Failure = ReadingModePersistenceFailure;
  static constexpr std::string_view kFileName = "reading-mode.json";
  static constexpr std::string_view kValueKey = "mode";
  static constexpr Value kValueWithoutFile = ReadingMode::paginated;
};

struct PageLayoutStoreFormat {
  using Interface = PageLayoutRepository;
  using Value = PageLayout;
  using Failure = PageLayoutPersistenceFailure;
  static constexpr std::string_view kFileName = "page-layout.json";
  static constexpr std::string_view kValueKey = "layout";
  static constexpr Value kValueWithoutFile = PageLayout::adaptive;
};

struct ScrolledContentWidthStoreFormat {
  using Interface = ScrolledContentWidthRepository;
  using Value = ScrolledContentWidth;
  using Failure = ScrolledContentWidthPersistenceFailure;
  static constexpr std::string_view kFileName = "scrolled-width.json";
  static constexpr std::string_view kValueKey = "preset";
  static constexpr Value kValueWithoutFile = ScrolledContentWidth::comfortable;
};

// A global preference of one value in one JSON file, {"schemaVersion":1,"<key>":"<value>"},
// e.g. Global/page-layout.json holding {"schemaVersion":1,"layout":"singlePage"}.
//
// load: no file gives the format's value without a file; a file that cannot be read or decoded
// (an unknown string included) fails with corruptStore, a schemaVersion other than 1 with
// unsupportedSchema, and the file stays as it is. save does not read first: it writes a new
// store whole and atomically, and so replaces a broken file with a good one; any failure of the
// directory, the encoding or the write is cannotWrite and leaves the old file whole.
//
// Call from the main executor. Operations run one at a time on the repository's own executor;
// a started operation owns what it needs, so the repository may be released while it runs.
template <typename Format>
class JSONPreferenceValueRepository : public Format::Interface {
 public:
  using Value = typename Format::Value;

  struct Store {
    std::int64_t schemaVersion = 1;
    Value value = Format::kValueWithoutFile;

    bool operator==(const Store&) const = default;
  };

  explicit JSONPreferenceValueRepository(std::filesystem::path fileURL);

  // Global/<file name> under the application's data directory.
  static std::filesystem::path fileURLIn(const std::filesystem::path& applicationSupportDirectory);

  const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

  async::Task<Value> load() override;
  async::Task<void> save(Value value) override;

  // The store in `contents`, the text of a file: corruptStore for anything that does not decode,
  // unsupportedSchema for a schemaVersion other than 1. Pure; for the repository and the fuzzer.
  static Store decodeStore(std::string_view contents);
  static std::string encodeStore(const Store& store);

 private:
  std::filesystem::path fileURL_;
  std::shared_ptr<async::SerialExecutor> executor_;
};

extern template class JSONPreferenceValueRepository<ReadingThemeStoreFormat>;
extern template class JSONPreferenceValueRepository<ReadingModeStoreFormat>;
extern template class JSONPreferenceValueRepository<PageLayoutStoreFormat>;
extern template class JSONPreferenceValueRepository<ScrolledContentWidthStoreFormat>;

// Global/appearance.json, {"schemaVersion":1,"selection":"dark"}; system without a file.
class JSONReadingThemeRepository final
    : public JSONPreferenceValueRepository<ReadingThemeStoreFormat> {
 public:
  using JSONPreferenceValueRepository::JSONPreferenceValueRepository;
};

// Global/reading-mode.json, {"schemaVersion":1,"mode":"scrolled"}; paginated without a file.
class JSONReadingModeRepository final
    : public JSONPreferenceValueRepository<ReadingModeStoreFormat> {
 public:
  using JSONPreferenceValueRepository::JSONPreferenceValueRepository;
};

// Global/page-layout.json, {"schemaVersion":1,"layout":"singlePage"}; adaptive without a file.
class JSONPageLayoutRepository final : public JSONPreferenceValueRepository<PageLayoutStoreFormat> {
 public:
  using JSONPreferenceValueRepository::JSONPreferenceValueRepository;
};

// Global/scrolled-width.json, {"schemaVersion":1,"preset":"wide"}; comfortable without a file.
class JSONScrolledContentWidthRepository final
    : public JSONPreferenceValueRepository<ScrolledContentWidthStoreFormat> {
 public:
  using JSONPreferenceValueRepository::JSONPreferenceValueRepository;
};

}  // namespace tomekeeper
