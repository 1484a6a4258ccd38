#include "app/SettingsWindow.h"

#include <gtest/gtest.h>

#include <fstream>

#include "ShellDisplaySupport.h"
#include "async/RunUntilDone.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

std::string formattedSize(std::int64_t bytes) {
  char* text = g_format_size(static_cast<guint64>(bytes));
  std::string formatted = text;
  g_free(text);
  return formatted;
}

// The settings window over a real coordinator whose windows and sessions are fakes, in an
// application of its own.
class SettingsWindowDisplayTest : public ::testing::Test {
 protected:
  // One application for the suite: GTK starts only one per process. Without an id it is
  // registered in this process only, not on the bus.
  static void SetUpTestSuite() {
    adw_init();
    application = gtk_application_new(nullptr, G_APPLICATION_DEFAULT_FLAGS);
    g_application_register(G_APPLICATION(application), nullptr, nullptr);
  }
  static void TearDownTestSuite() { g_clear_object(&application); }

  void SetUp() override {
    ASSERT_TRUE(g_application_get_is_registered(G_APPLICATION(application)));
    std::filesystem::create_directories(directory / "runtime");
    DocumentOpenCoordinator::Environment environment;
    environment.supportDirectory = directory / "support";
    environment.cachesRoot = directory / "caches";
    environment.runtimeRoot = directory / "runtime";
    coordinator = DocumentOpenCoordinator::create(std::move(environment), platform, windows,
                                                  std::make_shared<FakeSessionFactory>());
    // Something to measure and to clear.
    std::filesystem::create_directories(directory / "caches" / "book");
    std::ofstream(directory / "caches" / "book" / "page.xhtml") << std::string(200000, 'x');
  }

  void TearDown() override {
    // One at a time: a window takes the dialogs over it along.
    for (auto shown = shownWindowsOfType(GTK_TYPE_WINDOW); !shown.empty();
         shown = shownWindowsOfType(GTK_TYPE_WINDOW)) {
      gtk_window_destroy(shown.front());
    }
    iterateUntil([] { return !g_main_context_pending(nullptr); });
  }

  // Presents the settings window and answers it once it is shown.
  GtkWindow* presentSettings() {
    presentSettingsWindow(application, coordinator);
    GtkWindow* window = findSettingsWindow(application);
    EXPECT_NE(window, nullptr);
    return window;
  }

  void openBook() {
    const std::filesystem::path book = directory / "book.epub";
    EpubBuilder().addFile("OEBPS/distinction.txt", "settings").writeTo(book);
    async::runUntilDone(coordinator->open(book, RecentDocumentUse::remember, std::nullopt));
  }

  std::int64_t measuredSize() { return async::runUntilDone(coordinator->readingCacheSize()); }

  AdwMessageDialog* waitForAlert(const std::string& heading) {
    AdwMessageDialog* found = nullptr;
    iterateUntil([&] {
      for (GtkWindow* window : shownWindowsOfType(ADW_TYPE_MESSAGE_DIALOG)) {
        if (heading == adw_message_dialog_get_heading(ADW_MESSAGE_DIALOG(window))) {
          found = ADW_MESSAGE_DIALOG(window);
        }
      }
      return found != nullptr;
    });
    return found;
  }

  static inline GtkApplication* application = nullptr;
  TemporaryDirectory directory;
  std::shared_ptr<FakePlatform> platform = std::make_shared<FakePlatform>();
  std::shared_ptr<FakeWindowFactory> windows = std::make_shared<FakeWindowFactory>();
  std::shared_ptr<DocumentOpenCoordinator> coordinator;
};

TEST_F(SettingsWindowDisplayTest, ShowsCalculatingUntilTheCacheIsMeasured) {
  GtkWindow* settings = presentSettings();
  // The measure runs on the background pool; nothing has come back before the loop turns.
  EXPECT_TRUE(showsText(GTK_WIDGET(settings), "Calculating\u2026"));
  const std::string size = formattedSize(measuredSize());
  EXPECT_TRUE(iterateUntil([&] { return showsText(GTK_WIDGET(settings), size); })) << size;
}

TEST_F(SettingsWindowDisplayTest, IsOneWindowTransientForTheApplicationWindowPresentedAgain) {
  GtkWidget* reader = adw_application_window_new(application);
  gtk_window_present(GTK_WINDOW(reader));
  GtkWindow* first = presentSettings();
  EXPECT_EQ(gtk_window_get_transient_for(first), GTK_WINDOW(reader));

  GtkWidget* other = adw_application_window_new(application);
  gtk_window_present(GTK_WINDOW(other));
  GtkWindow* again = presentSettings();
  EXPECT_EQ(again, first);
  EXPECT_EQ(shownWindowsOfType(ADW_TYPE_PREFERENCES_WINDOW).size(), 1U);
  EXPECT_EQ(gtk_window_get_transient_for(again), GTK_WINDOW(other));
}

TEST_F(SettingsWindowDisplayTest, DisablesClearingWithItsNoticeWhileABookIsOpen) {
  openBook();
  GtkWidget* settings = GTK_WIDGET(presentSettings());
  GtkWidget* clear = findButton(settings, "Clear Reading Cache\u2026");
  ASSERT_NE(clear, nullptr);
  const char* notice = "Close all book windows before clearing the cache.";
  EXPECT_FALSE(gtk_widget_get_sensitive(clear));
  EXPECT_TRUE(showsText(settings, notice));

  windows->readerWindows.front()->close();
  EXPECT_TRUE(gtk_widget_get_sensitive(clear));
  EXPECT_FALSE(showsText(settings, notice));
}

TEST_F(SettingsWindowDisplayTest, ClearsOnlyAfterTheConfirmationAndMeasuresAgain) {
  GtkWidget* settings = GTK_WIDGET(presentSettings());
  const std::string before = formattedSize(measuredSize());
  ASSERT_TRUE(iterateUntil([&] { return showsText(settings, before); }));

  gtk_widget_activate(findButton(settings, "Clear Reading Cache\u2026"));
  AdwMessageDialog* confirmation = waitForAlert("Clear Reading Cache?");
  ASSERT_NE(confirmation, nullptr);
  EXPECT_STREQ(adw_message_dialog_get_response_label(confirmation, "0"), "Cancel");
  EXPECT_STREQ(adw_message_dialog_get_response_label(confirmation, "1"), "Clear Cache");
  EXPECT_TRUE(std::filesystem::exists(directory / "caches" / "book"));

  adw_message_dialog_response(confirmation, "1");
  EXPECT_TRUE(iterateUntil([&] { return showsText(settings, formattedSize(0)); }));
  EXPECT_FALSE(std::filesystem::exists(directory / "caches" / "book"));
}

TEST_F(SettingsWindowDisplayTest, TellsWhyTheCacheCouldNotBeCleared) {
  GtkWidget* settings = GTK_WIDGET(presentSettings());
  gtk_widget_activate(findButton(settings, "Clear Reading Cache\u2026"));
  AdwMessageDialog* confirmation = waitForAlert("Clear Reading Cache?");
  ASSERT_NE(confirmation, nullptr);
  // A book opened while the question was up: the coordinator refuses the clear.
  openBook();
  adw_message_dialog_response(confirmation, "1");

  AdwMessageDialog* failure = waitForAlert("Couldn\u2019t Clear Reading Cache");
  ASSERT_NE(failure, nullptr);
  EXPECT_STREQ(adw_message_dialog_get_body(failure),
               "Close all book windows before clearing the reading cache.");
  EXPECT_TRUE(std::filesystem::exists(directory / "caches" / "book"));
  adw_message_dialog_response(failure, "0");
}

}  // namespace
}  // namespace tomekeeper::testing
