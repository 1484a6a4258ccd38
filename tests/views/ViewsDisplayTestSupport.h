#pragma once

#include <adwaita.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "../session/SessionTestSupport.h"
#include "platform/GObjectHandle.h"
#include "session/ReaderSession.h"

namespace tomekeeper::testing {

// Iterates the main context until `condition` holds, for at most `bound`; answers whether it
// held. The bound is only a guard against a hang, never a measure.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::steady_clock::duration bound = std::chrono::seconds(20));

// Every text shown by a label (or an editable) at or below `widget`, depth first, visible or not
// as `visibility` says.
enum class Visibility { shownOnly, any };
std::vector<std::string> textsBelow(GtkWidget* widget,
                                    Visibility visibility = Visibility::shownOnly);
bool showsText(GtkWidget* widget, const std::string& text);
// The first widget at or below `widget` whose accessible label is `label`... found by type and
// a predicate.
GtkWidget* findWidget(GtkWidget* widget, const std::function<bool(GtkWidget*)>& predicate);
// Whether `widget` and all its ancestors are visible.
bool isShown(GtkWidget* widget);

// A session over the scripted runtime and in-memory stores, opened for one book.
class ViewsDisplayTest : public ::testing::Test {
 protected:
  static constexpr const char* kFingerprint =
      "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";

  void SetUp() override;
  void TearDown() override;

  // Makes the session and runs its open sequence to `ready`.
  void openSession();
  // Shows `content` in a window of its own, and waits until it is mapped.
  void showInWindow(GtkWidget* content);
  Annotation storedAnnotation(std::string text, std::optional<std::string> note = std::nullopt,
                              std::int64_t spineIndex = 1);
  Bookmark storedBookmark(std::string title, std::int64_t spineIndex = 1);

  std::shared_ptr<FakeReaderHost> host = std::make_shared<FakeReaderHost>();
  std::shared_ptr<MemoryPositionRepository> positions =
      std::make_shared<MemoryPositionRepository>();
  std::shared_ptr<MemoryBookmarkRepository> bookmarks =
      std::make_shared<MemoryBookmarkRepository>();
  std::shared_ptr<MemoryAnnotationRepository> annotations =
      std::make_shared<MemoryAnnotationRepository>();
  std::shared_ptr<MemoryTypographyRepository> typography =
      std::make_shared<MemoryTypographyRepository>();
  std::shared_ptr<FakeFontCatalog> fonts = std::make_shared<FakeFontCatalog>();
  std::shared_ptr<ReaderSession> session;
  GtkWindow* window = nullptr;
};

}  // namespace tomekeeper::testing
