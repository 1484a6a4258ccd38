// Highlights carried to a new edition: two editions of one book, the second with a section and a
// paragraph inserted and a paragraph removed, written as an extraction leaves them.
#include <gtest/gtest.h>

#include "PersistenceTestSupport.h"
#include "persistence/EditionCarryOver.h"
#include "persistence/JSONAnnotationRepository.h"
#include "support/EpubBuilder.h"

namespace tomekeeper {
namespace {

using testing::writeFile;

const std::string kWorld =
    "Call me Ishmael. Some years ago, never mind how long precisely, having little or no money "
    "in my purse, I thought I would sail about and see the watery part of the world.";
const std::string kSpleen =
    "It is a way I have of driving off the spleen and regulating the "
    "circulation, whenever I find myself growing grim about the mouth.";
const std::string kBattery =
    "Its extreme downtown is the battery. There is magic in it. Where "
    "that noble mole is washed by waves, and cooled by breezes.";
const std::string kPool =
    "Take almost any path you please, and it leaves you there by a pool in "
    "the stream. There is magic in it. Let the most absent-minded of men be "
    "plunged in his deepest reveries.";

// Writes an edition of sections made of `paragraphs` under `root`.
void writeEdition(const std::filesystem::path& root,
                  const std::vector<std::vector<std::string>>& paragraphs) {
  testing::PackageDescription package;
  package.withChapters(static_cast<int>(paragraphs.size()));
  writeFile(root / testing::EpubBuilder::kPackageDocumentPath, package.text());
  for (std::size_t index = 0; index < paragraphs.size(); ++index) {
    std::string body;
    for (const std::string& paragraph : paragraphs[index]) body += "<p>" + paragraph + "</p>\n";
    writeFile(root / ("OEBPS/chapter" + std::to_string(index + 1) + ".xhtml"),
              "<html xmlns=\"http://www.w3.org/1999/xhtml\"><body>" + body + "</body></html>");
  }
}

// A highlight of `selected` in `paragraph` of section `spineIndex`, with the excerpt the runtime
// records: 32 characters before, 48 from the start, 32 after those.
Annotation highlightIn(std::int64_t spineIndex, const std::string& paragraph,
                       const std::string& selected) {
  const std::size_t at = paragraph.find(selected);
  EXPECT_NE(at, std::string::npos) << selected;
  Annotation annotation = testing::makeAnnotation(Uuid::random(), 1);
  annotation.selectedText = selected;
  annotation.locator.spineIndex = spineIndex;
  annotation.locator.cfi = "epubcfi(/6/" + std::to_string(2 * spineIndex + 2) + "!/4/2/1:0)";
  const std::size_t prefixStart = at < 32 ? 0 : at - 32;
  TextContext excerpt{paragraph.substr(at, 48), paragraph.substr(prefixStart, at - prefixStart),
                      std::nullopt};
  if (at + 48 < paragraph.size()) excerpt.suffix = paragraph.substr(at + 48, 32);
  if (excerpt.prefix->empty()) excerpt.prefix.reset();
  annotation.locator.excerpt = excerpt;
  return annotation;
}

TEST(EditionCarryOverTest, CarriesHighlightsByTheirQuoteAndReportsTheRestNotFound) {
  const testing::TemporaryDirectory root;
  writeEdition(root.path(),
               {{"A word before we begin. There is magic in it."},
                {kWorld, "An inserted paragraph, new in this edition.", kSpleen},
                {"There now is your insular city of the Manhattoes. There is magic in it."},
                {kPool}});
  // "There is magic in it." now also stands in the section where the old one was (index 2): only
  // the surroundings tell the pool's apart.
  const std::string fingerprint(64, 'e');
  const struct {
    const char* name;
    Annotation highlight;
    std::optional<std::int64_t> newSpineIndex;  // absent: not found
  } cases[] = {
      {"MovedWithItsSection", highlightIn(0, kWorld, "little or no money"), 1},
      {"AtAParagraphStartAfterAnInsertedParagraph", highlightIn(0, kSpleen, kSpleen.substr(0, 48)),
       1},
      {"ARepeatedPhraseByItsSurroundings", highlightIn(2, kPool, "There is magic in it."), 3},
      {"InARemovedParagraph", highlightIn(1, kBattery, "the battery"), std::nullopt},
      {"ItsWordsLeftOnlyElsewhere", highlightIn(1, kBattery, "There is magic in it."),
       std::nullopt},
  };
  std::vector<Annotation> highlights;
  for (const auto& testCase : cases) highlights.push_back(testCase.highlight);
  const CarryOverResult result =
      carryOverHighlights(highlights, root.path(), "OEBPS/package.opf", fingerprint);

  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const auto same = [&](const Annotation& each) { return each.id == testCase.highlight.id; };
    const auto carried = std::find_if(result.carried.begin(), result.carried.end(), same);
    const bool notFound = std::any_of(result.notFound.begin(), result.notFound.end(), same);
    ASSERT_EQ(carried != result.carried.end(), testCase.newSpineIndex.has_value());
    EXPECT_EQ(notFound, !testCase.newSpineIndex.has_value());
    if (!testCase.newSpineIndex) continue;
    EXPECT_EQ(carried->locator.spineIndex, *testCase.newSpineIndex);
    EXPECT_EQ(carried->locator.spineHref,
              "chapter" + std::to_string(*testCase.newSpineIndex + 1) + ".xhtml");
    EXPECT_EQ(carried->locator.cfi, std::nullopt);  // the old edition's would point elsewhere
    EXPECT_EQ(carried->locator.excerpt, testCase.highlight.locator.excerpt);
    EXPECT_EQ(carried->bookFingerprint, fingerprint);
    Annotation unchanged = *carried;
    unchanged.bookFingerprint = testCase.highlight.bookFingerprint;
    unchanged.locator = testCase.highlight.locator;
    EXPECT_EQ(unchanged, testCase.highlight);
  }

  // A reading position goes by its excerpt the same way.
  const Locator position = highlightIn(2, kPool, kPool.substr(0, 48)).locator;
  const std::optional<Locator> moved = EditionText::read(root.path(), "OEBPS/package.opf")
                                           .reanchor(position, position.excerpt->exact);
  ASSERT_TRUE(moved.has_value());
  EXPECT_EQ(moved->spineIndex, 3);
}

TEST(EditionCarryOverTest, FindsTheEarlierEditionWithHighlightsByIdentifierAndTitle) {
  const testing::TemporaryDirectory root;
  const PublicationRecord record{"urn:isbn:9780142437247", "Moby-Dick"};
  const auto edition = [&](char letter, const PublicationRecord& written, int highlights) {
    const std::string fingerprint(64, letter);
    writePublicationRecord(root / fingerprint, written);
    JSONAnnotationRepository::Store store;
    for (int index = 0; index < highlights; ++index) {
      store.annotationsByFingerprint[fingerprint].push_back(
          testing::makeAnnotation(Uuid::random(), index, fingerprint));
    }
    writeFile(root / fingerprint / "annotations.json",
              JSONAnnotationRepository::encodeStore(store));
    return fingerprint;
  };
  const std::string current = edition('a', record, 0);
  EXPECT_EQ(findEarlierEdition(root.path(), current, record), std::nullopt);
  edition('b', record, 0);                                      // read, but nothing highlighted
  edition('c', {record.identifier, "Moby-Dick, abridged"}, 2);  // another title
  edition('d', {"urn:isbn:other", record.title}, 2);            // another identifier
  EXPECT_EQ(findEarlierEdition(root.path(), current, record), std::nullopt);
  const std::string earlier = edition('e', record, 2);
  EXPECT_EQ(readPublicationRecord(root / earlier), record);
  EXPECT_EQ(findEarlierEdition(root.path(), current, record), earlier);
  EXPECT_EQ(findEarlierEdition(root.path(), current, {"", ""}), std::nullopt);
}

}  // namespace
}  // namespace tomekeeper
