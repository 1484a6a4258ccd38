#include "runtime/PublicationSchemeHandler.h"

#include <gtest/gtest.h>

#include <fstream>

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
  book.writeTo(directory_ / "book.epub");
  const std::filesystem::path root =
      EPUBArchiveExtractor()
          .extract(directory_ / "book.epub",
                   EPUBArchiveInspector().inspectBlocking(directory_ / "book.epub"),
                   directory_ / "Extracted")
          .rootURL;
  const Uuid bookID = Uuid::random();
  handler_ = PublicationSchemeHandler::create();
  handler_->registerPublication(bookID, root);
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

TEST_F(PublicationSchemeHandlerTest, RegisteringAnUnusableRootFails) {
  EXPECT_THROW(handler_->registerPublication(Uuid::random(), directory_ / "nowhere"),
               PublicationResourceErrorError);
}

}  // namespace
}  // namespace tomekeeper
