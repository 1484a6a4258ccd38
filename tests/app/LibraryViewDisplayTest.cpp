// The library view in a window of this process, over books written as the application writes
// them: one whose file is gone, and the three of a search.
#include "views/LibraryView.h"

#include <gtest/gtest.h>

#include <memory>

#include "ShellDisplaySupport.h"
#include "library/LibraryRecord.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

namespace fs = std::filesystem;

struct StoredBook {
  char digit;
  std::string title;
  std::string author;
  double lastOpened;  // seconds after now, so that it is later than the position saved
  bool fileExists;
};

class LibraryViewDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { adw_init(); }

  void SetUp() override {
    for (const StoredBook& book :
         std::vector<StoredBook>{{'1', "Germinal", "Émile Zola", 300.0, true},
                                 {'2', "Les Misérables", "Victor Hugo", 200.0, true},
                                 {'3', "Jane Eyre", "Charlotte Brontë", 100.0, false}}) {
      store(book);
    }
    LibraryCommands commands;
    commands.open = [this](const LibraryBook& book) { opened.push_back(book.fingerprint); };
    commands.locate = [this](const std::string& fingerprint) { located.push_back(fingerprint); };
    view = std::make_unique<LibraryView>(locations(), codec, std::move(commands));
    view->loaded.connect([this](std::size_t count) { loadedCount = count; });
    window = GTK_WINDOW(gtk_window_new());
    gtk_window_set_default_size(window, 900, 700);
    gtk_window_set_child(window, view->widget());
    gtk_window_present(window);
    ASSERT_TRUE(iterateUntil([&] {
      return loadedCount == 3 && showsText(view->widget(), "Germinal");
    })) << loadedCount;
  }

  void TearDown() override {
    gtk_window_destroy(window);
    view.reset();
  }

  LibraryLocations locations() const {
    return {directory / "Publications", directory / "Publications"};
  }

  void store(const StoredBook& book) {
    const std::string fingerprint(64, book.digit);
    const fs::path bookDirectory = locations().recordsRoot / fingerprint;
    const fs::path file = directory / (fingerprint.substr(0, 8) + ".epub");
    writeFile(file, "an epub");
    writeFile(bookDirectory / "source-bookmark.data", codec->makeBookmarkData(file));
    if (!book.fileExists) fs::remove(file);
    writeLibraryRecord(bookDirectory, LibraryRecord{book.title,
                                                    {book.author},
                                                    "en",
                                                    Date(Date::now().secondsSinceReferenceDate() +
                                                         book.lastOpened),
                                                    "source-bookmark.data",
                                                    file.filename().string(),
                                                    std::nullopt});
    JSONReadingPositionRepository::Store positions;
    positions.locators[fingerprint] =
        Locator{std::nullopt, "c.xhtml", 0, std::nullopt, 0.42, std::nullopt};
    writeFile(bookDirectory / "reading-position.json",
              JSONReadingPositionRepository::encodeStore(positions));
  }

  std::vector<std::string> shownTitles() const {
    std::vector<std::string> titles;
    for (const LibraryBook& book : view->model().visibleBooks()) titles.push_back(book.title);
    return titles;
  }

  TemporaryDirectory directory;
  std::shared_ptr<SecurityScopedBookmarkCoding> codec =
      std::make_shared<SystemSecurityScopedBookmarkCodec>();
  std::unique_ptr<LibraryView> view;
  GtkWindow* window = nullptr;
  std::size_t loadedCount = 0;
  std::vector<std::string> opened;
  std::vector<std::string> located;
};

TEST_F(LibraryViewDisplayTest, ShowsEachBookInTheGridAndTheList) {
  for (const char* layout : {"list", "grid"}) {
    SCOPED_TRACE(layout);
    gtk_widget_activate_action(view->widget(), "library.layout", "s", layout);
    GtkWidget* shown = std::string_view(layout) == "grid" ? view->gridView() : view->listView();
    EXPECT_TRUE(iterateUntil([&] {
      return gtk_widget_get_mapped(shown) && showsText(shown, "Les Misérables") &&
             showsText(shown, "Victor Hugo") && showsText(shown, "42%") &&
             showsText(shown, "Unavailable");
    }));
  }
  EXPECT_EQ(shownTitles(), (std::vector<std::string>{"Germinal", "Les Misérables", "Jane Eyre"}));
  gtk_widget_activate_action(view->widget(), "library.sort", "s", "title");
  EXPECT_EQ(shownTitles(), (std::vector<std::string>{"Germinal", "Jane Eyre", "Les Misérables"}));
}

TEST_F(LibraryViewDisplayTest, SearchNarrowsAsOneTypesAndEnterOpensTheBookFound) {
  gtk_editable_set_text(GTK_EDITABLE(view->searchEntry()), "EMILE");
  ASSERT_TRUE(iterateUntil([&] { return shownTitles() == std::vector<std::string>{"Germinal"}; }));
  EXPECT_TRUE(iterateUntil([&] { return !showsText(view->gridView(), "Jane Eyre"); }));
  g_signal_emit_by_name(view->searchEntry(), "activate");
  EXPECT_EQ(opened, std::vector<std::string>{std::string(64, '1')});

  gtk_editable_set_text(GTK_EDITABLE(view->searchEntry()), "Tolstoy");
  EXPECT_TRUE(iterateUntil([&] { return showsText(view->widget(), "No Books Found"); }));
}

TEST_F(LibraryViewDisplayTest, AnUnavailableBookAsksForItsFile) {
  view->activate(std::string(64, '3'));
  view->activate(std::string(64, '2'));
  EXPECT_EQ(located, std::vector<std::string>{std::string(64, '3')});
  EXPECT_EQ(opened, std::vector<std::string>{std::string(64, '2')});
  GtkWidget* locate = nullptr;
  ASSERT_TRUE(iterateUntil([&] {
    locate = findWidget(view->gridView(), [](GtkWidget* widget) {
      return GTK_IS_BUTTON(widget) && gtk_widget_get_mapped(widget) &&
             std::string_view(gtk_button_get_label(GTK_BUTTON(widget)) ?: "") == "Locate\u2026";
    });
    return locate != nullptr;
  }));
  g_signal_emit_by_name(locate, "clicked");
  EXPECT_EQ(located.size(), 2u);
}

TEST_F(LibraryViewDisplayTest, RemovingAsksFirstThenTakesTheBookAway) {
  struct Answer {
    const char* response;
    std::size_t booksLeft;
  };
  for (const Answer& answer : {Answer{"cancel", 3}, Answer{"delete", 2}}) {
    SCOPED_TRACE(answer.response);
    gtk_widget_activate_action(view->widget(), "library.remove", "s", std::string(64, '2').c_str());
    ASSERT_NE(view->removeConfirmation(), nullptr);
    adw_message_dialog_response(ADW_MESSAGE_DIALOG(view->removeConfirmation()), answer.response);
    // A reload follows the removal; after a cancel, the sentinel is a reload asked for here.
    if (std::string_view(answer.response) == "cancel") view->reload();
    loadedCount = 0;
    ASSERT_TRUE(iterateUntil([&] { return loadedCount != 0; }));
    EXPECT_EQ(view->model().bookCount(), answer.booksLeft);
  }
  EXPECT_FALSE(fs::exists(locations().recordsRoot / std::string(64, '2') / "library-record.json"));
}

}  // namespace
}  // namespace tomekeeper::testing
