#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "persistence/HighlightExport.h"

namespace tomekeeper {

// What an export needs from a book's own documents, read natively so that it runs without the
// reader runtime: the package document's title, creators and unique identifier, its spine, and
// the chapter of each spine item from the navigation document (or, in an EPUB 2 book, the NCX).
struct PublicationOutline {
  std::string identifier;
  std::string title;
  std::vector<std::string> authors;
  std::vector<SpineChapter> spine;  // rendered items (XHTML, HTML) only, as the runtime counts
  // The file of each item of `spine`, relative to the root; empty for one outside the root.
  std::vector<std::filesystem::path> spineFiles;
};

// The package document or a navigation document is not well-formed XML, declares entities, or
// the package lacks a spine.
class PublicationOutlineError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads the outline of an extracted, validated publication: `packageDocumentPath` is relative to
// `extractedRoot`. Documents are read only below the root. A missing or broken navigation
// document leaves chapters empty rather than failing. Throws PublicationOutlineError, or
// std::system_error when a file cannot be read. Blocking.
PublicationOutline readPublicationOutline(const std::filesystem::path& extractedRoot,
                                          const std::string& packageDocumentPath);

// The text of the XHTML section `file` (relative to `extractedRoot`) as a reader meets it: the
// character data of its body outside script and style, block boundaries as spaces, white space
// collapsed to single spaces. Throws PublicationOutlineError for a section that is not
// well-formed XML (an HTML section among them), std::system_error when it cannot be read.
// Blocking.
std::string readSectionText(const std::filesystem::path& extractedRoot,
                            const std::filesystem::path& file);

}  // namespace tomekeeper
