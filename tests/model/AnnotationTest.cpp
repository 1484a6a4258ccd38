#include "model/Annotation.h"

#include <gtest/gtest.h>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

Annotation sampleAnnotation() {
  return Annotation{
      .id = *Uuid::fromString("8A0C2B7E-5F31-4D2A-B8C9-0E1F2A3B4C5D"),
      .bookFingerprint = "ab",
      .locator = Locator{.cfi = "epubcfi(/6/2!/4/1:3)", .spineHref = "c.xhtml", .spineIndex = 2},
      .selectedText = "a highlighted phrase",
      .color = AnnotationColor::yellow,
      .note = std::nullopt,
      .createdAt = Date(100.5),
      .modifiedAt = Date(100.5),
  };
}

TEST(AnnotationTest, WritesTheColourAsItsStringAndLeavesAnAbsentNoteOut) {
  EXPECT_EQ(encoded(sampleAnnotation()),
            R"({"bookFingerprint":"ab","color":"yellow","createdAt":100.5,)"
            R"("id":"8A0C2B7E-5F31-4D2A-B8C9-0E1F2A3B4C5D",)"
            R"j("locator":{"cfi":"epubcfi(/6/2!/4/1:3)","spineHref":"c.xhtml","spineIndex":2},)j"
            R"("modifiedAt":100.5,"selectedText":"a highlighted phrase"})");
}

TEST(AnnotationTest, RoundTripsWithAndWithoutANote) {
  EXPECT_EQ(roundTrip(sampleAnnotation()), sampleAnnotation());
  const Annotation noted = sampleAnnotation().withNote("A thought.\nSecond line.", Date(200));
  EXPECT_EQ(roundTrip(noted), noted);
}

TEST(AnnotationTest, WithNoteChangesOnlyTheNoteAndModificationTime) {
  const Annotation original = sampleAnnotation();
  const Annotation noted = original.withNote("note", Date(300));
  EXPECT_EQ(noted.note, "note");
  EXPECT_EQ(noted.modifiedAt, Date(300));
  EXPECT_EQ(noted.createdAt, original.createdAt);
  EXPECT_EQ(noted.withNote(std::nullopt, original.modifiedAt), original);
}

TEST(AnnotationTest, NullNoteReadsAsAbsent) {
  nlohmann::json json = sampleAnnotation();
  json["note"] = nullptr;
  EXPECT_EQ(json.get<Annotation>(), sampleAnnotation());
}

// Yellow is the one colour: any other name, another case of it or a number breaks the decode.
TEST(AnnotationTest, RefusesAMissingFieldOrAnUnknownColour) {
  std::vector<nlohmann::json> broken;
  for (const char* key :
       {"id", "bookFingerprint", "locator", "selectedText", "color", "createdAt", "modifiedAt"}) {
    broken.push_back(sampleAnnotation());
    broken.back().erase(key);
  }
  for (const nlohmann::json& colour :
       {nlohmann::json("green"), nlohmann::json("Yellow"), nlohmann::json(0)}) {
    broken.push_back(sampleAnnotation());
    broken.back()["color"] = colour;
  }
  for (const nlohmann::json& json : broken) {
    EXPECT_THROW(json.get<Annotation>(), JSONDecodingError) << json.dump();
  }
}

}  // namespace
}  // namespace tomekeeper
