// Exporting and restoring the reading data of an open book, over the real JSON stores and an
// unpacked publication on a temporary directory.
#include <gtest/gtest.h>

#include <set>

#include "SessionHarness.h"
#include "persistence/EditionCarryOver.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "persistence/StoreBackups.h"
#include "platform/AtomicFileWriter.h"
#include "session/ReadingDataMaintenance.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

std::string readFile(const std::filesystem::path& file) {
  return readWholeFile(file).value_or("");
}

class ReadingDataMaintenanceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(temporary / "book/OEBPS/content.opf", R"(<package xmlns="http://www.idpf.org/2007/opf"
 unique-identifier="id"><metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
<dc:identifier id="id">urn:x</dc:identifier><dc:title>A Book</dc:title>
<dc:creator>An Author</dc:creator></metadata><manifest>
<item id="c0" href="chapter0.xhtml" media-type="application/xhtml+xml"/>
<item id="c1" href="chapter1.xhtml" media-type="application/xhtml+xml"/>
<item id="nav" href="nav.xhtml" media-type="application/xhtml+xml" properties="nav"/>
</manifest><spine><itemref idref="c0"/><itemref idref="c1"/></spine></package>)");
    writeFile(temporary / "book/OEBPS/nav.xhtml", R"(<html xmlns="http://www.w3.org/1999/xhtml"
 xmlns:epub="http://www.idpf.org/2007/ops"><body><nav epub:type="toc"><ol>
<li><a href="chapter0.xhtml">Opening</a></li><li><a href="chapter1.xhtml">Middle</a></li>
</ol></nav></body></html>)");
    annotations = std::make_shared<JSONAnnotationRepository>(directory / "annotations.json");
    runToEnd(annotations->save(SessionHarness::annotation("first")));
    runToEnd(annotations->save(SessionHarness::annotation("second", "a note")));

    ReaderSessionDependencies dependencies;
    dependencies.host = harness.host;
    dependencies.fontCatalog = harness.fonts;
    dependencies.annotationRepository = annotations;
    harness.session = ReaderSession::create(std::move(dependencies));
    ASSERT_EQ(harness.open(), std::nullopt);
  }

  ReadingDataMaintenance maintenance() const {
    PublicationDescriptor descriptor = harness.descriptor();
    descriptor.packageURL =
        "tomekeeper://publication/" + descriptor.publicationID.string() + "/OEBPS/content.opf";
    return ReadingDataMaintenance(harness.session, {std::string(kFingerprint), directory,
                                                    temporary / "book", std::move(descriptor)});
  }

  TemporaryDirectory temporary;
  std::filesystem::path directory = temporary / "Publications" / std::string(kFingerprint);
  std::shared_ptr<JSONAnnotationRepository> annotations;
  SessionHarness harness;
};

TEST_F(ReadingDataMaintenanceTest, NamesAFormatByTheFileNameAndAPackageByItsURL) {
  const struct {
    const char* file;
    std::optional<HighlightExportFormat> format;
  } cases[] = {{"notes.md", HighlightExportFormat::markdown},
               {"notes.MARKDOWN", HighlightExportFormat::markdown},
               {"notes.Json", HighlightExportFormat::json},
               {"notes.txt", std::nullopt},
               {"notes", std::nullopt}};
  for (const auto& testCase : cases) {
    EXPECT_EQ(ReadingDataMaintenance::formatForFileName(testCase.file), testCase.format)
        << testCase.file;
  }
  PublicationDescriptor descriptor = harness.descriptor();
  descriptor.packageURL =
      "tomekeeper://publication/" + descriptor.publicationID.string() + "/O%20EBPS/pack%C3%A9.opf";
  EXPECT_EQ(ReadingDataMaintenance::packageDocumentPath(descriptor), "O EBPS/pack\xC3\xA9.opf");
}

TEST_F(ReadingDataMaintenanceTest, ExportsTheHighlightsTheSessionShows) {
  const std::filesystem::path destination = temporary / "out/highlights.json";
  std::filesystem::create_directories(destination.parent_path());
  runToEnd(maintenance().exportHighlights(destination, HighlightExportFormat::json));

  const json exported = json::parse(readFile(destination));
  EXPECT_EQ(exported["title"], "A Book");
  EXPECT_EQ(exported["authors"], json::array({"An Author"}));
  EXPECT_EQ(exported["sha256"], kFingerprint);
  std::multiset<std::string> texts;
  for (const json& highlight : exported["highlights"]) {
    texts.insert(highlight["text"].get<std::string>());
    EXPECT_EQ(highlight["chapter"], "Middle");  // the harness's highlights are in spine item 1
  }
  EXPECT_EQ(texts, (std::multiset<std::string>{"first", "second"}));
}

// The store breaks on disk; the restore brings back the backup of the last save but one, and
// the session shows it.
TEST_F(ReadingDataMaintenanceTest, RestoresTheHighlightsAndTheSessionFollows) {
  const std::vector<Annotation> backedUp =
      JSONAnnotationRepository::loadStore(storeBackupFile(directory / "annotations.json", 1))
          .annotationsByFingerprint.at(std::string(kFingerprint));
  writeFileAtomically(directory / "annotations.json", "{");
  JSONReadingPositionRepository positions(directory / "reading-position.json");
  runToEnd(positions.save(locatorAt(1, "/6/4!/4/2/1:0"), std::string(kFingerprint)));
  runToEnd(positions.save(locatorAt(2, "/6/6!/4/2/1:0"), std::string(kFingerprint)));

  const ReadingDataBackupOffer offer = runToEnd(maintenance().findBackups());
  // The position store decodes: an open book keeps its own position, so none is offered.
  ASSERT_EQ(offer.stores.size(), 1u);
  EXPECT_EQ(offer.annotationCount(), 1u);
  EXPECT_FALSE(offer.find(PublicationStore::annotations)->currentStoreDecodes);

  runToEnd(maintenance().restore(offer));
  EXPECT_EQ(harness.session->annotations().value(), backedUp);
  EXPECT_EQ(readFile(storeBackupFile(directory / "annotations.json", 1)), "{");

  writeFileAtomically(directory / "reading-position.json", "[");
  EXPECT_NE(runToEnd(maintenance().findBackups()).find(PublicationStore::readingPosition), nullptr);
}

// The book opens without highlights; an earlier edition of the same identifier and title has
// two, of which one's words are in this edition.
TEST_F(ReadingDataMaintenanceTest, CarriesOverTheHighlightsOfAnEarlierEdition) {
  const std::string section = R"(<html xmlns="http://www.w3.org/1999/xhtml"><body><p>)";
  writeFile(temporary / "book/OEBPS/chapter0.xhtml", section + "Opening words.</p></body></html>");
  writeFile(temporary / "book/OEBPS/chapter1.xhtml",
            section + "Call me Ishmael. Some years ago.</p></body></html>");
  runToEnd(annotations->deleteAll(std::string(kFingerprint)));
  const std::string earlier(64, 'e');
  writePublicationRecord(temporary / "Publications" / earlier, {"urn:x", "A Book"});
  JSONAnnotationRepository earlierStore(temporary / "Publications" / earlier / "annotations.json");
  Annotation kept = SessionHarness::annotation("Some years ago", "a note");
  Annotation cut = SessionHarness::annotation("words cut from this edition");
  for (Annotation* highlight : {&kept, &cut}) {
    highlight->bookFingerprint = earlier;
    runToEnd(earlierStore.save(*highlight));
  }

  EXPECT_EQ(runToEnd(maintenance().recordAndFindEarlierEdition()), earlier);
  EXPECT_EQ(readPublicationRecord(directory), (PublicationRecord{"urn:x", "A Book"}));
  EXPECT_EQ(runToEnd(maintenance().carryOverFrom(earlier)), std::vector{cut});
  ASSERT_EQ(harness.session->annotations().value().size(), 1u);
  const Annotation& carried = harness.session->annotations().value().front();
  EXPECT_EQ(carried.id, kept.id);
  EXPECT_EQ(carried.note, kept.note);
  EXPECT_EQ(carried.bookFingerprint, kFingerprint);
  EXPECT_EQ(carried.locator.spineHref, "chapter1.xhtml");
  // With highlights of its own, the book is not offered another edition's.
  EXPECT_EQ(runToEnd(maintenance().recordAndFindEarlierEdition()), std::nullopt);
}

}  // namespace
}  // namespace tomekeeper::testing
