#include "runtime/PublicationSchemeRoute.h"

#include <gtest/gtest.h>

#include "runtime/PercentDecoding.h"

namespace tomekeeper {
namespace {

constexpr const char* kID = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";

std::string publicationURL(std::string_view rest) {
  return std::string("tomekeeper://publication/") + kID + std::string(rest);
}

TEST(PublicationSchemeRouteTest, ParsesAPublicationRoute) {
  const auto route = parsePublicationSchemeRoute(publicationURL("/OEBPS/chapter1.xhtml"));
  ASSERT_TRUE(route);
  EXPECT_EQ(route->publicationID, *Uuid::fromString(kID));
  EXPECT_EQ(route->resourcePath, "OEBPS/chapter1.xhtml");
}

TEST(PublicationSchemeRouteTest, AcceptsTheIdentifierInLowerCase) {
  const auto route = parsePublicationSchemeRoute(
      "tomekeeper://publication/e621e1f8-c36c-495a-93fc-0c247a3e6e5f/a.html");
  ASSERT_TRUE(route);
  EXPECT_EQ(route->publicationID, *Uuid::fromString(kID));
}

TEST(PublicationSchemeRouteTest, IgnoresQueryAndFragment) {
  EXPECT_EQ(parsePublicationSchemeRoute(publicationURL("/a.html?x=1#part"))->resourcePath,
            "a.html");
  EXPECT_EQ(parsePublicationSchemeRoute(publicationURL("/a.html#x/../y"))->resourcePath, "a.html");
  EXPECT_EQ(parseRuntimeResourcePath("tomekeeper://publication/runtime/index.html?v=2#top"),
            "index.html");
}

TEST(PublicationSchemeRouteTest, LeavesThePathEncodedForTheProviderToDecodeOnce) {
  EXPECT_EQ(parsePublicationSchemeRoute(publicationURL("/OEBPS/a%20b.xhtml"))->resourcePath,
            "OEBPS/a%20b.xhtml");
  EXPECT_EQ(parsePublicationSchemeRoute(publicationURL("/a%2520b.xhtml"))->resourcePath,
            "a%2520b.xhtml");
  EXPECT_EQ(parsePublicationSchemeRoute(publicationURL("/a%2F..%2Fb"))->resourcePath,
            "a%2F..%2Fb");
}

TEST(PublicationSchemeRouteTest, RefusesAPathThatDoesNotDecode) {
  EXPECT_FALSE(parsePublicationSchemeRoute(publicationURL("/a%zz.html")));
  EXPECT_FALSE(parseRuntimeResourcePath("tomekeeper://publication/runtime/%G0"));
}

TEST(PublicationSchemeRouteTest, KeepsInnerEmptyPiecesForTheProvider) {
  EXPECT_EQ(parsePublicationSchemeRoute(publicationURL("/a//b.html"))->resourcePath, "a//b.html");
  EXPECT_EQ(parsePublicationSchemeRoute(publicationURL("/a/"))->resourcePath, "a/");
  EXPECT_EQ(parsePublicationSchemeRoute(publicationURL("//a.html"))->resourcePath, "/a.html");
}

TEST(PublicationSchemeRouteTest, ARouteWithoutResourcePathFails) {
  EXPECT_FALSE(parsePublicationSchemeRoute(publicationURL("")));
  EXPECT_FALSE(parsePublicationSchemeRoute(publicationURL("/")));
  EXPECT_FALSE(parsePublicationSchemeRoute("tomekeeper://publication/"));
  EXPECT_FALSE(parsePublicationSchemeRoute("tomekeeper://publication"));
}

TEST(PublicationSchemeRouteTest, FailsByHostOrScheme) {
  EXPECT_FALSE(parsePublicationSchemeRoute(std::string("tomekeeper://other/") + kID + "/a.html"));
  EXPECT_FALSE(
      parsePublicationSchemeRoute(std::string("tomekeeper://Publication/") + kID + "/a.html"));
  EXPECT_FALSE(
      parsePublicationSchemeRoute(std::string("tomekeeper://publication.evil/") + kID + "/a.html"));
  EXPECT_FALSE(
      parsePublicationSchemeRoute(std::string("tomekeeper://publication:80/") + kID + "/a.html"));
  EXPECT_FALSE(
      parsePublicationSchemeRoute(std::string("tomekeeper://user@publication/") + kID + "/a.html"));
  EXPECT_FALSE(parsePublicationSchemeRoute(std::string("https://publication/") + kID + "/a.html"));
  EXPECT_FALSE(
      parsePublicationSchemeRoute(std::string("TOMEKEEPER://publication/") + kID + "/a.html"));
  EXPECT_FALSE(
      parsePublicationSchemeRoute(std::string("tomekeeper:publication/") + kID + "/a.html"));
}

TEST(PublicationSchemeRouteTest, FailsByIdentifier) {
  EXPECT_FALSE(parsePublicationSchemeRoute("tomekeeper://publication/not-a-uuid/a.html"));
  EXPECT_FALSE(parsePublicationSchemeRoute("tomekeeper://publication/runtime/index.html"));
  EXPECT_FALSE(parsePublicationSchemeRoute(
      "tomekeeper://publication/{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}/a.html"));
}

TEST(PublicationSchemeRouteTest, ParsesTheRuntimeRoute) {
  EXPECT_EQ(parseRuntimeResourcePath(kReaderRuntimeEntryURL), "index.html");
  EXPECT_EQ(parseRuntimeResourcePath("tomekeeper://publication/runtime/assets/main.js"),
            "assets/main.js");
}

TEST(PublicationSchemeRouteTest, AnEmptyRuntimePathIsNoRouteAtAll) {
  EXPECT_FALSE(parseRuntimeResourcePath("tomekeeper://publication/runtime/"));
  EXPECT_FALSE(parsePublicationSchemeRoute("tomekeeper://publication/runtime/"));
  EXPECT_FALSE(parseRuntimeResourcePath("tomekeeper://publication/runtime"));
  EXPECT_FALSE(parseRuntimeResourcePath("tomekeeper://publication/runtimes/index.html"));
  EXPECT_FALSE(parseRuntimeResourcePath("tomekeeper://other/runtime/index.html"));
  EXPECT_FALSE(parseRuntimeResourcePath(publicationURL("/runtime/index.html")));
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
