#include "model/SystemFontCatalog.h"

#include <fontconfig/fontconfig.h>
#include <unicode/coll.h>
#include <unicode/locid.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tomekeeper {

namespace {

struct PatternDeleter {
  void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
struct ObjectSetDeleter {
  void operator()(FcObjectSet* objects) const { FcObjectSetDestroy(objects); }
};
struct FontSetDeleter {
  void operator()(FcFontSet* fonts) const { FcFontSetDestroy(fonts); }
};
using PatternPointer = std::unique_ptr<FcPattern, PatternDeleter>;
using FontSetPointer = std::unique_ptr<FcFontSet, FontSetDeleter>;

std::optional<std::string> stringValue(FcPattern* font, const char* object, int index) {
  FcChar8* value = nullptr;
  if (FcPatternGetString(font, object, index, &value) != FcResultMatch || value == nullptr) {
    return std::nullopt;
  }
  std::string text(reinterpret_cast<const char*>(value));
  if (text.empty()) return std::nullopt;
  return text;
}

// True when a fontconfig language tag ("en", "zh-tw") is `language` or one of its regions.
bool languageMatches(std::string_view tag, std::string_view language) {
  if (language.empty() || tag.size() < language.size()) return false;
  if (tag.substr(0, language.size()) != language) return false;
  return tag.size() == language.size() || tag[language.size()] == '-';
}

// A name that fonts give in several languages (full name, family): the first value whose
// language is the first of `languages` that any value has, else the font's first value.
std::optional<std::string> localizedName(FcPattern* font, const char* object,
                                         const char* languageObject,
                                         std::initializer_list<std::string_view> languages) {
  for (const std::string_view language : languages) {
    for (int index = 0;; ++index) {
      const std::optional<std::string> tag = stringValue(font, languageObject, index);
      if (!tag) break;
      if (!languageMatches(*tag, language)) continue;
      if (std::optional<std::string> name = stringValue(font, object, index)) return name;
    }
  }
  return stringValue(font, object, 0);
}

std::string userLanguage() {
  return icu::Locale::getDefault().getLanguage();
}

std::optional<SystemFontRecord> recordOf(FcPattern* font, std::string_view language) {
  std::optional<std::string> stableName = stringValue(font, FC_POSTSCRIPT_NAME, 0);
  if (!stableName) return std::nullopt;
  std::optional<std::string> displayName =
      localizedName(font, FC_FULLNAME, FC_FULLNAMELANG, {language, "en"});
  // CSS matches a family by any of its names; the English one is the most widely known.
  std::optional<std::string> cssFamilyName = localizedName(font, FC_FAMILY, FC_FAMILYLANG, {"en"});
  return SystemFontRecord{
      .stableName = *stableName,
      .displayName = displayName.value_or(*stableName),
      .cssFamilyName = cssFamilyName.value_or(*stableName),
  };
}

// The fonts matching `pattern`, with the names a record needs.
FontSetPointer listFonts(FcPattern* pattern) {
  // Picks up fonts installed or removed since fontconfig last looked; it rescans at most once
  // per its rescan interval, so calling it on each lookup is cheap.
  FcInitBringUptoDate();
  std::unique_ptr<FcObjectSet, ObjectSetDeleter> objects(
      FcObjectSetBuild(FC_POSTSCRIPT_NAME, FC_FULLNAME, FC_FULLNAMELANG, FC_FAMILY, FC_FAMILYLANG,
                       static_cast<char*>(nullptr)));
  if (!objects) return nullptr;
  return FontSetPointer(FcFontList(nullptr, pattern, objects.get()));
}

}  // namespace

std::vector<SystemFontRecord> SystemFontCatalog::availableFonts() const {
  PatternPointer everything(FcPatternCreate());
  if (!everything) return {};
  const FontSetPointer fonts = listFonts(everything.get());
  if (!fonts) return {};
  const std::string language = userLanguage();
  std::vector<SystemFontRecord> records;
  records.reserve(static_cast<std::size_t>(fonts->nfont));
  for (int index = 0; index < fonts->nfont; ++index) {
    if (std::optional<SystemFontRecord> record = recordOf(fonts->fonts[index], language)) {
      records.push_back(std::move(*record));
    }
  }
  return listInDisplayOrder(std::move(records));
}

TypographyFontResolution SystemFontCatalog::resolve(
    const TypographyFontSelection& selection) const {
  if (selection.kind() == TypographyFontSelection::Kind::bookDefault) {
    return TypographyFontResolution::bookDefault();
  }
  const std::string& stableName = *selection.stableName();
  PatternPointer pattern(FcPatternCreate());
  if (!pattern || !FcPatternAddString(pattern.get(), FC_POSTSCRIPT_NAME,
                                      reinterpret_cast<const FcChar8*>(stableName.c_str()))) {
    return TypographyFontResolution::fallback(stableName);
  }
  const FontSetPointer fonts = listFonts(pattern.get());
  if (!fonts) return TypographyFontResolution::fallback(stableName);
  const std::string language = userLanguage();
  for (int index = 0; index < fonts->nfont; ++index) {
    std::optional<SystemFontRecord> record = recordOf(fonts->fonts[index], language);
    if (record && record->stableName == stableName) {
      return TypographyFontResolution::available(std::move(*record));
    }
  }
  return TypographyFontResolution::fallback(stableName);
}

std::vector<SystemFontRecord> SystemFontCatalog::listInDisplayOrder(
    std::vector<SystemFontRecord> records, const icu::Locale& locale) {
  std::map<std::string, SystemFontRecord> byStableName;
  for (SystemFontRecord& record : records) {
    std::string key = record.stableName;
    byStableName.insert_or_assign(std::move(key), std::move(record));
  }
  std::vector<SystemFontRecord> list;
  list.reserve(byStableName.size());
  for (auto& entry : byStableName) list.push_back(std::move(entry.second));

  UErrorCode status = U_ZERO_ERROR;
  const bool posix = std::string_view(locale.getVariant()) == "POSIX";
  std::unique_ptr<icu::Collator> collator(
      icu::Collator::createInstance(posix ? icu::Locale::getRoot() : locale, status));
  if (U_SUCCESS(status)) collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
  if (U_FAILURE(status)) collator.reset();  // no collation data: the names' bytes decide

  const auto collate = [&collator](const std::string& left, const std::string& right) {
    if (collator) {
      UErrorCode comparisonStatus = U_ZERO_ERROR;
      const UCollationResult result = collator->compareUTF8(left, right, comparisonStatus);
      if (U_SUCCESS(comparisonStatus)) return static_cast<int>(result);
    }
    return left.compare(right);
  };
  std::sort(list.begin(), list.end(),
            [&collate](const SystemFontRecord& left, const SystemFontRecord& right) {
              if (const int order = collate(left.displayName, right.displayName); order != 0) {
                return order < 0;
              }
              if (const int order = collate(left.stableName, right.stableName); order != 0) {
                return order < 0;
              }
              // Distinct names that collate as equal still need one order, for a stable list.
              return left.stableName < right.stableName;
            });
  return list;
}

}  // namespace tomekeeper
