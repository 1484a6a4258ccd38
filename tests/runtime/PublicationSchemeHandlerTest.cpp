#include "runtime/PublicationSchemeHandler.h"

#include <gtest/gtest.h>

#include <fstream>

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

TEST_F(PublicationSchemeHandlerTest, ARegisteredPublicationIsServedWithThePolicy) {
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

TEST_F(PublicationSchemeHandlerTest, UnknownIdentifiersAndBadURLsHaveNoTarget) {
  EXPECT_FALSE(handler_->target("tomekeeper://publication/" + Uuid::random().string() + "/a.css"));
  EXPECT_FALSE(handler_->target("tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
  EXPECT_FALSE(handler_->target("tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/"));
  EXPECT_FALSE(handler_->target("tomekeeper://other/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/a.css"));
  handler_->setRuntimeProvider(PublicationResourceProvider(directory_ / "Runtime"));
  EXPECT_FALSE(handler_->target("tomekeeper://publication/runtime/"));
}

TEST_F(PublicationSchemeHandlerTest, InnerEmptyPiecesReachTheProviderWhichRefusesThem) {
  const auto target = handler_->target(
      "tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/OEBPS//a.xhtml");
  ASSERT_TRUE(target);
  EXPECT_EQ(target->path, "OEBPS//a.xhtml");
  try {
    PublicationSchemeHandler::readPayload(*target);
    FAIL() << "served";
  } catch (const PublicationResourceErrorError& error) {
    EXPECT_EQ(error.failure(), PublicationResourceError::invalidPath);
  }
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

TEST_F(PublicationSchemeHandlerTest, ResolvesPathsAsTheURLStandardWithinThePublication) {
  std::filesystem::create_directories(directory_ / "Book/EPUB/images");
  std::ofstream(directory_ / "Book/EPUB/images/photo.jpg") << "photo";
  std::ofstream(directory_ / "secret.txt") << "secret";
  handler_->setRuntimeProvider(PublicationResourceProvider(directory_ / "Runtime"));
  const std::string base = "tomekeeper://publication/";
  const std::string book = base + "E621E1F8-C36C-495A-93FC-0C247A3E6E5F/";
  enum class Served { photo, runtimeIndex, nothing, refused };
  const struct {
    std::string url;
    Served served;
  } cases[] = {
      {book + "EPUB/text/../images/photo.jpg", Served::photo},
      {book + "EPUB/%2e%2E/EPUB/./images/%2E/photo.jpg", Served::photo},
      // What the web view makes of "../../../../EPUB/images/photo.jpg" and "/EPUB/images/...".
      {base + "EPUB/images/photo.jpg", Served::photo},
      {book + "EPUB/../../../../EPUB/images/photo.jpg", Served::photo},
      {base + "epub/IMAGES/Photo.JPG", Served::photo},
      // Clamped at the root: nothing above the container root is ever named.
      {book + "../../../secret.txt", Served::refused},
      {base + "../secret.txt", Served::refused},
      {base + "EPUB/images/%2E%2E%2F..%2Fsecret.txt", Served::refused},
      {base + "EPUB/images/..%2F..%2F..%2Fsecret.txt", Served::refused},
      {book + "../runtime/index.html", Served::runtimeIndex},
      {base + "runtime/", Served::nothing},
      {book, Served::nothing},
      {base + "E621E1F8-C36C-495A-93FC-0C247A3E6E5E/EPUB/images/photo.jpg", Served::nothing},
      {"tomekeeper://other/EPUB/images/photo.jpg", Served::nothing},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.url);
    const auto found = handler_->target(testCase.url);
    if (testCase.served == Served::nothing) {
      EXPECT_FALSE(found);
      continue;
    }
    ASSERT_TRUE(found);
    if (testCase.served == Served::refused) {
      EXPECT_THROW(PublicationSchemeHandler::readPayload(*found), PublicationResourceErrorError);
      continue;
    }
    EXPECT_EQ(PublicationSchemeHandler::readPayload(*found).data,
              testCase.served == Served::photo ? "photo" : "<!DOCTYPE html>");
  }
  // With a second book in the web view, a link without an id is no longer anyone's.
  std::filesystem::create_directories(directory_ / "Other");
  handler_->registerPublication(Uuid::random(), directory_ / "Other");
  EXPECT_FALSE(handler_->target(base + "EPUB/images/photo.jpg"));
  EXPECT_TRUE(handler_->target(book + "EPUB/images/photo.jpg"));
}

TEST_F(PublicationSchemeHandlerTest, RegisteringAnUnusableRootFails) {
  EXPECT_THROW(handler_->registerPublication(Uuid::random(), directory_ / "nowhere"),
               PublicationResourceErrorError);
}

}  // namespace
}  // namespace tomekeeper
