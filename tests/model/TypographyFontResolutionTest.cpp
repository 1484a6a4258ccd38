#include "model/TypographyFontResolution.h"

#include <gtest/gtest.h>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

const SystemFontRecord kRecord{.stableName = "DejaVuSerif-Bold",
                               .displayName = "DejaVu Serif Bold",
                               .cssFamilyName = "DejaVu Serif"};

TEST(TypographyFontResolutionTest, EachCaseCarriesOnlyItsPayload) {
  const auto available = TypographyFontResolution::available(kRecord);
  EXPECT_EQ(available.kind(), TypographyFontResolution::Kind::available);
  EXPECT_EQ(available.record(), kRecord);
  EXPECT_EQ(available.requestedStableName(), std::nullopt);
  const auto fallback = TypographyFontResolution::fallback("Missing");
  EXPECT_EQ(fallback.kind(), TypographyFontResolution::Kind::fallback);
  EXPECT_EQ(fallback.requestedStableName(), "Missing");
  EXPECT_EQ(fallback.record(), std::nullopt);
  EXPECT_EQ(TypographyFontResolution().kind(), TypographyFontResolution::Kind::bookDefault);
}

TEST(TypographyFontResolutionTest, CodedAsOneKeyObjects) {
  EXPECT_EQ(encoded(TypographyFontResolution::fallback("Georgia")),
            R"({"fallback":{"requestedStableName":"Georgia"}})");
  EXPECT_EQ(encoded(TypographyFontResolution::bookDefault()), R"({"bookDefault":{}})");
  EXPECT_EQ(encoded(TypographyFontResolution::available(kRecord)),
            R"({"available":{"_0":{"cssFamilyName":"DejaVu Serif",)"
            R"("displayName":"DejaVu Serif Bold","stableName":"DejaVuSerif-Bold"}}})");
  for (const auto& resolution :
       {TypographyFontResolution::available(kRecord), TypographyFontResolution::fallback("x"),
        TypographyFontResolution::bookDefault()}) {
    EXPECT_EQ(roundTrip(resolution), resolution);
  }
  EXPECT_THROW(decoded<TypographyFontResolution>(R"({"fallback":{}})"), JSONDecodingError);
  EXPECT_THROW(decoded<TypographyFontResolution>(R"({"missing":{}})"), JSONDecodingError);
}

TEST(TypographyFontResolutionTest, SystemFontRecordRequiresAllThreeNames) {
  EXPECT_EQ(roundTrip(kRecord), kRecord);
  for (const char* key : {"stableName", "displayName", "cssFamilyName"}) {
    nlohmann::json json = kRecord;
    json.erase(key);
    EXPECT_THROW(json.get<SystemFontRecord>(), JSONDecodingError) << key;
  }
}

}  // namespace
}  // namespace tomekeeper
