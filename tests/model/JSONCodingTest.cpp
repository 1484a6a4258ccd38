#include "model/JSONCoding.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

using nlohmann::json;

TEST(JSONCodingTest, StringsMustBeStrings) {
  EXPECT_EQ(decoded<std::string>(R"("text")"), "text");
  EXPECT_THROW(decoded<std::string>("3"), JSONDecodingError);
  EXPECT_THROW(decoded<std::string>("null"), JSONDecodingError);
  EXPECT_THROW(decoded<std::string>("[]"), JSONDecodingError);
}

TEST(JSONCodingTest, NumbersRefuseStringsAndBooleans) {
  EXPECT_THROW(decoded<double>(R"("1.5")"), JSONDecodingError);
  EXPECT_THROW(decoded<double>("true"), JSONDecodingError);
  EXPECT_THROW(decoded<std::int64_t>(R"("3")"), JSONDecodingError);
  EXPECT_THROW(decoded<std::int64_t>("false"), JSONDecodingError);
  EXPECT_THROW(decoded<bool>("1"), JSONDecodingError);
}

TEST(JSONCodingTest, IntegersAcceptWholeNumbersWrittenWithAFraction) {
  EXPECT_EQ(decoded<std::int64_t>("3"), 3);
  EXPECT_EQ(decoded<std::int64_t>("-7"), -7);
  EXPECT_EQ(decoded<std::int64_t>("3.0"), 3);
  EXPECT_EQ(decoded<std::int64_t>("1e2"), 100);
  EXPECT_THROW(decoded<std::int64_t>("3.5"), JSONDecodingError);
  EXPECT_THROW(decoded<std::int64_t>("-0.25"), JSONDecodingError);
}

TEST(JSONCodingTest, IntegersRefuseValuesOutsideTheirRange) {
  EXPECT_EQ(decoded<std::int64_t>("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(decoded<std::int64_t>("-9223372036854775808"),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_THROW(decoded<std::int64_t>("9223372036854775808"), JSONDecodingError);
  EXPECT_THROW(decoded<std::int64_t>("9223372036854775808.0"), JSONDecodingError);
  EXPECT_THROW(decoded<std::int64_t>("1e300"), JSONDecodingError);
  EXPECT_THROW(decoded<int>("2147483648"), JSONDecodingError);
  EXPECT_EQ(decoded<int>("-2147483648"), std::numeric_limits<int>::min());
  EXPECT_THROW(decoded<std::uint32_t>("-1"), JSONDecodingError);
}

TEST(JSONCodingTest, DoublesRoundTripBitForBit) {
  const std::vector<double> values{
      0.1 + 0.2,           1.0 / 3.0,          -0.0, 5e-324, std::numeric_limits<double>::max(),
      0.30000000000000004, 123456789.123456789};
  for (const double value : values) {
    const double read = roundTrip(value);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(read), std::bit_cast<std::uint64_t>(value))
        << json(value).dump();
  }
  EXPECT_NE(roundTrip(0.1 + 0.2), 0.3);
}

TEST(JSONCodingTest, ArraysDecodeEachElementStrictly) {
  EXPECT_EQ(decoded<std::vector<std::int64_t>>("[1,2,3]"), (std::vector<std::int64_t>{1, 2, 3}));
  EXPECT_THROW(decoded<std::vector<std::int64_t>>(R"([1,"2"])"), JSONDecodingError);
  EXPECT_THROW(decoded<std::vector<std::int64_t>>(R"({"0":1})"), JSONDecodingError);
}

TEST(JSONCodingTest, FieldsReportWhereTheyFailed) {
  const json object = json::parse(R"({"outer":{"list":[1,"x"]}})");
  try {
    const json& outer = object.at("outer");
    decodeRequiredField<std::vector<std::int64_t>>(outer, "list");
    FAIL() << "decoded a string as an integer";
  } catch (const JSONDecodingError& error) {
    EXPECT_EQ(error.codingPath(), (std::vector<std::string>{"list", "1"}));
    EXPECT_EQ(error.description(), std::string("list.1: ") + error.what());
  }
}

TEST(JSONCodingTest, MissingAndNullOptionalFieldsAreAbsent) {
  const json object = json::parse(R"({"present":"a","empty":null})");
  EXPECT_EQ(decodeOptionalField<std::string>(object, "present"), "a");
  EXPECT_EQ(decodeOptionalField<std::string>(object, "empty"), std::nullopt);
  EXPECT_EQ(decodeOptionalField<std::string>(object, "missing"), std::nullopt);
  EXPECT_THROW(decodeRequiredField<std::string>(object, "empty"), JSONDecodingError);
  EXPECT_THROW(decodeRequiredField<std::string>(object, "missing"), JSONDecodingError);
}

TEST(JSONCodingTest, AbsentOptionalsAreLeftOutRatherThanWrittenAsNull) {
  json object = json::object();
  encodeOptionalField(object, "absent", std::optional<std::string>());
  encodeOptionalField(object, "present", std::optional<double>(1.5));
  EXPECT_EQ(object.dump(), R"({"present":1.5})");
}

TEST(JSONCodingTest, EscapedSolidusReadsAsASlash) {
  EXPECT_EQ(decoded<std::string>(R"("OEBPS\/text\/chapter.xhtml")"), "OEBPS/text/chapter.xhtml");
}

}  // namespace
}  // namespace tomekeeper
