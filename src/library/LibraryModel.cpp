#include "library/LibraryModel.h"

#include <unicode/coll.h>
#include <unicode/locid.h>

#include <algorithm>
#include <string_view>

#include "library/SearchFolding.h"

namespace tomekeeper {

// A book with what sorting and filtering compare, computed once per book.
struct LibraryModel::Entry {
  LibraryBook book;
  std::string foldedText;  // title and authors, folded
  std::string titleKey;    // collation sort keys
  std::string authorKey;
};

// The locale's collation with numeric ordering; the bytes of the text where ICU has none.
class LibraryModel::Collation {
 public:
  Collation() {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Locale& locale = icu::Locale::getDefault();
    const bool posix = std::string_view(locale.getVariant()) == "POSIX";
    collator_.reset(icu::Collator::createInstance(posix ? icu::Locale::getRoot() : locale, status));
    if (U_SUCCESS(status)) collator_->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    if (U_FAILURE(status)) collator_.reset();
  }

  // A key whose byte order is the collation order.
  std::string key(const std::string& text) const {
    if (!collator_) return text;
    const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    std::string key(unicode.length() * 4 + 16, '\0');
    for (;;) {
      const int32_t length = collator_->getSortKey(unicode, reinterpret_cast<uint8_t*>(key.data()),
                                                   static_cast<int32_t>(key.size()));
      if (length <= static_cast<int32_t>(key.size())) {
        // The key ends with its terminating zero byte, which compares like the end.
        key.resize(length > 0 ? static_cast<std::size_t>(length - 1) : 0);
        return key;
      }
      key.resize(static_cast<std::size_t>(length));
    }
  }

 private:
  std::unique_ptr<icu::Collator> collator_;
};

LibraryModel::LibraryModel() : collation_(std::make_unique<Collation>()) {}

LibraryModel::~LibraryModel() = default;

std::size_t LibraryModel::bookCount() const {
  return books_.size();
}

void LibraryModel::setBooks(std::vector<LibraryBook> books) {
  books_.clear();
  books_.reserve(books.size());
  for (LibraryBook& book : books) {
    std::string searchable = book.title;
    for (const std::string& author : book.authors) searchable += "\n" + author;
    Entry entry{std::move(book), foldForSearch(searchable), {}, {}};
    entry.titleKey = collation_->key(entry.book.title);
    if (!entry.book.authors.empty()) entry.authorKey = collation_->key(entry.book.authors.front());
    books_.push_back(std::move(entry));
  }
  update();
}

void LibraryModel::setSortOrder(LibrarySortOrder order) {
  if (order == sortOrder_) return;
  sortOrder_ = order;
  update();
}

void LibraryModel::setFilter(std::string filter) {
  if (filter == filter_) return;
  filter_ = std::move(filter);
  foldedFilter_ = foldForSearch(filter_);
  update();
}

const LibraryBook* LibraryModel::find(const std::string& fingerprint) const {
  for (const Entry& entry : books_) {
    if (entry.book.fingerprint == fingerprint) return &entry.book;
  }
  return nullptr;
}

void LibraryModel::update() {
  std::vector<const Entry*> shown;
  shown.reserve(books_.size());
  for (const Entry& entry : books_) {
    if (foldedContains(entry.foldedText, foldedFilter_)) shown.push_back(&entry);
  }
  const auto byTitle = [](const Entry* left, const Entry* right) {
    if (left->titleKey != right->titleKey) return left->titleKey < right->titleKey;
    return left->book.fingerprint < right->book.fingerprint;
  };
  switch (sortOrder_) {
    case LibrarySortOrder::lastRead:
      std::sort(shown.begin(), shown.end(), [&byTitle](const Entry* left, const Entry* right) {
        const auto& leftDate = left->book.lastRead;
        const auto& rightDate = right->book.lastRead;
        if (leftDate.has_value() != rightDate.has_value()) return leftDate.has_value();
        if (leftDate && *leftDate != *rightDate) return *leftDate > *rightDate;
        return byTitle(left, right);
      });
      break;
    case LibrarySortOrder::title:
      std::sort(shown.begin(), shown.end(), byTitle);
      break;
    case LibrarySortOrder::author:
      std::sort(shown.begin(), shown.end(), [&byTitle](const Entry* left, const Entry* right) {
        const bool leftHasAuthor = !left->book.authors.empty();
        const bool rightHasAuthor = !right->book.authors.empty();
        if (leftHasAuthor != rightHasAuthor) return leftHasAuthor;
        if (left->authorKey != right->authorKey) return left->authorKey < right->authorKey;
        return byTitle(left, right);
      });
      break;
  }
  visible_.clear();
  visible_.reserve(shown.size());
  for (const Entry* entry : shown) visible_.push_back(entry->book);
  visibleBooksChanged.emit();
}

}  // namespace tomekeeper
