#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "async/SerialExecutor.h"
#include "persistence/TypographyPreferencesRepository.h"

namespace tomekeeper {

// The typography selections in Global/typography.json. The file has grown over five schema
// versions: versions 1 to 4 lack some of the four later selections, which then read as
// bookDefault. Every version from 1 to 5 is read; 5 is written, always with all five selections:
// {"schemaVersion":5,"fontSelection":{"bookDefault":{}},"fontScaleSelection":{"value":{"_0":1.2}},
//  "lineHeightSelection":...,"letterSpacingSelection":...,"pageMarginsSelection":"narrow"}.
//
// Failures (TypographyPreferencesPersistenceFailure): a file that cannot be read or decoded (an
// unknown case included): corruptStore; a schemaVersion outside 1 to 5: unsupportedSchema; the
// directory, the encoding or the write: cannotWrite. A missing file is every selection
// bookDefault. Saving one selection reads the store first, so on a broken store it fails and
// leaves the file as it is; a successful save upgrades the file to version 5. restoreDefaults
// writes without reading, and so replaces even a broken file.
//
// Call from the main executor. Operations run one at a time on the repository's own executor;
// a started operation owns what it needs, so the repository may be released while it runs.
class JSONTypographyPreferencesRepository final : public TypographyPreferencesRepository {
 public:
  static constexpr std::int64_t kWrittenSchemaVersion = 5;
  static constexpr std::string_view kFileName = "typography.json";

  struct Store {
    std::int64_t schemaVersion = kWrittenSchemaVersion;
    TypographyFontSelection fontSelection;
    std::optional<TypographyFontScaleSelection> fontScaleSelection;
    std::optional<TypographyLineHeightSelection> lineHeightSelection;
    std::optional<TypographyLetterSpacingSelection> letterSpacingSelection;
    std::optional<TypographyPageMarginsSelection> pageMarginsSelection;

    // The selections, bookDefault for each that the store lacks.
    TypographyPreferences preferences() const;
    // A store of the written version with all five selections.
    static Store of(const TypographyPreferences& preferences);

    bool operator==(const Store&) const = default;
  };

  explicit JSONTypographyPreferencesRepository(std::filesystem::path fileURL);

  // Global/typography.json under the application's data directory.
  static std::filesystem::path fileURLIn(const std::filesystem::path& applicationSupportDirectory);

  const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

  async::Task<TypographyPreferences> load() override;
  async::Task<void> saveFont(TypographyFontSelection selection) override;
  async::Task<void> saveFontScale(TypographyFontScaleSelection selection) override;
  async::Task<void> saveLineHeight(TypographyLineHeightSelection selection) override;
  async::Task<void> saveLetterSpacing(TypographyLetterSpacingSelection selection) override;
  async::Task<void> savePageMargins(TypographyPageMarginsSelection selection) override;
  async::Task<void> restoreDefaults() override;

  // The store in `contents`, the text of a file: corruptStore for anything that does not decode,
  // unsupportedSchema for a schemaVersion outside 1 to 5. Pure; for the repository and the fuzzer.
  static Store decodeStore(std::string_view contents);
  static std::string encodeStore(const Store& store);

  // The selections in the file (all bookDefault when there is none), with the failures above.
  // Blocking.
  static TypographyPreferences loadPreferences(const std::filesystem::path& fileURL);

 private:
  // Loads, lets `change` replace one selection, and writes all five; on the executor.
  template <typename Change>
  async::Task<void> saveChanged(Change change);

  std::filesystem::path fileURL_;
  std::shared_ptr<async::SerialExecutor> executor_;
};

}  // namespace tomekeeper
