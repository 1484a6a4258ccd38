// The sample book that the build zips from data/sample-book passes the same checks as any book.
#include <gtest/gtest.h>

#include <filesystem>

#include "async/RunUntilDone.h"
#include "intake/PublicationExtractionCache.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

TEST(SampleBookTest, BuiltSampleBookIsInspectedExtractedAndValidated) {
  const std::filesystem::path book = TOMEKEEPER_TEST_SAMPLE_BOOK;
  ASSERT_TRUE(std::filesystem::is_regular_file(book)) << book;
  TemporaryDirectory directory;
  const std::string fingerprint(64, 'a');
  PublicationExtractionCache cache(directory / "caches");
  const PreparedPublicationResources resources =
      async::runUntilDone(cache.prepare(book, fingerprint));
  EXPECT_EQ(resources.fingerprint, fingerprint);
  EXPECT_FALSE(resources.usesFontObfuscation());
  EXPECT_TRUE(std::filesystem::is_regular_file(resources.extractedRoot / "OEBPS" / "package.opf"));
  EXPECT_TRUE(
      std::filesystem::is_regular_file(resources.extractedRoot / "OEBPS" / "welcome.xhtml"));
  EXPECT_NE(resources.descriptor.packageURL.find("OEBPS/package.opf"), std::string::npos);
}

}  // namespace
}  // namespace tomekeeper::testing
