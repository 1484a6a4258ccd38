#include <gtest/gtest.h>

#include <string>

#include "platform/GLibError.h"
#include "platform/GLibString.h"
#include "platform/GObjectHandle.h"
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
  // Assigning over a held string frees it; assigning a holder to itself keeps its string.
  moved = GLibString(g_strdup("  appendix  "));
  GLibString& same = moved;
  moved = std::move(same);
  g_strstrip(moved.data());
  EXPECT_STREQ(moved.get(), "appendix");

  auto object = GObjectHandle<GObject>::adopt(G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr)));
  auto other = std::move(object);
  EXPECT_FALSE(object);  // NOLINT(bugprone-use-after-move)
  ASSERT_TRUE(other);
  other = GObjectHandle<GObject>::adopt(G_OBJECT(g_object_new(G_TYPE_OBJECT, nullptr)));
  EXPECT_EQ(other.get()->ref_count, 1u);
}

TEST(GLibHandlesTest, ANullStringReadsAsEmpty) {
  const GLibString none(nullptr);
  EXPECT_FALSE(none);
  EXPECT_EQ(none.string(), "");
  EXPECT_FALSE(GLibError());
  EXPECT_STREQ(GLibError().message(), "");
}

// A floating object is sunk into the holder's one reference; a weak reference reads empty once
// the last holder lets go.
TEST(GLibHandlesTest, AnObjectHolderOwnsOneReferenceAndAWeakOneSeesItGo) {
  GObjectHandle<GObject> held =
      GObjectHandle<GObject>::adopt(G_OBJECT(g_object_new(G_TYPE_INITIALLY_UNOWNED, nullptr)));
  ASSERT_TRUE(held);
  EXPECT_FALSE(g_object_is_floating(held.get()));
  EXPECT_EQ(held.get()->ref_count, 1u);
  GObjectHandle<GObject> shared = GObjectHandle<GObject>::retain(held.get());
  EXPECT_EQ(held.get()->ref_count, 2u);
  const GObjectWeakReference<GObject> weak(held.get());
  held.reset();
  EXPECT_FALSE(held);
  EXPECT_EQ(weak.lock().get(), shared.get());
  shared.reset();
  EXPECT_FALSE(weak.lock());
  EXPECT_FALSE(GObjectHandle<GObject>::retain(nullptr));
  EXPECT_FALSE(GObjectHandle<GObject>::adopt(nullptr));
  EXPECT_FALSE(GVariantHandle::retain(nullptr));
  EXPECT_FALSE(GVariantHandle::adopt(nullptr));
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
