#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "platform/EPUBFileName.h"

namespace tomekeeper {
namespace {

TEST(EPUBFileNameTest, TakesOnlyTheEPUBExtensionInAnyCase) {
  struct Case {
    const char* file;
    bool isEPUB;
  };
  const std::vector<Case> cases = {
      {"/books/ledger.epub", true},
      {"Ledger.EPUB", true},
      {"/books/mixed.EpUb", true},
      {"/books/two.dots.epub", true},
      {"/books/ledger.epub.zip", false},
      {"/books/ledger.epu", false},
      {"/books/ledger.epubx", false},
      {"/books/epub", false},
      {"/books/.epub", false},  // a hidden file named "epub" has no extension
      {"/books.epub/ledger", false},
      {"", false},
      // Only ASCII letters fold: a dotted capital I is not an "i".
      {"/books/ledger.\xC4\xB0PUB", false},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.file);
    EXPECT_EQ(hasEPUBExtension(std::filesystem::path(test.file)), test.isEPUB);
  }
}

}  // namespace
}  // namespace tomekeeper
