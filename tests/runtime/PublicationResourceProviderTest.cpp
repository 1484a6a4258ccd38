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

TEST_F(PublicationResourceProviderTest, DecodesABlankInAName) {
  const PublicationResource resource =
      provider().resource("OEBPS/a%20b.xhtml", ContentSecurityPolicyUse::omitted);
  EXPECT_EQ(resource.fileURL.filename(), "a b.xhtml");
}

TEST_F(PublicationResourceProviderTest, RefusesASymbolicLinkThatLeadsOutside) {
  fs::create_symlink(directory_ / "secret.txt", root_ / "escape.css");
  fs::create_directory_symlink(directory_.path(), root_ / "outside");
  fs::create_symlink(directory_ / "does-not-exist.css", root_ / "dangling.css");
  EXPECT_EQ(refusal(provider(), "escape.css"), PublicationResourceError::outsidePublicationRoot);
  EXPECT_EQ(refusal(provider(), "outside/secret.txt"),
            PublicationResourceError::outsidePublicationRoot);
  EXPECT_EQ(refusal(provider(), "dangling.css"), PublicationResourceError::outsidePublicationRoot);
}

TEST_F(PublicationResourceProviderTest, RefusesALinkToTheRootItself) {
  fs::create_directory_symlink(root_, root_ / "self");
  fs::create_directory_symlink(fs::path(root_) / "..", root_ / "parent");
  EXPECT_EQ(refusal(provider(), "self"), PublicationResourceError::outsidePublicationRoot);
  EXPECT_EQ(refusal(provider(), "parent/secret.txt"),
            PublicationResourceError::outsidePublicationRoot);
}

TEST_F(PublicationResourceProviderTest, ASiblingDirectoryWithTheRootAsPrefixIsOutside) {
  writeFile(directory_ / "ExtractedEvil/page.css");
  fs::create_directory_symlink(directory_ / "ExtractedEvil", root_ / "evil");
  EXPECT_EQ(refusal(provider(), "evil/page.css"), PublicationResourceError::outsidePublicationRoot);
}

TEST_F(PublicationResourceProviderTest, FollowsASymbolicLinkThatStaysInside) {
  fs::create_symlink(root_ / "OEBPS/style.css", root_ / "alias.css");
  const PublicationResource resource =
      provider().resource("alias.css", ContentSecurityPolicyUse::applied);
  EXPECT_EQ(resource.fileURL, fs::canonical(root_ / "OEBPS/style.css"));
}

TEST_F(PublicationResourceProviderTest, ASymbolicLinkLoopIsUnavailable) {
  fs::create_symlink(root_ / "loop-b", root_ / "loop-a");
  fs::create_symlink(root_ / "loop-a", root_ / "loop-b");
  const PublicationResourceError failure = refusal(provider(), "loop-a");
  EXPECT_NE(failure, PublicationResourceError::invalidPath);
}

TEST_F(PublicationResourceProviderTest, AFifoIsUnavailable) {
  ASSERT_EQ(mkfifo((root_ / "pipe.css").c_str(), 0600), 0);
  EXPECT_EQ(refusal(provider(), "pipe.css"), PublicationResourceError::unavailable);
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

struct ContentKindCase {
  const char* name;
  const char* mimeType;
  PublicationContentKind kind;
};

class PublicationContentKindTest : public ::testing::TestWithParam<ContentKindCase> {};

TEST_P(PublicationContentKindTest, CarriesThePolicyUnlessPassive) {
  EXPECT_EQ(publicationContentKind(GetParam().mimeType), GetParam().kind) << GetParam().mimeType;
}

constexpr auto kDocument = PublicationContentKind::document;
constexpr auto kPassive = PublicationContentKind::passive;

INSTANTIATE_TEST_SUITE_P(
    Types, PublicationContentKindTest,
    ::testing::Values(ContentKindCase{"HTML", "text/html", kDocument},
                      ContentKindCase{"XHTML", "application/xhtml+xml", kDocument},
                      ContentKindCase{"SVG", "image/svg+xml", kDocument},
                      ContentKindCase{"SVGInCapitals", "IMAGE/SVG+XML", kDocument},
                      ContentKindCase{"SVGWithParameter", "image/svg+xml; charset=utf-8",
                                      kDocument},
                      ContentKindCase{"CompressedSVG", "image/svg+xml-compressed", kDocument},
                      ContentKindCase{"PlainXML", "application/xml", kDocument},
                      ContentKindCase{"TextXML", "text/xml", kDocument},
                      ContentKindCase{"NCX", "application/x-dtbncx+xml", kDocument},
                      ContentKindCase{"MathML", "application/mathml+xml", kDocument},
                      ContentKindCase{"XSLT", "application/xslt+xml", kDocument},
                      ContentKindCase{"ImageWithXMLSuffix", "image/x+xml", kDocument},
                      ContentKindCase{"Script", "application/javascript", kDocument},
                      ContentKindCase{"PlainText", "text/plain", kDocument},
                      ContentKindCase{"OctetStream", "application/octet-stream", kDocument},
                      ContentKindCase{"PDF", "application/pdf", kDocument},
                      ContentKindCase{"Empty", "", kDocument},
                      ContentKindCase{"NoSubtype", "image/", kDocument},
                      ContentKindCase{"NoSlash", "image", kDocument},
                      ContentKindCase{"JPEG", "image/jpeg", kPassive},
                      ContentKindCase{"PNGWithParameter", "image/png; x=y", kPassive},
                      ContentKindCase{"WebP", "image/webp", kPassive},
                      ContentKindCase{"CSS", "text/css", kPassive},
                      ContentKindCase{"CSSInCapitals", "Text/CSS", kPassive},
                      ContentKindCase{"WOFF2", "font/woff2", kPassive},
                      ContentKindCase{"OldWOFF", "application/font-woff", kPassive},
                      ContentKindCase{"OldOpenType", "application/vnd.ms-opentype", kPassive},
                      ContentKindCase{"Audio", "audio/mpeg", kPassive},
                      ContentKindCase{"Video", "video/mp4", kPassive}),
    [](const ::testing::TestParamInfo<ContentKindCase>& info) { return info.param.name; });

TEST_F(PublicationResourceProviderTest, ThePolicyTextIsExact) {
  EXPECT_EQ(kPublicationContentSecurityPolicy.size(), 187u);
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

TEST(PublicationMIMETypeTableTest, CoversEveryExtensionOfTheTable) {
  const std::pair<const char*, const char*> expected[] = {{"xhtml", "application/xhtml+xml"},
                                                          {"html", "text/html"},
                                                          {"htm", "text/html"},
                                                          {"css", "text/css"},
                                                          {"svg", "image/svg+xml"},
                                                          {"xml", "application/xml"},
                                                          {"opf", "application/xml"},
                                                          {"ncx", "application/xml"},
                                                          {"jpg", "image/jpeg"},
                                                          {"jpeg", "image/jpeg"},
                                                          {"png", "image/png"},
                                                          {"gif", "image/gif"},
                                                          {"webp", "image/webp"},
                                                          {"woff", "font/woff"},
                                                          {"woff2", "font/woff2"},
                                                          {"otf", "font/otf"},
                                                          {"ttf", "font/ttf"},
                                                          {"mp3", "audio/mpeg"},
                                                          {"m4a", "audio/mp4"},
                                                          {"aac", "audio/aac"},
                                                          {"ogg", "audio/ogg"},
                                                          {"oga", "audio/ogg"},
                                                          {"opus", "audio/ogg"},
                                                          {"weba", "audio/webm"},
                                                          {"wav", "audio/wav"},
                                                          {"mp4", "video/mp4"},
                                                          {"m4v", "video/mp4"},
                                                          {"webm", "video/webm"}};
  for (const auto& [extension, mimeType] : expected) {
    EXPECT_EQ(publicationMIMETypeForExtension(extension), mimeType) << extension;
  }
  EXPECT_EQ(publicationMIMETypeForExtension("XHTML"), std::nullopt);
  EXPECT_EQ(publicationMIMETypeForExtension("js"), std::nullopt);
}

}  // namespace
}  // namespace tomekeeper
