#include "runtime/PublicationResourceProvider.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& path, const std::string& contents = "x") {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

PublicationResourceError refusal(const PublicationResourceProvider& provider, std::string_view path,
                                 ContentSecurityPolicyUse use = ContentSecurityPolicyUse::applied) {
  try {
    provider.resource(path, use);
  } catch (const PublicationResourceErrorError& error) {
    return error.failure();
  }
  ADD_FAILURE() << "\"" << path << "\" was served";
  return PublicationResourceError::unavailable;
}

class PublicationResourceProviderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = directory_ / "Extracted";
    writeFile(root_ / "OEBPS/a.xhtml", "<html/>");
    writeFile(root_ / "OEBPS/a b.xhtml");
    writeFile(root_ / "OEBPS/style.css");
    writeFile(root_ / "a.html");
    writeFile(root_ / "a.htm");
    writeFile(root_ / "a.css");
    writeFile(root_ / "A.XHTML");
    writeFile(root_ / "content.opf");
    writeFile(root_ / "toc.ncx");
    writeFile(root_ / "LICENSE");
    writeFile(root_ / "picture.JPEG");
    writeFile(root_ / "data.unknownextensionxyz");
    writeFile(directory_ / "secret.txt", "secret");
  }

  PublicationResourceProvider provider() const { return PublicationResourceProvider(root_); }

  testing::TemporaryDirectory directory_;
  fs::path root_;
};

TEST_F(PublicationResourceProviderTest, ServesAFileInsideTheRootWithItsType) {
  const PublicationResource resource =
      provider().resource("OEBPS/a.xhtml", ContentSecurityPolicyUse::omitted);
  EXPECT_EQ(resource.fileURL, fs::canonical(root_ / "OEBPS/a.xhtml"));
  EXPECT_EQ(resource.mimeType, "application/xhtml+xml");
  EXPECT_EQ(resource.contentSecurityPolicy, std::nullopt);
}

// Paths that name no file inside the root, each under the behaviour it shows.
TEST_F(PublicationResourceProviderTest, RefusesPathsThatNameNoFileInsideTheRoot) {
  constexpr auto kInvalid = PublicationResourceError::invalidPath;
  constexpr auto kUnavailable = PublicationResourceError::unavailable;
  const struct {
    const char* behaviour;
    PublicationResourceError expected;
    std::vector<const char*> paths;
  } cases[] = {
      {"RefusesEmptyAndAbsolutePaths", kInvalid, {"", "/OEBPS/a.xhtml"}},
      {"RefusesABackslashBeforeDecoding", kInvalid, {"OEBPS\\a.xhtml"}},
      // An encoded backslash decodes into a plain character of a name, which does not exist.
      {"AnEncodedBackslashIsPartOfAName", kUnavailable, {"OEBPS%5Ca.xhtml"}},
      {"RefusesBadPercentSequences",
       kInvalid,
       {"OEBPS/%zz.xhtml", "OEBPS/a.xhtml%", "OEBPS/a.xhtml%4", "OEBPS/%00a.xhtml",
        "OEBPS/%FF.xhtml"}},
      {"RefusesEmptyDotAndDotDotComponents",
       kInvalid,
       {"OEBPS//a.xhtml", "OEBPS/", "./a.html", "OEBPS/../a.html", ".."}},
      {"RefusesEncodedSlashesThatHideDotDot",
       kInvalid,
       {"a%2F..%2Fb", "OEBPS%2F..%2F..%2Fsecret.txt", "%2E%2E/secret.txt", "OEBPS%2F"}},
      {"DirectoriesAndMissingFilesAreUnavailable",
       kUnavailable,
       {"OEBPS", "OEBPS/missing.xhtml", "missing/deeper/a.css"}},
  };
  for (const auto& [behaviour, expected, paths] : cases) {
    for (const char* path : paths) {
      SCOPED_TRACE(std::string(behaviour) + ": \"" + path + "\"");
      EXPECT_EQ(refusal(provider(), path), expected);
    }
  }
}

// Names made on disk (links, a loop, a FIFO), each with the path asked and what it gives: the
// file it leads to inside the root, or the refusal.
TEST_F(PublicationResourceProviderTest, FollowsLinksOnlyToFilesInsideTheRoot) {
  const fs::path outside = directory_.path();
  writeFile(outside / "ExtractedEvil/page.css");
  fs::create_symlink(outside / "secret.txt", root_ / "escape.css");
  fs::create_directory_symlink(outside, root_ / "outside");
  fs::create_symlink(outside / "does-not-exist.css", root_ / "dangling.css");
  fs::create_directory_symlink(root_, root_ / "self");
  fs::create_directory_symlink(fs::path(root_) / "..", root_ / "parent");
  // A sibling directory whose name has the root's as its prefix.
  fs::create_directory_symlink(outside / "ExtractedEvil", root_ / "evil");
  fs::create_symlink(root_ / "OEBPS/style.css", root_ / "alias.css");
  fs::create_symlink(root_ / "loop-b", root_ / "loop-a");
  fs::create_symlink(root_ / "loop-a", root_ / "loop-b");
  ASSERT_EQ(mkfifo((root_ / "pipe.css").c_str(), 0600), 0);
  constexpr auto kOutside = PublicationResourceError::outsidePublicationRoot;
  const struct {
    const char* behaviour;
    const char* path;
    std::optional<fs::path> served;
    PublicationResourceError refusal;
  } cases[] = {
      {"DecodesABlankInAName", "OEBPS/a%20b.xhtml", "OEBPS/a b.xhtml", {}},
      {"FollowsASymbolicLinkThatStaysInside", "alias.css", "OEBPS/style.css", {}},
      {"RefusesALinkToAFileOutside", "escape.css", {}, kOutside},
      {"RefusesALinkToADirectoryOutside", "outside/secret.txt", {}, kOutside},
      {"RefusesADanglingLink", "dangling.css", {}, kOutside},
      {"RefusesALinkToTheRootItself", "self", {}, kOutside},
      {"RefusesALinkToTheRootsParent", "parent/secret.txt", {}, kOutside},
      {"ASiblingDirectoryWithTheRootAsPrefixIsOutside", "evil/page.css", {}, kOutside},
      {"AFifoIsUnavailable", "pipe.css", {}, PublicationResourceError::unavailable},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.behaviour);
    if (testCase.served) {
      EXPECT_EQ(provider().resource(testCase.path, ContentSecurityPolicyUse::omitted).fileURL,
                fs::canonical(root_ / *testCase.served));
    } else {
      EXPECT_EQ(refusal(provider(), testCase.path), testCase.refusal);
    }
  }
  // A loop of links is refused, whichever way; it is no malformed path.
  EXPECT_NE(refusal(provider(), "loop-a"), PublicationResourceError::invalidPath);
}

TEST_F(PublicationResourceProviderTest, FindsAPathInAnyLetterCaseOnlyInsideTheRoot) {
  writeFile(root_ / "Images/Dup.png");
  writeFile(root_ / "Images/dup.png");
  writeFile(root_ / "Images/Café.PNG");
  writeFile(directory_ / "Outside/Photo.png");
  fs::create_directory_symlink(directory_ / "Outside", root_ / "Linked");
  const struct {
    const char* path;
    std::optional<fs::path> served;
    PublicationResourceError refusal;
  } cases[] = {
      {"oebps/STYLE.CSS", "OEBPS/style.css", {}},
      {"OEBPS/A.XHTML", "OEBPS/a.xhtml", {}},
      {"A.XHTML", "A.XHTML", {}},  // the exact name, though "a.xhtml" is inside OEBPS
      {"a.xhtml", "A.XHTML", {}},
      {"images/CAF%C3%89.png", "Images/Café.PNG", {}},
      {"images/DUP.png", std::nullopt, PublicationResourceError::unavailable},
      {"Images/Dup.png", "Images/Dup.png", {}},
      {"LINKED/photo.png", std::nullopt, PublicationResourceError::outsidePublicationRoot},
      {"oebps/../A.XHTML", std::nullopt, PublicationResourceError::invalidPath},
      {"OEBPS/missing.css", std::nullopt, PublicationResourceError::unavailable},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.path);
    if (testCase.served) {
      EXPECT_EQ(provider().resource(testCase.path, ContentSecurityPolicyUse::omitted).fileURL,
                fs::canonical(root_ / *testCase.served));
    } else {
      EXPECT_EQ(refusal(provider(), testCase.path), testCase.refusal);
    }
  }
}

// Extensions match whatever their case; the package and the NCX are served as plain XML; other
// extensions go to the type database.
TEST_F(PublicationResourceProviderTest, ServesEachFileWithTheTypeOfItsExtension) {
  const std::pair<const char*, const char*> cases[] = {
      {"A.XHTML", "application/xhtml+xml"},
      {"picture.JPEG", "image/jpeg"},
      {"content.opf", "application/xml"},
      {"toc.ncx", "application/xml"},
      {"LICENSE", "application/octet-stream"},
      {"data.unknownextensionxyz", "application/octet-stream"},
  };
  for (const auto& [path, mimeType] : cases) {
    SCOPED_TRACE(path);
    EXPECT_EQ(provider().resource(path, ContentSecurityPolicyUse::omitted).mimeType, mimeType);
  }
  // The table is looked up in lower case only, and scripts have no type of their own.
  EXPECT_EQ(publicationMIMETypeForExtension("XHTML"), std::nullopt);
  EXPECT_EQ(publicationMIMETypeForExtension("js"), std::nullopt);
}

TEST_F(PublicationResourceProviderTest, AttachesThePolicyByServedTypeWhenAsked) {
  writeFile(root_ / "chapter.svg");
  writeFile(root_ / "chapter.xml");
  writeFile(root_ / "script.js");
  writeFile(root_ / "font.woff2");
  writeFile(root_ / "song.mp3");
  const auto policyOf = [&](std::string_view path, ContentSecurityPolicyUse use) {
    return provider().resource(path, use).contentSecurityPolicy;
  };
  // Documents, whatever their name says, and anything of a type not known.
  for (const char* path :
       {"a.html", "a.htm", "OEBPS/a.xhtml", "A.XHTML", "chapter.svg", "chapter.xml", "content.opf",
        "toc.ncx", "script.js", "LICENSE", "data.unknownextensionxyz"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(policyOf(path, ContentSecurityPolicyUse::applied),
              std::string(kPublicationContentSecurityPolicy));
    EXPECT_EQ(policyOf(path, ContentSecurityPolicyUse::omitted), std::nullopt);
  }
  for (const char* path : {"a.css", "picture.JPEG", "font.woff2", "song.mp3"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(policyOf(path, ContentSecurityPolicyUse::applied), std::nullopt);
  }
}

// Everything but images other than SVG, style sheets, fonts, audio and video is a document that
// carries the content policy: a type the table does not know, or one not well formed, too.
TEST(PublicationContentKindTest, OnlyImagesStyleSheetsFontsAndMediaArePassive) {
  const struct {
    PublicationContentKind kind;
    std::vector<const char*> mimeTypes;
  } cases[] = {
      {PublicationContentKind::document,
       {"text/html", "application/xhtml+xml", "image/svg+xml", "IMAGE/SVG+XML",
        "image/svg+xml; charset=utf-8", "image/svg+xml-compressed", "application/xml", "text/xml",
        "application/x-dtbncx+xml", "application/mathml+xml", "application/xslt+xml", "image/x+xml",
        "application/javascript", "text/plain", "application/octet-stream", "application/pdf", "",
        "image/", "image"}},
      {PublicationContentKind::passive,
       {"image/jpeg", "image/png; x=y", "image/webp", "text/css", "Text/CSS", "font/woff2",
        "application/font-woff", "application/vnd.ms-opentype", "audio/mpeg", "video/mp4"}},
  };
  for (const auto& [kind, mimeTypes] : cases) {
    for (const char* mimeType : mimeTypes) {
      SCOPED_TRACE(std::string("\"") + mimeType + "\"");
      EXPECT_EQ(publicationContentKind(mimeType), kind);
    }
  }
}

TEST_F(PublicationResourceProviderTest, ThePolicyTextIsExact) {
  EXPECT_EQ(kPublicationContentSecurityPolicy,
            "default-src 'self' data:; script-src 'none'; style-src 'self' 'unsafe-inline' data:; "
            "media-src 'self' data: blob:; connect-src 'none'; object-src 'none'; "
            "frame-src 'none'; base-uri 'none'");
}

TEST_F(PublicationResourceProviderTest, TheRootIsResolvedThroughLinks) {
  fs::create_directory_symlink(root_, directory_ / "link-to-root");
  const PublicationResourceProvider linked(directory_ / "link-to-root");
  EXPECT_EQ(linked.root(), fs::canonical(root_));
  EXPECT_EQ(linked.resource("a.css", ContentSecurityPolicyUse::omitted).fileURL,
            fs::canonical(root_ / "a.css"));
}

TEST_F(PublicationResourceProviderTest, AMissingOrPlainFileRootIsUnavailable) {
  const auto construct = [](const fs::path& path) -> std::optional<PublicationResourceError> {
    try {
      PublicationResourceProvider provider(path);
    } catch (const PublicationResourceErrorError& error) {
      return error.failure();
    }
    return std::nullopt;
  };
  EXPECT_EQ(construct(directory_ / "nowhere"), PublicationResourceError::unavailable);
  EXPECT_EQ(construct(directory_ / "secret.txt"), PublicationResourceError::unavailable);
}

}  // namespace
}  // namespace tomekeeper
