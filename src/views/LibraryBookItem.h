#pragma once

#include <gtk/gtk.h>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "library/LibraryCatalog.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// How the library lays its books out.
enum class LibraryLayout { grid, list };

// The texts a book's item shows and says. Pure.
// "42%" for a progression of 0.42 (rounded down, so only a finished book shows 100%); "0%"
// for a book without a position.
std::string libraryProgressText(std::optional<double> progress);
// "Last read 25 Nov 2026"; "Not read yet" without a date.
std::string libraryLastReadText(std::optional<Date> lastRead);
// What assistive tools say for the item: "Title, by A and B, 42% read, Last read …" and
// ", unavailable" for a book whose file is gone.
std::string libraryBookAccessibleLabel(const LibraryBook& book);

// The size of a cover in each layout, in pixels.
inline constexpr int kGridCoverWidth = 132;
inline constexpr int kGridCoverHeight = 198;
inline constexpr int kListCoverWidth = 48;
inline constexpr int kListCoverHeight = 72;

// The cover thumbnails of the books shown, decoded once each on the background pool at the
// size of one layout's covers (a picture is never larger than its texture) and kept as textures.
// Decodes run a few at a time, those of covers on screen first: a view makes items for many
// rows ahead of what it shows, and decoding all of theirs at once would take the processor from
// the frames. While held, covers asked for only wait (see holdDecoding).
// Main executor only; a decode that ends after the cache is gone is dropped.
class LibraryCoverCache {
 public:
  LibraryCoverCache(int width, int height);
  ~LibraryCoverCache();
  LibraryCoverCache(const LibraryCoverCache&) = delete;
  LibraryCoverCache& operator=(const LibraryCoverCache&) = delete;

  // Shows `book`'s cover in the item's cover stack: at once when it is decoded, after its
  // decode otherwise (unless the item shows another book by then, when it is not decoded for
  // it); the placeholder stays for a book without one, or whose thumbnail does not decode.
  void show(GtkWidget* coverStack, const LibraryBook& book);

  // Until resumeDecoding, no decode starts: a view holds them back until the frame that first
  // shows its books has been painted, since on a small machine they compete with that frame.
  void holdDecoding();
  void resumeDecoding();

  // Covers asked for and not shown yet: waiting for a decode, or being decoded.
  std::size_t pendingCount() const noexcept { return queued_.size() + decoding_.size(); }

 private:
  // The cover stacks waiting for a cover; an item since bound to another book is left there
  // until the cover's decode starts or ends.
  using WaitingStacks = std::vector<std::unique_ptr<GObjectWeakReference<GtkWidget>>>;
  enum class Wanted { no, offScreen, onScreen };
  Wanted wanted(const std::string& fingerprint);
  void startDecodes();
  void startDecode(const std::string& fingerprint);
  void decoded(const std::string& fingerprint, GObjectHandle<GdkTexture> texture);

  std::map<std::string, GObjectHandle<GdkTexture>> textures_;
  std::set<std::string> failed_;
  // Covers to decode, in the order they were asked for, each once, with their files.
  std::vector<std::pair<std::string, std::filesystem::path>> queued_;
  std::set<std::string> decoding_;
  std::map<std::string, WaitingStacks> waiting_;
  int width_;
  int height_;
  bool held_ = false;
  std::shared_ptr<LibraryCoverCache*> lifetime_;
};

// A new, unbound item widget of `layout`, for a list item factory's setup.
GtkWidget* makeLibraryBookItem(LibraryLayout layout);
// Shows `book` in an item made by makeLibraryBookItem: its cover (or placeholder with its
// title), title, authors, progress and last read, and, when unavailable, "Locate…". Its menu
// and buttons name the actions "library.open", "library.locate" and "library.remove" with the
// book's fingerprint.
void bindLibraryBookItem(GtkWidget* item, const LibraryBook& book, LibraryCoverCache& covers);

}  // namespace tomekeeper
