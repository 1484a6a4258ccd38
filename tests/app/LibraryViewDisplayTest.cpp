// The library view in a window of this process, over books written as the application writes
// them: one whose file is gone, and the three of a search.
#include "views/LibraryView.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
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

// How many times `text` is drawn at or below `widget`.
std::size_t shownCount(GtkWidget* widget, const std::string& text) {
  std::vector<std::string> texts;
  collectShownTexts(widget, texts);
  return static_cast<std::size_t>(std::count(texts.begin(), texts.end(), text));
}

TEST_F(LibraryViewDisplayTest, CoversShowOnceDecodedAndOthersKeepTheirTitledPlaceholder) {
  struct Cover {
    char digit;
    const char* title;
    std::optional<std::string> bytes;  // none: the record names no cover
    std::size_t titlesShown;           // the item's title, and the placeholder's
  };
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 400, 600);
  gdk_pixbuf_fill(pixbuf, 0x336699ff);
  gchar* png = nullptr;
  gsize size = 0;
  ASSERT_TRUE(gdk_pixbuf_save_to_buffer(pixbuf, &png, &size, "png", nullptr, nullptr));
  g_object_unref(pixbuf);
  const std::vector<Cover> covers = {{'1', "Germinal", std::string(png, size), 1},
                                     {'2', "Les Misérables", "not a picture", 2},
                                     {'3', "Jane Eyre", std::nullopt, 2}};
  g_free(png);
  for (const Cover& cover : covers) {
    const fs::path bookDirectory = locations().recordsRoot / std::string(64, cover.digit);
    LibraryRecord record = *readLibraryRecord(bookDirectory);
    if (cover.bytes) {
      record.cover = std::string(kCoverThumbnailFileName);
      writeFile(bookDirectory / kCoverThumbnailFileName, *cover.bytes);
    }
    writeLibraryRecord(bookDirectory, record);
  }
  loadedCount = 0;
  view->reload();
  ASSERT_TRUE(iterateUntil([&] {
    return loadedCount == 3 && view->covers().pendingCount() == 0 &&
           findWidget(view->gridView(), [](GtkWidget* widget) {
             return GTK_IS_PICTURE(widget) && gtk_widget_get_mapped(widget) &&
                    gtk_picture_get_paintable(GTK_PICTURE(widget)) != nullptr;
           }) != nullptr;
  }));
  for (const Cover& cover : covers) {
    SCOPED_TRACE(cover.title);
    EXPECT_EQ(shownCount(view->gridView(), cover.title), cover.titlesShown);
  }
  GtkWidget* picture = findWidget(view->gridView(), [](GtkWidget* widget) {
    return GTK_IS_PICTURE(widget) && gtk_picture_get_paintable(GTK_PICTURE(widget)) != nullptr;
  });
  GdkPaintable* paintable = gtk_picture_get_paintable(GTK_PICTURE(picture));
  EXPECT_LE(gdk_paintable_get_intrinsic_width(paintable), kGridCoverWidth);
  EXPECT_LE(gdk_paintable_get_intrinsic_height(paintable), kGridCoverHeight);
}

TEST_F(LibraryViewDisplayTest, TheFirstScreenComesFirstAndTheRestAfterIt) {
  constexpr std::size_t kBooks = 60;
  for (std::size_t index = 3; index < kBooks; ++index) {
    char fingerprint[65];
    std::snprintf(fingerprint, sizeof fingerprint, "%064zx", index);
    const fs::path bookDirectory = locations().recordsRoot / fingerprint;
    const fs::path file = directory / ("book-" + std::to_string(index) + ".epub");
    writeFile(file, "an epub");
    writeFile(bookDirectory / kSourceBookmarkFileName, codec->makeBookmarkData(file));
    writeLibraryRecord(bookDirectory, LibraryRecord{"Book " + std::to_string(index),
                                                    {"An Author"},
                                                    "en",
                                                    Date::now(),
                                                    std::string(kSourceBookmarkFileName),
                                                    file.filename().string(),
                                                    std::nullopt});
  }
  // The books the shown layout's view holds (the hidden one holds none).
  const auto booksInView = [this] {
    GtkSelectionModel* model = gtk_grid_view_get_model(GTK_GRID_VIEW(view->gridView()));
    if (model == nullptr) model = gtk_list_view_get_model(GTK_LIST_VIEW(view->listView()));
    return model != nullptr ? g_list_model_get_n_items(G_LIST_MODEL(model)) : 0u;
  };
  for (const char* layout : {"grid", "list"}) {
    SCOPED_TRACE(layout);
    gtk_widget_activate_action(view->widget(), "library.layout", "s", layout);
    guint inViewWhenLoaded = 0;
    sigc::connection whenLoaded =
        view->loaded.connect([&](std::size_t) { inViewWhenLoaded = booksInView(); });
    loadedCount = 0;
    view->reload();
    ASSERT_TRUE(iterateUntil([&] { return loadedCount == kBooks; }));
    whenLoaded.disconnect();
    EXPECT_GT(inViewWhenLoaded, 0u);
    EXPECT_LT(inViewWhenLoaded, kBooks);
    EXPECT_TRUE(iterateUntil([&] { return booksInView() == kBooks; }));
  }
}

}  // namespace
}  // namespace tomekeeper::testing
