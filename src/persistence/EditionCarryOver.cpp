#include "persistence/EditionCarryOver.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "model/JSONCoding.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONStoreFile.h"
#include "persistence/PublicationOutline.h"
#include "persistence/PublicationStateRepositoryFactory.h"
#include "platform/AtomicFileWriter.h"

namespace tomekeeper {

namespace {

namespace fs = std::filesystem;

std::string collapsed(std::string_view text) {
  std::string result;
  bool space = false;
  for (const char character : text) {
    if (character == ' ' || character == '\t' || character == '\n' || character == '\r') {
      space = !result.empty();
    } else {
      if (space) result += ' ';
      space = false;
      result += character;
    }
  }
  return result;
}

std::size_t commonSuffixLength(std::string_view left, std::string_view right) {
  std::size_t length = 0;
  while (length < left.size() && length < right.size() &&
         left[left.size() - 1 - length] == right[right.size() - 1 - length]) {
    ++length;
  }
  return length;
}

std::size_t commonPrefixLength(std::string_view left, std::string_view right) {
  std::size_t length = 0;
  while (length < left.size() && length < right.size() && left[length] == right[length]) ++length;
  return length;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

struct Quote {
  std::string exact;
  std::string prefix;
  std::string suffix;
};

// The quote the runtime places a highlight by (see the runtime's quoteOf).
Quote quoteOf(const Locator& locator, const std::string& selectedText) {
  const std::optional<TextContext>& excerpt = locator.excerpt;
  Quote quote{collapsed(selectedText), {}, {}};
  if (quote.exact.empty() && excerpt) quote.exact = collapsed(excerpt->exact);
  if (!excerpt) return quote;
  if (excerpt->prefix) quote.prefix = std::string(trimmed(collapsed(*excerpt->prefix)));
  if (excerpt->suffix && collapsed(excerpt->exact) == quote.exact) {
    quote.suffix = std::string(trimmed(collapsed(*excerpt->suffix)));
  }
  return quote;
}

struct Place {
  std::size_t section = 0;
  std::size_t position = 0;
  std::size_t agreement = 0;
  bool wholeSide = false;
};

std::optional<Place> bestPlace(const Quote& quote, std::int64_t oldSection,
                               const std::vector<std::string>& sections) {
  if (quote.exact.empty()) return std::nullopt;
  std::optional<Place> best;
  std::size_t occurrences = 0;
  const auto distance = [&](const Place& place) {
    return std::llabs(static_cast<long long>(place.section) - oldSection);
  };
  for (std::size_t section = 0; section < sections.size(); ++section) {
    const std::string& text = sections[section];
    for (std::size_t at = text.find(quote.exact); at != std::string::npos;
         at = text.find(quote.exact, at + 1)) {
      ++occurrences;
      const std::string_view before = trimmed(std::string_view(text).substr(0, at));
      const std::string_view after =
          trimmed(std::string_view(text).substr(at + quote.exact.size()));
      const std::size_t prefixAgreement = commonSuffixLength(quote.prefix, before);
      const std::size_t suffixAgreement = commonPrefixLength(quote.suffix, after);
      const Place place{section, at, prefixAgreement + suffixAgreement,
                        (!quote.prefix.empty() && prefixAgreement == quote.prefix.size()) ||
                            (!quote.suffix.empty() && suffixAgreement == quote.suffix.size())};
      if (!best || place.agreement > best->agreement ||
          (place.agreement == best->agreement && distance(place) < distance(*best))) {
        best = place;
      }
    }
  }
  if (!best) return std::nullopt;
  const std::size_t context = quote.prefix.size() + quote.suffix.size();
  const bool accepted =
      context == 0 ? occurrences == 1 : best->wholeSide || 2 * best->agreement >= context;
  if (!accepted) return std::nullopt;
  return best;
}

std::int64_t modificationNanoseconds(const fs::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return -1;
  return status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec;
}

}  // namespace

void writePublicationRecord(const fs::path& publicationDirectory, const PublicationRecord& record) {
  if (readPublicationRecord(publicationDirectory) == record) return;
  detail::writeStoreFileOrThrow(
      publicationDirectory / kPublicationRecordFileName,
      {{"schemaVersion", 1}, {"identifier", record.identifier}, {"title", record.title}});
}

std::optional<PublicationRecord> readPublicationRecord(const fs::path& publicationDirectory) {
  try {
    const std::optional<std::string> contents =
        readWholeFile(publicationDirectory / kPublicationRecordFileName);
    if (!contents) return std::nullopt;
    const nlohmann::json document = detail::parseStoreDocument(*contents);
    requireJSONObject(document, "PublicationRecord");
    if (decodeRequiredField<std::int64_t>(document, "schemaVersion") != 1) return std::nullopt;
    return PublicationRecord{decodeRequiredField<std::string>(document, "identifier"),
                             decodeRequiredField<std::string>(document, "title")};
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<std::string> findEarlierEdition(const fs::path& publicationsRoot,
                                              const std::string& fingerprint,
                                              const PublicationRecord& record) {
  if (record.identifier.empty() || record.title.empty()) return std::nullopt;
  std::optional<std::string> found;
  std::int64_t foundChanged = -1;
  std::error_code error;
  for (fs::directory_iterator entry(publicationsRoot, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string candidate = entry->path().filename().string();
    if (candidate == fingerprint || readPublicationRecord(entry->path()) != record) continue;
    const fs::path store = entry->path() / PublicationStateRepositoryFactory::kAnnotationsFileName;
    try {
      const auto stored = JSONAnnotationRepository::loadStore(store).annotationsByFingerprint;
      const auto list = stored.find(candidate);
      if (list == stored.end() || list->second.empty()) continue;
    } catch (const std::exception&) {
      continue;
    }
    const std::int64_t changed = modificationNanoseconds(store);
    if (changed > foundChanged) {
      found = candidate;
      foundChanged = changed;
    }
  }
  return found;
}

EditionText EditionText::read(const fs::path& publicationRoot,
                              const std::string& packageDocumentPath) {
  PublicationOutline outline = readPublicationOutline(publicationRoot, packageDocumentPath);
  EditionText edition;
  for (const fs::path& file : outline.spineFiles) {
    try {
      edition.sections_.push_back(file.empty() ? std::string()
                                               : readSectionText(publicationRoot, file));
    } catch (const std::exception&) {
      edition.sections_.emplace_back();
    }
  }
  edition.spine_ = std::move(outline.spine);
  return edition;
}

std::optional<Locator> EditionText::reanchor(const Locator& locator,
                                             const std::string& selectedText) const {
  const std::optional<Place> place =
      bestPlace(quoteOf(locator, selectedText), locator.spineIndex, sections_);
  if (!place) return std::nullopt;
  Locator moved = locator;
  moved.spineIndex = static_cast<std::int64_t>(place->section);
  moved.spineHref = spine_[place->section].href;
  moved.cfi.reset();
  moved.totalProgression.reset();
  const std::size_t length = sections_[place->section].size();
  moved.sectionProgression =
      length == 0 ? 0.0 : static_cast<double>(place->position) / static_cast<double>(length);
  return moved;
}

CarryOverResult carryOverHighlights(const std::vector<Annotation>& highlights,
                                    const fs::path& publicationRoot,
                                    const std::string& packageDocumentPath,
                                    const std::string& fingerprint) {
  const EditionText edition = EditionText::read(publicationRoot, packageDocumentPath);
  CarryOverResult result;
  for (const Annotation& highlight : highlights) {
    if (std::optional<Locator> moved =
            edition.reanchor(highlight.locator, highlight.selectedText)) {
      Annotation carried = highlight;
      carried.bookFingerprint = fingerprint;
      carried.locator = std::move(*moved);
      result.carried.push_back(std::move(carried));
    } else {
      result.notFound.push_back(highlight);
    }
  }
  return result;
}

}  // namespace tomekeeper
