#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Annotation.h"
#include "model/Locator.h"

// Highlights and notes written out for the reader to keep elsewhere: Markdown to read, JSON for
// other programs. Both hold the same facts, in the book's reading order.
namespace tomekeeper {

enum class HighlightExportFormat { markdown, json };

// "markdown" or "json"; nothing for any other name.
std::optional<HighlightExportFormat> highlightExportFormatNamed(std::string_view name);

// One item of the book's spine and the chapter it belongs to: the title of the last entry of the
// table of contents that points at it or at an item before it; empty before the first entry.
struct SpineChapter {
  std::string href;  // relative to the package document's directory, as locators name it
  std::string chapter;

  bool operator==(const SpineChapter&) const = default;
};

// What the export says of the book itself.
struct HighlightExportBook {
  std::string title;
  std::vector<std::string> authors;
  std::string sha256;               // the fingerprint: lower-case hexadecimal
  std::vector<SpineChapter> spine;  // in spine order

  bool operator==(const HighlightExportBook&) const = default;
};

// Whether `left` comes before `right` in the book: by spine item, then by the steps of their
// CFIs compared as numbers (the start of a range; no CFI comes first), then by progression in
// the section. A strict weak order; locators that say nothing more compare equal.
bool precedesInReadingOrder(const Locator& left, const Locator& right);

// The chapter of `locator` in `book`: by its spine href, else by its spine index; empty when it
// names neither.
std::string chapterOf(const HighlightExportBook& book, const Locator& locator);

// The export of `annotations` (those of `book`, in any order; sorted here by reading order,
// then by creation). Markdown: a "# title" heading, the authors, the SHA-256, then per chapter a
// "##" heading and per highlight its text quoted (the white space at its ends left out, each of its
// lines a quoted line), and a list of its note, colour, date and CFI (one code span, in which each
// run of white space shows as one space). JSON: one object
// {"title","authors","sha256","highlights":[{"chapter","text","note","color","date",
// "modified","cfi","spineHref"}]} with text and CFI exact, dates ISO 8601 in UTC and absent values
// null.
// Throws nlohmann::json::exception for text that is not UTF-8 (JSON only). Pure.
std::string exportHighlights(const HighlightExportBook& book, std::vector<Annotation> annotations,
                             HighlightExportFormat format);

// The export of `annotations` of the book unpacked at `publicationRoot`: its title, authors and
// chapters are read from its own documents (see readPublicationOutline), so the application and
// the export command write the same. Throws PublicationOutlineError or std::system_error as
// readPublicationOutline does. Blocking.
std::string exportHighlightsOfPublication(const std::filesystem::path& publicationRoot,
                                          const std::string& packageDocumentPath,
                                          std::string fingerprint,
                                          std::vector<Annotation> annotations,
                                          HighlightExportFormat format);

// The ISO 8601 form of `date` in UTC to the second: "2026-11-24T10:10:10Z".
std::string isoDateText(Date date);

}  // namespace tomekeeper
