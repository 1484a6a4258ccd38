#include "session/BookSafetySummary.h"

#include <gtest/gtest.h>

#include "SessionHarness.h"
#include "intake/EPUBContainerValidator.h"
#include "intake/PublicationExtractionCache.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

constexpr const char* kNothingTried =
    "This book's documents try nothing that the reader would have to block.";
constexpr const char* kIDPFFonts =
    "Its fonts are obfuscated (IDPF font obfuscation). The reader restores them in memory to "
    "show them, with the key that the book's identifier gives; the book's files are left as "
    "they are.";
constexpr const char* kBothFonts =
    "Its fonts are obfuscated (IDPF font obfuscation and Adobe font mangling). The reader "
    "restores them in memory to show them, with the key that the book's identifier gives; the "
    "book's files are left as they are.";

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
  PublicationSafetyReport obfuscatedFonts;
  obfuscatedFonts.intake.fontObfuscationAlgorithms = {FontObfuscationAlgorithm::idpf};
  PublicationSafetyReport scriptsAndMangledFonts = scripts;
  scriptsAndMangledFonts.intake.fontObfuscationAlgorithms = {FontObfuscationAlgorithm::adobe};
  const struct {
    const char* name;
    PublicationSafetyReport report;
    std::vector<std::string> lines;
    std::optional<std::string> toast;
  } cases[] = {
      {"nothing tried", nothing, {kNothingTried}, std::nullopt},
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
      {"obfuscated fonts, which are no attempt",
       obfuscatedFonts,
       {kNothingTried, kIDPFFonts},
       std::nullopt},
      {"mangled fonts after the attempts",
       scriptsAndMangledFonts,
       {"The reader blocked everything this book's documents tried:", "1 script",
        "3 event handlers", "2 links leave the book; each asks before opening.",
        "Its fonts are obfuscated (Adobe font mangling). The reader restores them in memory to "
        "show them, with the key that the book's identifier gives; the book's files are left as "
        "they are."},
       "This book contains scripts. They were blocked."},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EXPECT_EQ(bookSafetyLines(testCase.report), testCase.lines);
    EXPECT_EQ(bookSafetyToast(testCase.report), testCase.toast);
  }
}

// A built book goes through the extraction cache and the session's open; what the container's
// validation found reaches the summary with the scan of the book's documents.
TEST(BookSafetySummaryTest, IntakeFindingsOfAPreparedBookReachTheSummary) {
  const struct {
    const char* name;
    std::vector<std::string> algorithms;
    std::vector<std::string> lines;
  } cases[] = {
      {"no encryption metadata", {}, {kNothingTried}},
      {"IDPF", {EPUBContainerValidator::kIDPFFontObfuscation}, {kNothingTried, kIDPFFonts}},
      {"both algorithms",
       {EPUBContainerValidator::kAdobeFontMangling, EPUBContainerValidator::kIDPFFontObfuscation},
       {kNothingTried, kBothFonts}},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    testing::TemporaryDirectory directory;
    testing::EpubBuilder book;
    if (!testCase.algorithms.empty()) {
      book.withEncryptionXML(testing::EpubBuilder::encryptionXML(testCase.algorithms));
    }
    book.writeTo(directory / "book.epub");
    PublicationExtractionCache cache(directory / "Caches");
    PreparedPublicationResources resources = testing::runToEnd(
        cache.prepare(directory / "book.epub", std::string(testing::kFingerprint)));

    testing::SessionHarness harness;
    harness.create();
    testing::runToEnd(harness.session->open(std::move(resources), "/runtime",
                                            std::string(testing::kFingerprint)));
    ASSERT_TRUE(
        testing::iterateUntil([&] { return harness.session->safetyReport().value().has_value(); },
                              std::chrono::seconds(30)));
    EXPECT_EQ(bookSafetyLines(*harness.session->safetyReport().value()), testCase.lines);
  }
}

}  // namespace
}  // namespace tomekeeper
