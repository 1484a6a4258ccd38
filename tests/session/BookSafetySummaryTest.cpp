#include "session/BookSafetySummary.h"

#include <gtest/gtest.h>

namespace tomekeeper {
namespace {

TEST(BookSafetySummaryTest, SaysWhatWasBlockedAndWhetherToTellOnOpen) {
  PublicationSafetyReport nothing;
  PublicationSafetyReport scripts;
  scripts.scriptElements = 1;
  scripts.eventHandlerAttributes = 3;
  scripts.webLinks = 2;
  PublicationSafetyReport web;
  web.webReferences = 4;
  web.unreadableDocuments = 1;
  PublicationSafetyReport unlisted;
  unlisted.unlistedReferences = 1;
  PublicationSafetyReport manyUnlisted = unlisted;
  manyUnlisted.unlistedReferences = 3;
  const struct {
    const char* name;
    PublicationSafetyReport report;
    std::vector<std::string> lines;
    std::optional<std::string> toast;
  } cases[] = {
      {"nothing tried",
       nothing,
       {"This book's documents try nothing that the reader would have to block."},
       std::nullopt},
      {"scripts",
       scripts,
       {"The reader blocked everything this book's documents tried:", "1 script",
        "3 event handlers", "2 links leave the book; each asks before opening."},
       "This book contains scripts. They were blocked."},
      {"the web",
       web,
       {"The reader blocked everything this book's documents tried:", "4 references to the web",
        "1 document could not be checked."},
       "This book tries to reach the web. It was blocked."},
      {"one unlisted file",
       unlisted,
       {"The reader blocked everything this book's documents tried:",
        "1 reference to a file the book does not list (not loaded)"},
       std::nullopt},
      {"unlisted files",
       manyUnlisted,
       {"The reader blocked everything this book's documents tried:",
        "3 references to files the book does not list (not loaded)"},
       std::nullopt},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EXPECT_EQ(bookSafetyLines(testCase.report), testCase.lines);
    EXPECT_EQ(bookSafetyToast(testCase.report), testCase.toast);
  }
}

}  // namespace
}  // namespace tomekeeper
