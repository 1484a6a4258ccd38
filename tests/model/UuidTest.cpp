#include "model/Uuid.h"

#include <gtest/gtest.h>

#include <unordered_set>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

TEST(UuidTest, ReadsAnyCaseAndWritesUpperCase) {
  const auto lower = Uuid::fromString("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
  const auto mixed = Uuid::fromString("E621e1F8-c36C-495a-93Fc-0c247A3E6E5F");
  ASSERT_TRUE(lower);
  ASSERT_TRUE(mixed);
  EXPECT_EQ(*lower, *mixed);
  EXPECT_EQ(lower->string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(lower->bytes()[0], 0xE6);
  EXPECT_EQ(lower->bytes()[15], 0x5F);
}

TEST(UuidTest, RefusesTextOfAnotherForm) {
  for (const char* text :
       {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}",
        " E621E1F8-C36C-495A-93FC-0C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5G",
        "E621E1F8-C36C-495A-93FC0-C247A3E6E5F", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F0"}) {
    EXPECT_FALSE(Uuid::fromString(text)) << text;
  }
}

TEST(UuidTest, RandomIdentifiersAreVersionFourAndDistinct) {
  std::unordered_set<Uuid> seen;
  for (int count = 0; count < 100; ++count) {
    const Uuid uuid = Uuid::random();
    EXPECT_EQ(uuid.bytes()[6] >> 4, 4);
    EXPECT_EQ(uuid.bytes()[8] >> 6, 2);
    EXPECT_TRUE(seen.insert(uuid).second);
  }
}

TEST(UuidTest, TravelsInJSONAsItsCanonicalText) {
  const Uuid uuid = *Uuid::fromString("00112233-4455-6677-8899-aabbccddeeff");
  EXPECT_EQ(encoded(uuid), R"("00112233-4455-6677-8899-AABBCCDDEEFF")");
  EXPECT_EQ(decoded<Uuid>(R"("00112233-4455-6677-8899-aabbccddeeff")"), uuid);
  EXPECT_EQ(nlohmann::json::parse(R"("00112233-4455-6677-8899-AABBCCDDEEFF")").get<Uuid>(), uuid);
}

TEST(UuidTest, InvalidJSONFailsToDecode) {
  EXPECT_THROW(decoded<Uuid>(R"("not a uuid")"), JSONDecodingError);
  EXPECT_THROW(decoded<Uuid>("42"), JSONDecodingError);
  EXPECT_THROW(nlohmann::json(nullptr).get<Uuid>(), JSONDecodingError);
}

TEST(UuidTest, DefaultIsTheNilIdentifier) {
  EXPECT_EQ(Uuid().string(), "00000000-0000-0000-0000-000000000000");
}

}  // namespace
}  // namespace tomekeeper
