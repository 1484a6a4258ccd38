#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "model/Annotation.h"
#include "persistence/HighlightExport.h"

// Highlights carried from one edition of a book to another. A book is known by the SHA-256 of
// its file, so a corrected or re-packaged edition opens with no reading data; what it shares
// with the edition read before is its package identifier and title, and the words themselves.
namespace tomekeeper {

// What a book's directory records of the book, so that a later edition can find it:
// Publications/<fingerprint>/publication.json, {"schemaVersion":1,"identifier":…,"title":…}.
struct PublicationRecord {
  std::string identifier;
  std::string title;

  bool operator==(const PublicationRecord&) const = default;
};

inline constexpr std::string_view kPublicationRecordFileName = "publication.json";

// Writes `record` into `publicationDirectory` atomically (making the directory), unless the
// file already holds it. Throws std::system_error or filesystem_error. Blocking.
void writePublicationRecord(const std::filesystem::path& publicationDirectory,
                            const PublicationRecord& record);

// The record in `publicationDirectory`; nothing when there is none or it does not decode.
std::optional<PublicationRecord> readPublicationRecord(
    const std::filesystem::path& publicationDirectory);

// Another edition of the book `record` describes, under `publicationsRoot`: a directory other
// than `fingerprint`'s whose record has the same identifier and title (neither empty) and whose
// annotation store holds highlights of its book; of several, the one whose highlights changed
// last. Unreadable directories and stores are passed over. Blocking.
std::optional<std::string> findEarlierEdition(const std::filesystem::path& publicationsRoot,
                                              const std::string& fingerprint,
                                              const PublicationRecord& record);

// The text of every section of one edition, read once for many look-ups.
class EditionText {
 public:
  // Reads the edition unpacked at `publicationRoot`; a section that cannot be read holds no
  // text. Throws what readPublicationOutline throws. Blocking.
  static EditionText read(const std::filesystem::path& publicationRoot,
                          const std::string& packageDocumentPath);

  // `locator`, of a spot in an earlier edition whose words are `selectedText` (for a reading
  // position, its excerpt's), moved to where that quote stands in this edition: the matching
  // described at carryOverHighlights. The section's href, index and progression change, the CFI
  // and the total progression go, the excerpt stays. Nothing when the quote is not found.
  std::optional<Locator> reanchor(const Locator& locator, const std::string& selectedText) const;

 private:
  std::vector<SpineChapter> spine_;
  std::vector<std::string> sections_;
};

struct CarryOverResult {
  // Re-anchored in the new edition: the same id, text, note, colour and dates; the locator
  // names the section that holds the quote, at its place, without the old edition's CFI, so
  // that the reader runtime places the highlight by its quote.
  std::vector<Annotation> carried;
  // Not found in the new edition, unchanged; they are never placed anywhere else.
  std::vector<Annotation> notFound;
};

// Re-anchors `highlights` of an earlier edition in the publication unpacked at
// `publicationRoot` (the new edition, known as `fingerprint`). A highlight is looked for by its
// quote, as the runtime places one: its text, the words before it, and the words after it when
// its excerpt begins with the text. Of the places where the text stands, the one whose
// surroundings agree best wins, a tie going to the section nearest the old one; it must agree
// with the whole of one side or half of both, or, with no surroundings recorded, be the only
// place in the book. Sections that cannot be read hold nothing. Throws what
// readPublicationOutline throws. Blocking.
CarryOverResult carryOverHighlights(const std::vector<Annotation>& highlights,
                                    const std::filesystem::path& publicationRoot,
                                    const std::string& packageDocumentPath,
                                    const std::string& fingerprint);

}  // namespace tomekeeper
