#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "async/Task.h"
#include "model/PublicationDescriptor.h"
#include "persistence/EditionCarryOver.h"
#include "persistence/HighlightExport.h"
#include "persistence/ReadingDataBackups.h"
#include "session/ReaderSession.h"

namespace tomekeeper {

// What the book's menu does with the reading data of an open book beyond the page: "Export
// Highlights…" and "Restore Reading Data…". The shell asks the questions (a file name, whether
// to restore what the offer holds); the work and its order live here.
//
// Holds the session weakly: a command on a closed window does nothing. Confined to the main
// executor; the file work runs on the background pool.
class ReadingDataMaintenance {
 public:
  struct Book {
    std::string fingerprint;
    // Publications/<fingerprint> in the reading-state directory.
    std::filesystem::path publicationDirectory;
    // The unpacked publication and its descriptor, as the open road prepared them.
    std::filesystem::path extractedRoot;
    PublicationDescriptor descriptor;
  };

  ReadingDataMaintenance(std::weak_ptr<ReaderSession> session, Book book);

  // The format a chosen file name asks for: ".md" or ".markdown" Markdown, ".json" JSON
  // (letter case ignored); nothing for another name.
  static std::optional<HighlightExportFormat> formatForFileName(const std::filesystem::path& file);

  // The package document's path in the unpacked publication, from the descriptor's URL.
  static std::string packageDocumentPath(const PublicationDescriptor& descriptor);

  // Writes the export of the highlights the session shows to `destination`, replacing it
  // atomically. Throws what exportHighlightsOfPublication throws, or std::system_error when the
  // file cannot be written (it is then untouched); nothing when the session is gone.
  async::Task<void> exportHighlights(std::filesystem::path destination,
                                     HighlightExportFormat format) const;

  // The backups "Restore Reading Data…" offers: those of the bookmarks and the highlights, and
  // that of the reading position only when the position store no longer decodes (an open book
  // saves its own position over any other).
  async::Task<ReadingDataBackupOffer> findBackups() const;

  // Restores `offer` (see restoreReadingDataBackups, whose failures it throws) and has the
  // session reread the stores, so the sidebar and the page show what was restored.
  async::Task<void> restore(ReadingDataBackupOffer offer) const;

  // Records the book's package identifier and title beside its stores, so that a later edition
  // finds it, and, when the book has no highlights yet, gives the fingerprint of an earlier
  // edition that has some (see findEarlierEdition): the question "Carry Over Your Highlights?".
  // A record that cannot be written is passed over.
  async::Task<std::optional<std::string>> recordAndFindEarlierEdition() const;

  // Carries the highlights of the edition `earlierFingerprint` into this book's store, each
  // re-anchored by its quote (see carryOverHighlights), and has the session reread them. Gives
  // those not found in this edition, which are not placed anywhere. Throws what the stores and
  // carryOverHighlights throw.
  async::Task<std::vector<Annotation>> carryOverFrom(std::string earlierFingerprint) const;
  // The same, giving the highlights carried (as stored in this book) beside those not found.
  async::Task<CarryOverResult> carryOver(std::string earlierFingerprint) const;

 private:
  std::weak_ptr<ReaderSession> session_;
  Book book_;
};

}  // namespace tomekeeper
