#include "model/Bookmark.h"

#include <gtest/gtest.h>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

const char* const kFingerprint = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08";

Bookmark sampleBookmark() {
  return Bookmark{
      .id = *Uuid::fromString("2b1c5f8e-0d3a-4c6b-9e7f-1a2b3c4d5e6f"),
      .bookFingerprint = kFingerprint,
      .locator = Locator{.spineHref = "ch1.xhtml", .spineIndex = 1, .totalProgression = 0.5},
      .title = "Bookmark at 50%",
      .createdAt = Date(731412345.25),
  };
}

TEST(BookmarkTest, WritesItsFieldsWithAnUpperCaseIdAndANumericDate) {
  EXPECT_EQ(encoded(sampleBookmark()),
            std::string(R"({"bookFingerprint":")") + kFingerprint +
                R"(","createdAt":731412345.25,"id":"2B1C5F8E-0D3A-4C6B-9E7F-1A2B3C4D5E6F",)"
                R"("locator":{"spineHref":"ch1.xhtml","spineIndex":1,"totalProgression":0.5},)"
                R"("title":"Bookmark at 50%"})");
}

TEST(BookmarkTest, RoundTripsAndReadsALowerCaseId) {
  EXPECT_EQ(roundTrip(sampleBookmark()), sampleBookmark());
  nlohmann::json json = sampleBookmark();
  json["id"] = "2b1c5f8e-0d3a-4c6b-9e7f-1a2b3c4d5e6f";
  EXPECT_EQ(json.get<Bookmark>(), sampleBookmark());
}

TEST(BookmarkTest, RefusesAMissingFieldAnInvalidIdOrATextualDate) {
  std::vector<nlohmann::json> broken;
  for (const char* key : {"id", "bookFingerprint", "locator", "title", "createdAt"}) {
    broken.push_back(sampleBookmark());
    broken.back().erase(key);
  }
  broken.push_back(sampleBookmark());
  broken.back()["id"] = "2b1c5f8e";
  broken.push_back(sampleBookmark());
  broken.back()["createdAt"] = "731412345.25";
  for (const nlohmann::json& json : broken) {
    EXPECT_THROW(json.get<Bookmark>(), JSONDecodingError) << json.dump();
  }
}

TEST(BookmarkTest, HashFollowsEquality) {
  Bookmark other = sampleBookmark();
  EXPECT_EQ(std::hash<Bookmark>{}(other), std::hash<Bookmark>{}(sampleBookmark()));
  other.title = "Elsewhere";
  EXPECT_NE(other, sampleBookmark());
}

}  // namespace
}  // namespace tomekeeper
