#include "runtime/PublicationSchemeHandler.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

const Uuid kRegistered = *Uuid::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");

class PublicationSchemeHandlerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(directory_ / "Book/OEBPS");
    std::filesystem::create_directories(directory_ / "Runtime");
    std::ofstream(directory_ / "Book/OEBPS/a.xhtml") << "<html/>";
    std::ofstream(directory_ / "Book/OEBPS/a.css") << "p{}";
    std::ofstream(directory_ / "Runtime/index.html") << "<!DOCTYPE html>";
    handler_->registerPublication(kRegistered, directory_ / "Book");
  }

  // Unpacks `book` as the application does and serves it from a new handler under a new id.
  std::filesystem::path serveBook(const testing::EpubBuilder& book, const Uuid& bookID) {
    book.writeTo(directory_ / "book.epub");
    const std::filesystem::path root =
        EPUBArchiveExtractor()
            .extract(directory_ / "book.epub",
                     EPUBArchiveInspector().inspectBlocking(directory_ / "book.epub"),
                     directory_ / "Extracted")
            .rootURL;
    handler_ = PublicationSchemeHandler::create();
    handler_->registerPublication(bookID, root);
    return root;
  }

  testing::TemporaryDirectory directory_;
  std::shared_ptr<PublicationSchemeHandler> handler_ = PublicationSchemeHandler::create();
};

TEST_F(PublicationSchemeHandlerTest, RuntimeURLsFailUntilTheRuntimeIsPrepared) {
  EXPECT_FALSE(handler_->target("tomekeeper://publication/runtime/index.html"));
  handler_->setRuntimeProvider(PublicationResourceProvider(directory_ / "Runtime"));
  const auto target = handler_->target("tomekeeper://publication/runtime/index.html");
  ASSERT_TRUE(target);
  EXPECT_EQ(target->path, "index.html");
  EXPECT_EQ(target->policyUse, ContentSecurityPolicyUse::omitted);
  const auto payload = PublicationSchemeHandler::readPayload(*target);
  EXPECT_EQ(payload.data, "<!DOCTYPE html>");
  EXPECT_EQ(payload.mimeType, "text/html");
  EXPECT_EQ(payload.contentSecurityPolicy, std::nullopt);
}

TEST_F(PublicationSchemeHandlerTest, ABooksDocumentsAloneAreServedWithThePolicy) {
  const auto target = handler_->target(
      "tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/OEBPS/a.xhtml?x#y");
  ASSERT_TRUE(target);
  EXPECT_EQ(target->policyUse, ContentSecurityPolicyUse::applied);
  const auto payload = PublicationSchemeHandler::readPayload(*target);
  EXPECT_EQ(payload.data, "<html/>");
  EXPECT_EQ(payload.contentSecurityPolicy, std::string(kPublicationContentSecurityPolicy));
  const auto style = PublicationSchemeHandler::readPayload(*handler_->target(
      "tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/OEBPS/a.css"));
  EXPECT_EQ(style.contentSecurityPolicy, std::nullopt);
}

TEST_F(PublicationSchemeHandlerTest, ABooksCSSIsServedRewrittenAndTheRuntimesAsItIs) {
  const std::string document =
      "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><style>p{-epub-line-break:loose}"
      "</style></head><body><p style=\"-epub-text-align-last: end\">-epub-line-break</p>"
      "</body></html>";
  std::ofstream(directory_ / "Book/OEBPS/b.xhtml") << document;
  std::ofstream(directory_ / "Book/OEBPS/b.css") << "p { -epub-text-align-last: end }";
  std::ofstream(directory_ / "Runtime/a.css") << "p { -epub-text-align-last: end }";
  handler_->setRuntimeProvider(PublicationResourceProvider(directory_ / "Runtime"));
  const std::string base = "tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/";
  EXPECT_EQ(PublicationSchemeHandler::readPayload(*handler_->target(base + "OEBPS/b.xhtml")).data,
            "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><style>p{line-break:loose}"
            "</style></head><body><p style=\"text-align-last: end\">-epub-line-break</p>"
            "</body></html>");
  EXPECT_EQ(PublicationSchemeHandler::readPayload(*handler_->target(base + "OEBPS/b.css")).data,
            "p { text-align-last: end }");
  EXPECT_EQ(PublicationSchemeHandler::readPayload(
                *handler_->target("tomekeeper://publication/runtime/a.css"))
                .data,
            "p { -epub-text-align-last: end }");
}

// Each address with what it gives: a file's contents, a refusal by the provider (with its
// reason where the case pins it), or no target at all.
TEST_F(PublicationSchemeHandlerTest, ResolvesPathsAsTheURLStandardWithinThePublication) {
  std::filesystem::create_directories(directory_ / "Book/EPUB/images");
  std::ofstream(directory_ / "Book/EPUB/images/photo.jpg") << "photo";
  std::ofstream(directory_ / "Book/OEBPS/100%.css") << "percent";
  std::ofstream(directory_ / "Book/OEBPS/a b.css") << "blank";
  std::ofstream(directory_ / "secret.txt") << "secret";
  handler_->setRuntimeProvider(PublicationResourceProvider(directory_ / "Runtime"));
  const std::string base = "tomekeeper://publication/";
  const std::string book = base + "E621E1F8-C36C-495A-93FC-0C247A3E6E5F/";
  enum class Served { contents, refused, nothing };
  const struct {
    std::string url;
    Served served;
    std::string contents = "";
    std::optional<PublicationResourceError> refusal = std::nullopt;
  } cases[] = {
      {book + "EPUB/text/../images/photo.jpg", Served::contents, "photo"},
      {book + "EPUB/%2e%2E/EPUB/./images/%2E/photo.jpg", Served::contents, "photo"},
      // What the web view makes of "../../../../EPUB/images/photo.jpg" and "/EPUB/images/...".
      {base + "EPUB/images/photo.jpg", Served::contents, "photo"},
      {book + "EPUB/../../../../EPUB/images/photo.jpg", Served::contents, "photo"},
      {base + "epub/IMAGES/Photo.JPG", Served::contents, "photo"},
      // A path is decoded once.
      {book + "OEBPS/100%25.css", Served::contents, "percent"},
      {book + "OEBPS/a%20b.css", Served::contents, "blank"},
      {book + "OEBPS/a%2520b.css", Served::refused},
      // Inner empty pieces reach the provider, which refuses them.
      {book + "OEBPS//a.xhtml", Served::refused, "", PublicationResourceError::invalidPath},
      // Clamped at the root: nothing above the container root is ever named.
      {book + "../../../secret.txt", Served::refused},
      {base + "../secret.txt", Served::refused},
      {base + "EPUB/images/%2E%2E%2F..%2Fsecret.txt", Served::refused},
      {base + "EPUB/images/..%2F..%2F..%2Fsecret.txt", Served::refused},
      {book + "../runtime/index.html", Served::contents, "<!DOCTYPE html>"},
      {base + "runtime/", Served::nothing},
      {book, Served::nothing},
      {base + "E621E1F8-C36C-495A-93FC-0C247A3E6E5F", Served::nothing},
      {base + Uuid::random().string() + "/a.css", Served::nothing},
      {base + "E621E1F8-C36C-495A-93FC-0C247A3E6E5E/EPUB/images/photo.jpg", Served::nothing},
      {"tomekeeper://other/EPUB/images/photo.jpg", Served::nothing},
      {"tomekeeper://other/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/a.css", Served::nothing},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.url);
    const auto found = handler_->target(testCase.url);
    if (testCase.served == Served::nothing) {
      EXPECT_FALSE(found);
      continue;
    }
    ASSERT_TRUE(found);
    if (testCase.served == Served::contents) {
      EXPECT_EQ(PublicationSchemeHandler::readPayload(*found).data, testCase.contents);
      continue;
    }
    try {
      PublicationSchemeHandler::readPayload(*found);
      ADD_FAILURE() << "served";
    } catch (const PublicationResourceErrorError& error) {
      if (testCase.refusal) EXPECT_EQ(error.failure(), *testCase.refusal);
    }
  }
  // With a second book in the web view, a link without an id is no longer anyone's.
  std::filesystem::create_directories(directory_ / "Other");
  handler_->registerPublication(Uuid::random(), directory_ / "Other");
  EXPECT_FALSE(handler_->target(base + "EPUB/images/photo.jpg"));
  EXPECT_TRUE(handler_->target(book + "EPUB/images/photo.jpg"));
}

TEST_F(PublicationSchemeHandlerTest, ServesOnlyWhatTheManifestListsOfABook) {
  testing::PackageDescription package;
  package.withChapters(1);
  package.manifest.emplace_back("photo", "images/photo.png", "image/png");
  testing::EpubBuilder book;
  book.withPackageDocument(package)
      .addFile("OEBPS/images/photo.png", "photo")
      .addFile("OEBPS/images/red.png", "red");
  const Uuid bookID = Uuid::random();
  serveBook(book, bookID);
  const std::string base = "tomekeeper://publication/" + bookID.string() + "/";
  const auto read = [&](const std::string& url) {
    return PublicationSchemeHandler::readPayload(*handler_->target(url)).data;
  };
  EXPECT_EQ(read(base + "OEBPS/images/photo.png"), "photo");
  EXPECT_EQ(read("tomekeeper://publication/oebps/IMAGES/photo.png"), "photo");
  EXPECT_NE(read(base + "OEBPS/package.opf"), "");
  EXPECT_NE(read(base + "META-INF/container.xml"), "");
  for (const std::string& url :
       {base + "OEBPS/images/red.png", std::string("tomekeeper://publication/OEBPS/images/red.png"),
        base + "OEBPS/images/RED.png", base + "mimetype"}) {
    SCOPED_TRACE(url);
    try {
      read(url);
      ADD_FAILURE() << "served";
    } catch (const PublicationResourceErrorError& error) {
      EXPECT_EQ(error.failure(), PublicationResourceError::notListed);
    }
  }
}

TEST_F(PublicationSchemeHandlerTest, AnswersOneByteRangeOfAFileServedAsStored) {
  std::ofstream(directory_ / "Book/OEBPS/song.ogg") << "0123456789";
  const auto song = *handler_->target(
      "tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/OEBPS/song.ogg");
  const struct {
    const char* range;
    unsigned status;
    const char* data;
    std::optional<std::string> contentRange;
  } cases[] = {
      {"bytes=0-3", 206, "0123", "bytes 0-3/10"},
      {"bytes=4-", 206, "456789", "bytes 4-9/10"},
      {"bytes=-3", 206, "789", "bytes 7-9/10"},
      {"bytes=8-100", 206, "89", "bytes 8-9/10"},
      {"bytes=-100", 206, "0123456789", "bytes 0-9/10"},
      {"bytes=10-", 416, "", "bytes */10"},
      {"bytes=0-1,4-5", 200, "0123456789", std::nullopt},
      {"bytes=5-2", 200, "0123456789", std::nullopt},
      {"items=0-3", 200, "0123456789", std::nullopt},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.range);
    const auto payload = PublicationSchemeHandler::readPayload(song, testCase.range);
    EXPECT_EQ(payload.status, testCase.status);
    EXPECT_EQ(payload.data, testCase.data);
    EXPECT_EQ(payload.contentRange, testCase.contentRange);
    EXPECT_TRUE(payload.acceptsRanges);
    EXPECT_EQ(payload.mimeType, "audio/ogg");
  }
  // A style sheet is rewritten as it is served, so it always comes whole.
  const auto style = PublicationSchemeHandler::readPayload(
      *handler_->target(
          "tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/OEBPS/a.css"),
      "bytes=0-0");
  EXPECT_EQ(style.status, 200u);
  EXPECT_EQ(style.data, "p{}");
  EXPECT_FALSE(style.acceptsRanges);
}

// A book of three sections and an image, extracted and registered; the batch route reads its
// sections in one response and refuses the rest whole.
TEST_F(PublicationSchemeHandlerTest, ServesSpineSectionsInOneBatchAndRefusesTheRest) {
  const auto section = [](const std::string& body) {
    return "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><style>p{-epub-line-break:loose}"
           "</style></head><body><p>" +
           body + "</p></body></html>";
  };
  // Letters that hardly compress, so that the archive's expansion stays plausible.
  std::string bigBody;
  for (std::uint32_t state = 1; bigBody.size() < 100 * 1024;) {
    state = state * 1664525U + 1013904223U;
    bigBody += static_cast<char>('a' + (state >> 24) % 26);
  }
  testing::PackageDescription package;
  package.manifest = {{"one", "text/one.xhtml"},
                      {"two", "text/two%20b.xhtml"},
                      {"big", "text/big.xhtml"},
                      {"aside", "text/aside.xhtml"},
                      {"scroll", "text/scroll.dtb", "application/x-dtbook+xml"},
                      {"scrollText", "text/scroll.xhtml"},
                      {"bom", "text/bom.xhtml"},
                      {"wide", "text/wide.xhtml"},
                      {"photo", "images/photo.png", "image/png"}};
  package.spine = {"one", "two", "big", "scroll", "bom", "wide"};
  std::string wide = "\xFF\xFE";
  for (const char character : section("Wide")) wide += std::string{character, '\0'};
  testing::EpubBuilder book;
  book.withPackageDocument(package)
      .addFile("OEBPS/text/one.xhtml", section("One \xC3\xA9t\xC3\xA9"))
      .addFile("OEBPS/text/two b.xhtml", section("Two \xFF broken"))
      .addFile("OEBPS/text/big.xhtml", section(bigBody))
      .addFile("OEBPS/text/aside.xhtml", section("Aside"))
      .addFile("OEBPS/text/scroll.dtb", "<dtbook/>")
      .addFile("OEBPS/text/scroll.xhtml", section("Scroll"))
      .addFile("OEBPS/text/bom.xhtml", "\xEF\xBB\xBF" + section("Bom"))
      .addFile("OEBPS/text/wide.xhtml", wide)
      .addFile("OEBPS/text/unlisted.xhtml", section("Unlisted"))
      .addFile("OEBPS/images/photo.png", "photo");
  // The spine's dtbook item is shown through the XHTML of its fallback.
  std::string packageText = package.text();
  const std::string scrollItem = "id=\"scroll\"";
  packageText.replace(packageText.find(scrollItem), scrollItem.size(),
                      scrollItem + " fallback=\"scrollText\"");
  book.replaceFile(testing::EpubBuilder::kPackageDocumentPath, packageText);
  const Uuid bookID = Uuid::random();
  const std::filesystem::path root = serveBook(book, bookID);
  const auto publication = [&] {
    return PublicationSchemeHandler::Publication{
        PublicationResourceProvider(root),
        handler_->target("tomekeeper://publication/" + bookID.string() + "/OEBPS/text/one.xhtml")
            ->manifest};
  }();
  const auto alone = [&](const std::string& path) {
    return PublicationSchemeHandler::readPayload(
        *handler_->target("tomekeeper://publication/" + bookID.string() + "/" + path));
  };
  using Paths = std::vector<std::string>;
  const Paths tooMany(PublicationSchemeHandler::kMaximumSectionBatchItems + 1,
                      "OEBPS/text/one.xhtml");
  // 100 KiB each: past the byte limit well within the item limit.
  const Paths tooHeavy(PublicationSchemeHandler::kMaximumSectionBatchBytes / (100 * 1024) + 1,
                       "OEBPS/text/big.xhtml");
  const struct {
    const char* behaviour;
    Paths paths;
    unsigned status;
    Paths servedAlone;  // for status 200: the paths whose single responses the batch holds
  } cases[] = {
      {"ServesSectionsInTheOrderAskedAsEachIsServedAlone",
       {"OEBPS/text/two%20b.xhtml", "OEBPS/text/one.xhtml", "OEBPS/text/two%20b.xhtml"},
       200,
       {"OEBPS/text/two%20b.xhtml", "OEBPS/text/one.xhtml", "OEBPS/text/two%20b.xhtml"}},
      {"ResolvesDotPiecesAsTheSingleRouteDoes",
       {"OEBPS/images/../text/one.xhtml"},
       200,
       {"OEBPS/text/one.xhtml"}},
      {"ServesTheFallbackOfASpineItem",
       {"OEBPS/text/scroll.xhtml"},
       200,
       {"OEBPS/text/scroll.xhtml"}},
      {"RefusesAManifestItemOutsideTheSpine",
       {"OEBPS/text/one.xhtml", "OEBPS/text/aside.xhtml"},
       403,
       {}},
      {"RefusesAnImageOfTheManifest", {"OEBPS/images/photo.png"}, 403, {}},
      {"RefusesAFileTheManifestDoesNotList", {"OEBPS/text/unlisted.xhtml"}, 403, {}},
      {"RefusesThePackageDocument", {"OEBPS/package.opf"}, 403, {}},
      {"RefusesAPathThatClimbsOutOfTheRoot", {"../../etc/passwd"}, 403, {}},
      {"RefusesAMissingFile", {"OEBPS/text/none.xhtml"}, 403, {}},
      {"RefusesAnEmptyBatch", {}, 400, {}},
      {"RefusesTooManyItems", tooMany, 400, {}},
      {"RefusesAHugeTotal", tooHeavy, 413, {}},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.behaviour);
    const auto payload = PublicationSchemeHandler::readSectionBatch(publication, testCase.paths);
    EXPECT_EQ(payload.status, testCase.status);
    EXPECT_EQ(payload.contentSecurityPolicy, std::string(kPublicationContentSecurityPolicy));
    if (testCase.status != 200) {
      EXPECT_EQ(payload.mimeType, "text/plain");
      EXPECT_FALSE(payload.data.empty());
      continue;
    }
    EXPECT_EQ(payload.mimeType, "application/json");
    const nlohmann::json texts = nlohmann::json::parse(payload.data);
    ASSERT_EQ(texts.size(), testCase.servedAlone.size());
    for (std::size_t index = 0; index < texts.size(); ++index) {
      std::string expected = alone(testCase.servedAlone[index]).data;
      // Served alone, the byte that is no UTF-8 reaches the page as U+FFFD.
      if (const std::size_t bad = expected.find('\xFF'); bad != std::string::npos) {
        expected.replace(bad, 1, "\xEF\xBF\xBD");
      }
      EXPECT_EQ(texts[index].get<std::string>(), expected);
    }
  }
  // A byte order mark decides how the page decodes a document read alone; the batch holds the
  // text so decoded, the mark gone.
  const auto decoded = PublicationSchemeHandler::readSectionBatch(
      publication, {"OEBPS/text/bom.xhtml", "OEBPS/text/wide.xhtml"});
  ASSERT_EQ(decoded.status, 200u);
  ASSERT_EQ(alone("OEBPS/text/bom.xhtml").data.substr(0, 3), "\xEF\xBB\xBF");
  ASSERT_EQ(alone("OEBPS/text/wide.xhtml").data, wide);
  EXPECT_EQ(nlohmann::json::parse(decoded.data),
            nlohmann::json::array({alone("OEBPS/text/bom.xhtml").data.substr(3), section("Wide")}));
}

TEST_F(PublicationSchemeHandlerTest, RegisteringAnUnusableRootFails) {
  EXPECT_THROW(handler_->registerPublication(Uuid::random(), directory_ / "nowhere"),
               PublicationResourceErrorError);
}

}  // namespace
}  // namespace tomekeeper
