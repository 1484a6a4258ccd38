#include "model/PublicationDescriptor.h"

#include <gtest/gtest.h>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

PublicationDescriptor sampleDescriptor() {
  return PublicationDescriptor{
      .publicationID = *Uuid::fromString("0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9"),
      .packageURL = "tomekeeper://publication/0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9/OEBPS/pkg.opf",
      .resourceBaseURL = "tomekeeper://publication/0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9/OEBPS/",
      .accessMode = PublicationDescriptor::AccessMode::applicationResourceScheme,
  };
}

TEST(PublicationDescriptorTest, WritesTheAccessModeAsItsString) {
  const nlohmann::json json = sampleDescriptor();
  EXPECT_EQ(json.at("accessMode"), "applicationResourceScheme");
  EXPECT_EQ(json.at("publicationID"), "0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9");
  EXPECT_EQ(json.size(), 4u);
}

TEST(PublicationDescriptorTest, RoundTripsAndReadsEscapedSlashes) {
  EXPECT_EQ(roundTrip(sampleDescriptor()), sampleDescriptor());
  const auto read = decoded<PublicationDescriptor>(
      R"({"publicationID":"0f1e2d3c-4b5a-4978-8695-a4b3c2d1e0f9",)"
      R"("packageURL":"tomekeeper:\/\/publication\/0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9\/OEBPS\/pkg.opf",)"
      R"("resourceBaseURL":"tomekeeper:\/\/publication\/0F1E2D3C-4B5A-4978-8695-A4B3C2D1E0F9\/OEBPS\/",)"
      R"("accessMode":"applicationResourceScheme"})");
  EXPECT_EQ(read, sampleDescriptor());
}

TEST(PublicationDescriptorTest, RefusesAnUnknownAccessMode) {
  nlohmann::json json = sampleDescriptor();
  json["accessMode"] = "fileSystem";
  EXPECT_THROW(json.get<PublicationDescriptor>(), JSONDecodingError);
}

}  // namespace
}  // namespace tomekeeper
