#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "model/Uuid.h"

// The list operations that bookmarks and annotations share. Records are kept per fingerprint in
// insertion order; only reading sorts.
namespace tomekeeper::detail {

// Newest first by `createdAt`; records of equal dates by the upper-case text of their id,
// ascending. The comparison is a total order over the records a store can hold (dates come from
// JSON numbers, never NaN), so every stored order sorts to one result.
template <typename Record>
std::vector<Record> sortedNewestFirst(std::vector<Record> records) {
  std::stable_sort(records.begin(), records.end(), [](const Record& left, const Record& right) {
    if (left.createdAt > right.createdAt) return true;
    if (left.createdAt < right.createdAt) return false;
    return left.id.string() < right.id.string();
  });
  return records;
}

// Replaces the first record of the same id in its book's list where it stands, or appends.
template <typename Record>
void replaceOrAppend(std::map<std::string, std::vector<Record>>& recordsByFingerprint,
                     Record record) {
  std::vector<Record>& records = recordsByFingerprint[record.bookFingerprint];
  const auto existing = std::find_if(records.begin(), records.end(),
                                     [&](const Record& stored) { return stored.id == record.id; });
  if (existing != records.end()) {
    *existing = std::move(record);
  } else {
    records.push_back(std::move(record));
  }
}

// Removes every record with `id` from the list of `fingerprint`; a list left empty loses its key,
// so that a book without records leaves nothing behind in the store.
template <typename Record>
void removeRecords(std::map<std::string, std::vector<Record>>& recordsByFingerprint,
                   const std::string& fingerprint, const Uuid& id) {
  const auto list = recordsByFingerprint.find(fingerprint);
  if (list == recordsByFingerprint.end()) return;
  std::erase_if(list->second, [&](const Record& stored) { return stored.id == id; });
  if (list->second.empty()) recordsByFingerprint.erase(list);
}

}  // namespace tomekeeper::detail
