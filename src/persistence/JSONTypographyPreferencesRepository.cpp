#include "persistence/JSONTypographyPreferencesRepository.h"

#include "model/JSONCoding.h"
#include "persistence/JSONStoreFile.h"
#include "persistence/PersistenceFailures.h"

namespace tomekeeper {

namespace {

using StoreFailure = TypographyPreferencesPersistenceFailure;
using Store = JSONTypographyPreferencesRepository::Store;

constexpr std::int64_t kOldestReadableSchemaVersion = 1;

nlohmann::json encodeStoreValue(const Store& store) {
  nlohmann::json json = {{"schemaVersion", store.schemaVersion},
                         {"fontSelection", store.fontSelection}};
  encodeOptionalField(json, "fontScaleSelection", store.fontScaleSelection);
  encodeOptionalField(json, "lineHeightSelection", store.lineHeightSelection);
  encodeOptionalField(json, "letterSpacingSelection", store.letterSpacingSelection);
  encodeOptionalField(json, "pageMarginsSelection", store.pageMarginsSelection);
  return json;
}

void writePreferences(const std::filesystem::path& fileURL,
                      const TypographyPreferences& preferences) {
  detail::writeStoreFile(fileURL, encodeStoreValue(Store::of(preferences)),
                         StoreFailure::cannotWrite);
}

}  // namespace

TypographyPreferences Store::preferences() const {
  TypographyPreferences preferences;
  preferences.font = fontSelection;
  preferences.fontScale = fontScaleSelection.value_or(TypographyFontScaleSelection::bookDefault());
  preferences.lineHeight =
      lineHeightSelection.value_or(TypographyLineHeightSelection::bookDefault());
  preferences.letterSpacing =
      letterSpacingSelection.value_or(TypographyLetterSpacingSelection::bookDefault());
  preferences.pageMargins =
      pageMarginsSelection.value_or(TypographyPageMarginsSelection::bookDefault);
  return preferences;
}

Store Store::of(const TypographyPreferences& preferences) {
  return Store{kWrittenSchemaVersion,  preferences.font,          preferences.fontScale,
               preferences.lineHeight, preferences.letterSpacing, preferences.pageMargins};
}

JSONTypographyPreferencesRepository::JSONTypographyPreferencesRepository(
    std::filesystem::path fileURL)
    : fileURL_(std::move(fileURL)), executor_(std::make_shared<async::SerialExecutor>()) {}

std::filesystem::path JSONTypographyPreferencesRepository::fileURLIn(
    const std::filesystem::path& applicationSupportDirectory) {
  return detail::standardisedFileURL(applicationSupportDirectory / "Global" / kFileName);
}

Store JSONTypographyPreferencesRepository::decodeStore(std::string_view contents) {
  Store store;
  try {
    const nlohmann::json document = detail::parseStoreDocument(contents);
    requireJSONObject(document, "JSONTypographyPreferencesRepository.Store");
    store.schemaVersion = decodeRequiredField<std::int64_t>(document, "schemaVersion");
    store.fontSelection = decodeRequiredField<TypographyFontSelection>(document, "fontSelection");
    store.fontScaleSelection =
        decodeOptionalField<TypographyFontScaleSelection>(document, "fontScaleSelection");
    store.lineHeightSelection =
        decodeOptionalField<TypographyLineHeightSelection>(document, "lineHeightSelection");
    store.letterSpacingSelection =
        decodeOptionalField<TypographyLetterSpacingSelection>(document, "letterSpacingSelection");
    store.pageMarginsSelection =
        decodeOptionalField<TypographyPageMarginsSelection>(document, "pageMarginsSelection");
  } catch (const JSONDecodingError&) {
    throwFailure(StoreFailure::corruptStore);
  }
  if (store.schemaVersion < kOldestReadableSchemaVersion ||
      store.schemaVersion > kWrittenSchemaVersion) {
    throwFailure(StoreFailure::unsupportedSchema);
  }
  return store;
}

std::string JSONTypographyPreferencesRepository::encodeStore(const Store& store) {
  return detail::encodeStoreDocument(encodeStoreValue(store));
}

TypographyPreferences JSONTypographyPreferencesRepository::loadPreferences(
    const std::filesystem::path& fileURL) {
  const std::optional<std::string> contents =
      detail::readStoreFile(fileURL, StoreFailure::corruptStore);
  if (!contents) return TypographyPreferences{};
  return decodeStore(*contents).preferences();
}

async::Task<TypographyPreferences> JSONTypographyPreferencesRepository::load() {
  return detail::runSerially(executor_, [fileURL = fileURL_] { return loadPreferences(fileURL); });
}

template <typename Change>
async::Task<void> JSONTypographyPreferencesRepository::saveChanged(Change change) {
  return detail::runSerially(executor_, [fileURL = fileURL_, change = std::move(change)] {
    TypographyPreferences preferences = loadPreferences(fileURL);
    change(preferences);
    writePreferences(fileURL, preferences);
  });
}

async::Task<void> JSONTypographyPreferencesRepository::saveFont(TypographyFontSelection selection) {
  return saveChanged([selection = std::move(selection)](TypographyPreferences& preferences) {
    preferences.font = selection;
  });
}

async::Task<void> JSONTypographyPreferencesRepository::saveFontScale(
    TypographyFontScaleSelection selection) {
  return saveChanged(
      [selection](TypographyPreferences& preferences) { preferences.fontScale = selection; });
}

async::Task<void> JSONTypographyPreferencesRepository::saveLineHeight(
    TypographyLineHeightSelection selection) {
  return saveChanged(
      [selection](TypographyPreferences& preferences) { preferences.lineHeight = selection; });
}

async::Task<void> JSONTypographyPreferencesRepository::saveLetterSpacing(
    TypographyLetterSpacingSelection selection) {
  return saveChanged(
      [selection](TypographyPreferences& preferences) { preferences.letterSpacing = selection; });
}

async::Task<void> JSONTypographyPreferencesRepository::savePageMargins(
    TypographyPageMarginsSelection selection) {
  return saveChanged(
      [selection](TypographyPreferences& preferences) { preferences.pageMargins = selection; });
}

async::Task<void> JSONTypographyPreferencesRepository::restoreDefaults() {
  return detail::runSerially(executor_, [fileURL = fileURL_] { writePreferences(fileURL, {}); });
}

}  // namespace tomekeeper
