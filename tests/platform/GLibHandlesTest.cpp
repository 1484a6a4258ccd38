#include <gtest/gtest.h>

#include <string>

#include "platform/GLibError.h"
#include "platform/GLibString.h"
#include "platform/GVariantHandle.h"

namespace tomekeeper {
namespace {

// Under the sanitizers (the debug preset) a holder that released too early or twice fails here
// as a use after free or a double free; a leak fails at exit.
TEST(GLibHandlesTest, AdoptSinksAFloatingVariantAndOwnsItsOnlyReference) {
  GVariantHandle held = GVariantHandle::adopt(g_variant_new_string("kept"));
  ASSERT_TRUE(held);
  EXPECT_FALSE(g_variant_is_floating(held.get()));
  EXPECT_STREQ(g_variant_get_string(held.get(), nullptr), "kept");
}

TEST(GLibHandlesTest, RetainKeepsAVariantAfterItsOwnerLetsGo) {
  GVariant* owned = g_variant_ref_sink(g_variant_new_int32(7));
  GVariantHandle held = GVariantHandle::retain(owned);
  g_variant_unref(owned);
  EXPECT_EQ(g_variant_get_int32(held.get()), 7);
}

TEST(GLibHandlesTest, AMovedHolderLeavesNothingBehind) {
  GVariantHandle first = GVariantHandle::adopt(g_variant_new_boolean(TRUE));
  GVariantHandle second = std::move(first);
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): the moved-from state is the contract
  EXPECT_TRUE(g_variant_get_boolean(second.get()));
  second = GVariantHandle::adopt(g_variant_new_boolean(FALSE));
  EXPECT_FALSE(g_variant_get_boolean(second.get()));

  GLibString text(g_strdup("chapter"));
  GLibString moved = std::move(text);
  EXPECT_FALSE(text);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(moved.string(), "chapter");
}

TEST(GLibHandlesTest, ANullStringReadsAsEmpty) {
  const GLibString none(nullptr);
  EXPECT_FALSE(none);
  EXPECT_EQ(none.string(), "");
}

TEST(GLibHandlesTest, AnErrorHolderKeepsTheCallsErrorAndFreesIt) {
  GLibError error;
  gchar* contents = nullptr;
  EXPECT_FALSE(g_file_get_contents("/nonexistent/tomekeeper", &contents, nullptr, error.out()));
  ASSERT_TRUE(error);
  EXPECT_NE(std::string(error.message()), "");
  // A second call through the same holder frees the first error before taking the next.
  EXPECT_FALSE(g_file_get_contents("/nonexistent/again", &contents, nullptr, error.out()));
  EXPECT_NE(std::string(error.message()).find("again"), std::string::npos);
}

}  // namespace
}  // namespace tomekeeper
