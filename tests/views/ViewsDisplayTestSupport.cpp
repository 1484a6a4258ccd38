#include "ViewsDisplayTestSupport.h"

#include <thread>

#include "async/RunUntilDone.h"
#include "model/Date.h"

namespace tomekeeper::testing {

bool waitUntil(const std::function<bool()>& condition, std::chrono::steady_clock::duration bound) {
  const auto deadline = std::chrono::steady_clock::now() + bound;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (!g_main_context_iteration(nullptr, FALSE)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  return true;
}

namespace {

void collectTexts(GtkWidget* widget, Visibility visibility, std::vector<std::string>& texts) {
  if (visibility == Visibility::shownOnly && !gtk_widget_get_visible(widget)) return;
  if (GTK_IS_STACK(widget) && visibility == Visibility::shownOnly) {
    if (GtkWidget* shown = gtk_stack_get_visible_child(GTK_STACK(widget))) {
      collectTexts(shown, visibility, texts);
    }
    return;
  }
  if (GTK_IS_LABEL(widget)) texts.emplace_back(gtk_label_get_text(GTK_LABEL(widget)));
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    collectTexts(child, visibility, texts);
  }
}

}  // namespace

std::vector<std::string> textsBelow(GtkWidget* widget, Visibility visibility) {
  std::vector<std::string> texts;
  collectTexts(widget, visibility, texts);
  return texts;
}

bool showsText(GtkWidget* widget, const std::string& text) {
  const std::vector<std::string> texts = textsBelow(widget);
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

GtkWidget* findWidget(GtkWidget* widget, const std::function<bool(GtkWidget*)>& predicate) {
  if (predicate(widget)) return widget;
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    if (GtkWidget* found = findWidget(child, predicate)) return found;
  }
  return nullptr;
}

bool isShown(GtkWidget* widget) {
  for (GtkWidget* current = widget; current != nullptr; current = gtk_widget_get_parent(current)) {
    if (!gtk_widget_get_visible(current)) return false;
  }
  return true;
}

void ViewsDisplayTest::SetUp() {
  adw_init();
  fonts->installed = {"Georgia", "Helvetica", "Inter"};
}

void ViewsDisplayTest::TearDown() {
  if (window != nullptr) {
    gtk_window_destroy(window);
    window = nullptr;
  }
  if (session) session->close();
  waitUntil([] { return !g_main_context_pending(nullptr); }, std::chrono::seconds(5));
}

void ViewsDisplayTest::openSession() {
  ReaderSessionDependencies dependencies;
  dependencies.host = host;
  dependencies.positionRepository = positions;
  dependencies.bookmarkRepository = bookmarks;
  dependencies.annotationRepository = annotations;
  dependencies.fontCatalog = fonts;
  dependencies.typographyRepository = typography;
  auto setting = std::make_shared<SwitchableDiagnosticsSetting>();
  setting->enabled = false;
  dependencies.locationDiagnosticsSetting = setting;
  dependencies.locationDiagnosticLog = std::make_shared<RecordingLocationLog>();
  session = ReaderSession::create(std::move(dependencies));
  PublicationDescriptor descriptor;
  descriptor.publicationID = Uuid::random();
  descriptor.packageURL = "tomekeeper://publication/x/OEBPS/package.opf";
  descriptor.resourceBaseURL = "tomekeeper://publication/x/OEBPS/";
  async::runUntilDone(session->open(descriptor, "/nonexistent/extracted", "/nonexistent/runtime",
                                    std::string(kFingerprint)),
                      std::chrono::seconds(60));
  ASSERT_EQ(session->state().value(), ReaderSession::State::ready);
}

void ViewsDisplayTest::showInWindow(GtkWidget* content) {
  window = GTK_WINDOW(gtk_window_new());
  gtk_window_set_default_size(window, 1000, 760);
  gtk_window_set_child(window, content);
  gtk_window_present(window);
  ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(content); }));
}

Annotation ViewsDisplayTest::storedAnnotation(std::string text, std::optional<std::string> note,
                                              std::int64_t spineIndex) {
  Annotation annotation;
  annotation.id = Uuid::random();
  annotation.bookFingerprint = kFingerprint;
  annotation.locator = locatorAt(spineIndex, "/6/4!/4/2,/1:0,/1:12");
  annotation.selectedText = std::move(text);
  annotation.note = std::move(note);
  annotation.createdAt = Date::now();
  annotation.modifiedAt = annotation.createdAt;
  annotations->stored.push_back(annotation);
  return annotation;
}

Bookmark ViewsDisplayTest::storedBookmark(std::string title, std::int64_t spineIndex) {
  Bookmark bookmark;
  bookmark.id = Uuid::random();
  bookmark.bookFingerprint = kFingerprint;
  bookmark.locator = locatorAt(spineIndex, "/6/4!/4/8/1:0");
  bookmark.title = std::move(title);
  bookmark.createdAt = Date::now();
  bookmarks->stored.push_back(bookmark);
  return bookmark;
}

}  // namespace tomekeeper::testing
