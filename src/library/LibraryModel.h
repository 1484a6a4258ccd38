#pragma once

#include <sigc++/signal.h>

#include <memory>
#include <string>
#include <vector>

#include "library/LibraryCatalog.h"

namespace tomekeeper {

// The orders the library offers.
enum class LibrarySortOrder { lastRead, title, author };

// The books of the library in the order and under the filter the user chose: what the library
// window shows, with no widget in it. Sorting by last read puts the most recent first (books
// never read last); by title or author it collates by the locale with numeric ordering ("Book
// 2" before "Book 10"), by the first author then the title, authors missing last. Ties keep one
// stable order by fingerprint. The filter matches the title and the authors as the book search
// matches text (see foldForSearch); an empty filter shows every book.
//
// Main executor only; a plain object owned by its view.
class LibraryModel {
 public:
  LibraryModel();
  ~LibraryModel();
  LibraryModel(const LibraryModel&) = delete;
  LibraryModel& operator=(const LibraryModel&) = delete;

  void setBooks(std::vector<LibraryBook> books);
  void setSortOrder(LibrarySortOrder order);
  void setFilter(std::string filter);

  LibrarySortOrder sortOrder() const { return sortOrder_; }
  const std::string& filter() const { return filter_; }
  // Every book, whatever the filter.
  std::size_t bookCount() const;
  // The books to show, in order.
  const std::vector<LibraryBook>& visibleBooks() const { return visible_; }
  // The book with `fingerprint`, or null.
  const LibraryBook* find(const std::string& fingerprint) const;

  // After every change of the visible books.
  sigc::signal<void()> visibleBooksChanged;

 private:
  struct Entry;
  void update();

  std::vector<Entry> books_;
  std::vector<LibraryBook> visible_;
  LibrarySortOrder sortOrder_ = LibrarySortOrder::lastRead;
  std::string filter_;
  std::string foldedFilter_;
  class Collation;
  std::unique_ptr<Collation> collation_;
};

}  // namespace tomekeeper
