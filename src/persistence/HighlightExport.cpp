#include "persistence/HighlightExport.h"

#include "persistence/PublicationOutline.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <ctime>
#include <sstream>
#include <tuple>

#include <nlohmann/json.hpp>

namespace tomekeeper {

namespace {

// The numbers of a CFI's steps and offsets in order, assertions in brackets left out; for a
// range, those of its parent path followed by its start.
std::vector<long long> cfiNumbers(std::string_view cfi) {
  if (cfi.starts_with("epubcfi(") && cfi.ends_with(")")) cfi = cfi.substr(8, cfi.size() - 9);
  const std::size_t firstComma = cfi.find(',');
  std::string path(cfi.substr(0, firstComma));
  if (firstComma != std::string_view::npos) {
    const std::string_view rest = cfi.substr(firstComma + 1);
    path += rest.substr(0, rest.find(','));
  }
  std::vector<long long> numbers;
  int bracketDepth = 0;
  for (std::size_t index = 0; index < path.size(); ++index) {
    const char character = path[index];
    if (character == '^') {
      ++index;  // an escaped character, inside an assertion
    } else if (character == '[') {
      ++bracketDepth;
    } else if (character == ']') {
      bracketDepth = std::max(0, bracketDepth - 1);
    } else if (bracketDepth == 0 && std::isdigit(static_cast<unsigned char>(character))) {
      long long number = 0;
      while (index < path.size() && std::isdigit(static_cast<unsigned char>(path[index]))) {
        number = std::min(number * 10 + (path[index] - '0'), 1'000'000'000'000LL);
        ++index;
      }
      --index;
      numbers.push_back(number);
    }
  }
  return numbers;
}

std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char character) { return character == '\n' || character == '\r'; }, ' ');
  return text;
}

bool isASCIISpace(char character) {
  return std::isspace(static_cast<unsigned char>(character)) != 0;
}

// `text` without the white space at its ends: a selection made by a triple click ends with the
// paragraph's line break, which would leave empty quoted lines.
std::string trimmed(std::string_view text) {
  while (!text.empty() && isASCIISpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isASCIISpace(text.back())) text.remove_suffix(1);
  return std::string(text);
}

// `text` as one Markdown code span. Every run of white space shows as one space, since a line
// break would end the list item or, doubled, the paragraph; the span is fenced by one backtick
// more than the longest run inside it, with a space of padding where the text touches a fence
// (CommonMark's rule). Only the Markdown shows a CFI so: the JSON export keeps it exact, as
// does the store, so the text assertions in it still match the page.
std::string codeSpan(std::string_view text) {
  std::string collapsed;
  std::size_t longestBackticks = 0;
  std::size_t backticks = 0;
  for (const char character : text) {
    backticks = character == '`' ? backticks + 1 : 0;
    longestBackticks = std::max(longestBackticks, backticks);
    if (!isASCIISpace(character)) {
      collapsed += character;
    } else if (collapsed.empty() || collapsed.back() != ' ') {
      collapsed += ' ';
    }
  }
  const std::string fence(longestBackticks + 1, '`');
  const bool padded = !collapsed.empty() && (collapsed.front() == '`' || collapsed.back() == '`');
  return fence + (padded ? " " : "") + collapsed + (padded ? " " : "") + fence;
}

// `text` with `prefix` before its first line and `continuation` before every other.
std::string prefixedLines(const std::string& text, const std::string& prefix,
                          const std::string& continuation) {
  std::string result = prefix;
  for (const char character : text) {
    if (character == '\r') continue;
    result += character;
    if (character == '\n') result += continuation;
  }
  return result;
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
  std::string result;
  for (const std::string& part : parts) {
    if (!result.empty()) result += separator;
    result += part;
  }
  return result;
}

std::string markdown(const HighlightExportBook& book, const std::vector<Annotation>& annotations) {
  std::ostringstream out;
  out << "# " << oneLine(book.title) << "\n\n";
  if (!book.authors.empty()) out << "By " << oneLine(joined(book.authors, ", ")) << "\n\n";
  out << "SHA-256: `" << book.sha256 << "`\n";
  std::optional<std::string> currentChapter;
  for (const Annotation& annotation : annotations) {
    const std::string chapter = oneLine(chapterOf(book, annotation.locator));
    if (chapter != currentChapter) {
      currentChapter = chapter;
      if (!chapter.empty()) out << "\n## " << chapter << "\n";
    }
    out << "\n" << prefixedLines(trimmed(annotation.selectedText), "> ", "> ") << "\n\n";
    if (annotation.note) out << prefixedLines(*annotation.note, "- Note: ", "  ") << "\n";
    out << "- Colour: " << nlohmann::json(annotation.color).get<std::string>() << "\n";
    out << "- Date: " << isoDateText(annotation.createdAt) << "\n";
    if (annotation.locator.cfi) out << "- CFI: " << codeSpan(*annotation.locator.cfi) << "\n";
  }
  return out.str();
}

std::string json(const HighlightExportBook& book, const std::vector<Annotation>& annotations) {
  nlohmann::ordered_json highlights = nlohmann::ordered_json::array();
  for (const Annotation& annotation : annotations) {
    const std::string chapter = chapterOf(book, annotation.locator);
    nlohmann::ordered_json entry;
    entry["chapter"] = chapter.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(chapter);
    entry["text"] = annotation.selectedText;
    entry["note"] = annotation.note ? nlohmann::ordered_json(*annotation.note) : nullptr;
    entry["color"] = nlohmann::json(annotation.color);
    entry["date"] = isoDateText(annotation.createdAt);
    entry["modified"] = isoDateText(annotation.modifiedAt);
    entry["cfi"] =
        annotation.locator.cfi ? nlohmann::ordered_json(*annotation.locator.cfi) : nullptr;
    entry["spineHref"] = annotation.locator.spineHref;
    highlights.push_back(std::move(entry));
  }
  nlohmann::ordered_json document;
  document["title"] = book.title;
  document["authors"] = book.authors;
  document["sha256"] = book.sha256;
  document["highlights"] = std::move(highlights);
  return document.dump(2) + "\n";
}

}  // namespace

std::optional<HighlightExportFormat> highlightExportFormatNamed(std::string_view name) {
  if (name == "markdown") return HighlightExportFormat::markdown;
  if (name == "json") return HighlightExportFormat::json;
  return std::nullopt;
}

bool precedesInReadingOrder(const Locator& left, const Locator& right) {
  // One key compared lexicographically, so that the order stays a strict weak one when some
  // locators lack a CFI (theirs is empty and comes first) or a progression. NaN counts as absent.
  const auto key = [](const Locator& locator) {
    const double progression = locator.sectionProgression.value_or(-1.0);
    return std::make_tuple(locator.spineIndex,
                           locator.cfi ? cfiNumbers(*locator.cfi) : std::vector<long long>{},
                           std::isnan(progression) ? -1.0 : progression);
  };
  return key(left) < key(right);
}

std::string chapterOf(const HighlightExportBook& book, const Locator& locator) {
  const auto byHref =
      std::find_if(book.spine.begin(), book.spine.end(),
                   [&](const SpineChapter& item) { return item.href == locator.spineHref; });
  if (byHref != book.spine.end()) return byHref->chapter;
  if (locator.spineIndex >= 0 && static_cast<std::size_t>(locator.spineIndex) < book.spine.size()) {
    return book.spine[static_cast<std::size_t>(locator.spineIndex)].chapter;
  }
  return {};
}

std::string exportHighlights(const HighlightExportBook& book, std::vector<Annotation> annotations,
                             HighlightExportFormat format) {
  std::stable_sort(annotations.begin(), annotations.end(),
                   [](const Annotation& left, const Annotation& right) {
                     if (precedesInReadingOrder(left.locator, right.locator)) return true;
                     if (precedesInReadingOrder(right.locator, left.locator)) return false;
                     return left.createdAt < right.createdAt;
                   });
  return format == HighlightExportFormat::markdown ? markdown(book, annotations)
                                                   : json(book, annotations);
}

std::string exportHighlightsOfPublication(const std::filesystem::path& publicationRoot,
                                          const std::string& packageDocumentPath,
                                          std::string fingerprint,
                                          std::vector<Annotation> annotations,
                                          HighlightExportFormat format) {
  PublicationOutline outline = readPublicationOutline(publicationRoot, packageDocumentPath);
  const HighlightExportBook book{std::move(outline.title), std::move(outline.authors),
                                 std::move(fingerprint), std::move(outline.spine)};
  return exportHighlights(book, std::move(annotations), format);
}

std::string isoDateText(Date date) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(date.systemClockTime());
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

}  // namespace tomekeeper
