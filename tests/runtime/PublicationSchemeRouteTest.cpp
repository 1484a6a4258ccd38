#include "runtime/PublicationSchemeRoute.h"

#include <gtest/gtest.h>

#include "runtime/PercentDecoding.h"

namespace tomekeeper {
namespace {

constexpr const char* kID = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";

// Each address, by the behaviour it shows, with the resource path of its publication route, or
// none. The path stays encoded for the provider to decode once, inner empty pieces included.
TEST(PublicationSchemeRouteTest, ParsesAPublicationRouteOfThisSchemeAndHostOnly) {
  const std::string book = std::string("tomekeeper://publication/") + kID;
  const struct {
    const char* behaviour;
    std::string url;
    std::optional<std::string> resourcePath;
  } cases[] = {
      {"ParsesAPublicationRoute", book + "/OEBPS/chapter1.xhtml", "OEBPS/chapter1.xhtml"},
      {"AcceptsTheIdentifierInLowerCase",
       "tomekeeper://publication/e621e1f8-c36c-495a-93fc-0c247a3e6e5f/a.html", "a.html"},
      {"IgnoresQueryAndFragment", book + "/a.html?x=1#part", "a.html"},
      {"IgnoresAFragmentThatLooksLikeAPath", book + "/a.html#x/../y", "a.html"},
      {"LeavesABlankEncoded", book + "/OEBPS/a%20b.xhtml", "OEBPS/a%20b.xhtml"},
      {"LeavesAnEncodedPercentEncoded", book + "/a%2520b.xhtml", "a%2520b.xhtml"},
      {"LeavesEncodedSlashesEncoded", book + "/a%2F..%2Fb", "a%2F..%2Fb"},
      {"RefusesAPathThatDoesNotDecode", book + "/a%zz.html", std::nullopt},
      {"KeepsInnerEmptyPieces", book + "/a//b.html", "a//b.html"},
      {"KeepsATrailingSlash", book + "/a/", "a/"},
      {"KeepsALeadingEmptyPiece", book + "//a.html", "/a.html"},
      {"FailsWithoutResourcePath", book, std::nullopt},
      {"FailsWithAnEmptyResourcePath", book + "/", std::nullopt},
      {"FailsWithoutIdentifier", "tomekeeper://publication/", std::nullopt},
      {"FailsWithoutPath", "tomekeeper://publication", std::nullopt},
      {"FailsByHost", std::string("tomekeeper://other/") + kID + "/a.html", std::nullopt},
      {"FailsByHostInAnotherCase", std::string("tomekeeper://Publication/") + kID + "/a.html",
       std::nullopt},
      {"FailsByALongerHost", std::string("tomekeeper://publication.evil/") + kID + "/a.html",
       std::nullopt},
      {"FailsWithAPort", std::string("tomekeeper://publication:80/") + kID + "/a.html",
       std::nullopt},
      {"FailsWithAUser", std::string("tomekeeper://user@publication/") + kID + "/a.html",
       std::nullopt},
      {"FailsByScheme", std::string("https://publication/") + kID + "/a.html", std::nullopt},
      {"FailsBySchemeInAnotherCase", std::string("TOMEKEEPER://publication/") + kID + "/a.html",
       std::nullopt},
      {"FailsWithoutAuthority", std::string("tomekeeper:publication/") + kID + "/a.html",
       std::nullopt},
      {"FailsByAMalformedIdentifier", "tomekeeper://publication/not-a-uuid/a.html", std::nullopt},
      {"TheRuntimeIsNoPublication", "tomekeeper://publication/runtime/index.html", std::nullopt},
      {"AnEmptyRuntimePathIsNoRouteAtAll", "tomekeeper://publication/runtime/", std::nullopt},
      {"FailsByAnIdentifierInBraces",
       "tomekeeper://publication/{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}/a.html", std::nullopt},
  };
  for (const auto& [behaviour, url, resourcePath] : cases) {
    SCOPED_TRACE(std::string(behaviour) + ": " + url);
    const auto route = parsePublicationSchemeRoute(url);
    ASSERT_EQ(route.has_value(), resourcePath.has_value());
    if (!route) continue;
    EXPECT_EQ(route->publicationID, *Uuid::fromString(kID));
    EXPECT_EQ(route->resourcePath, *resourcePath);
  }
}

TEST(PublicationSchemeRouteTest, ParsesTheRuntimeRouteOnlyWithAPath) {
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {std::string(kReaderRuntimeEntryURL), "index.html"},
      {"tomekeeper://publication/runtime/assets/main.js", "assets/main.js"},
      {"tomekeeper://publication/runtime/index.html?v=2#top", "index.html"},
      {"tomekeeper://publication/runtime/%G0", std::nullopt},
      {"tomekeeper://publication/runtime/", std::nullopt},
      {"tomekeeper://publication/runtime", std::nullopt},
      {"tomekeeper://publication/runtimes/index.html", std::nullopt},
      {"tomekeeper://other/runtime/index.html", std::nullopt},
      {std::string("tomekeeper://publication/") + kID + "/runtime/index.html", std::nullopt},
  };
  for (const auto& [url, path] : cases) {
    EXPECT_EQ(parseRuntimeResourcePath(url), path) << url;
  }
}

// Each batch address, by the behaviour it shows, with the resource paths it names, or none.
TEST(PublicationSchemeRouteTest, ParsesASectionBatchOfSectionParametersOnly) {
  const std::string book = std::string("tomekeeper://publication/") + kID;
  using Paths = std::vector<std::string>;
  const struct {
    const char* behaviour;
    std::string url;
    std::optional<Paths> paths;
  } cases[] = {
      {"ParsesOneSection", book + "/?section=OEBPS%2Fa.xhtml", Paths{"OEBPS/a.xhtml"}},
      {"KeepsTheOrderAsked", book + "/?section=b.xhtml&section=a.xhtml&section=b.xhtml",
       Paths{"b.xhtml", "a.xhtml", "b.xhtml"}},
      {"DecodesTheValueOnceLeavingThePathEncoded", book + "/?section=a%2520b.xhtml",
       Paths{"a%20b.xhtml"}},
      {"IgnoresAFragment", book + "/?section=a.xhtml#x", Paths{"a.xhtml"}},
      {"RefusesAnEmptyQuery", book + "/?", std::nullopt},
      {"RefusesAnEmptyValue", book + "/?section=", std::nullopt},
      {"RefusesAnEmptyParameterBetween", book + "/?section=a&&section=b", std::nullopt},
      {"RefusesAnotherParameter", book + "/?section=a&other=b", std::nullopt},
      {"RefusesAValueThatDoesNotDecode", book + "/?section=a%zz", std::nullopt},
      {"RefusesAResourcePathBeforeTheQuery", book + "/OEBPS/?section=a", std::nullopt},
      {"RefusesNoQuery", book + "/", std::nullopt},
      {"RefusesAMalformedIdentifier", "tomekeeper://publication/not-a-uuid/?section=a",
       std::nullopt},
      {"RefusesAnotherHost", std::string("tomekeeper://other/") + kID + "/?section=a",
       std::nullopt},
      {"TheRuntimeIsNoBatch", "tomekeeper://publication/runtime/?section=a", std::nullopt},
  };
  for (const auto& [behaviour, url, paths] : cases) {
    SCOPED_TRACE(std::string(behaviour) + ": " + url);
    const auto route = parsePublicationSectionBatchRoute(url);
    ASSERT_EQ(route.has_value(), paths.has_value());
    if (!route) continue;
    EXPECT_EQ(route->publicationID, *Uuid::fromString(kID));
    EXPECT_EQ(route->resourcePaths, *paths);
  }
}

TEST(PercentDecodingTest, DecodesPairsOfHexadecimalDigits) {
  EXPECT_EQ(percentDecoded("a%20b%2fc%C3%A9"), "a b/cé");
  EXPECT_EQ(percentDecoded("plain"), "plain");
  EXPECT_EQ(percentDecoded(""), "");
}

TEST(PercentDecodingTest, RefusesTruncatedOrNonHexadecimalSequences) {
  EXPECT_FALSE(percentDecoded("%"));
  EXPECT_FALSE(percentDecoded("a%2"));
  EXPECT_FALSE(percentDecoded("%g1"));
  EXPECT_FALSE(percentDecoded("%1g"));
  EXPECT_FALSE(percentDecoded("%+1"));
}

TEST(PercentDecodingTest, RefusesNulAndInvalidUTF8) {
  EXPECT_FALSE(percentDecoded("a%00b"));
  EXPECT_FALSE(percentDecoded(std::string_view("a\0b", 3)));
  EXPECT_FALSE(percentDecoded("%C3"));
  EXPECT_FALSE(percentDecoded("%C0%AF"));
}

}  // namespace
}  // namespace tomekeeper
