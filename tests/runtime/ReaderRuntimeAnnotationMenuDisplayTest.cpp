// The context menu of a highlight in the real reader runtime page: a real right-click of the
// pointer, sent to the web view's window through the X server of the display, asks the native
// side for the menu of the highlight under it, at that point; a right-click beside it asks for
// nothing. These tests need a display (label display); without an X display or xdotool the click
// is dispatched in the page instead.
#include <iostream>

#include "ReaderRuntimeDisplayFixture.h"
// The X11 headers define short macros (None, Bool, Status) that other headers use as names;
// they come last.
#include <gdk/x11/gdkx.h>

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::chapterDocument;
using testing::iterateUntil;
using testing::ReaderRuntimeHighlightDisplayTest;

struct WebViewPoint {
  double x = 0;
  double y = 0;
};

bool contains(const json& box, const WebViewPoint& point) {
  return point.x >= box["x"].get<double>() &&
         point.x <= box["x"].get<double>() + box["width"].get<double>() &&
         point.y >= box["y"].get<double>() &&
         point.y <= box["y"].get<double>() + box["height"].get<double>();
}

WebViewPoint centreOf(const json& box) {
  return {box["x"].get<double>() + box["width"].get<double>() / 2,
          box["y"].get<double>() + box["height"].get<double>() / 2};
}

class ReaderRuntimeAnnotationMenuDisplayTest : public ReaderRuntimeHighlightDisplayTest {
 protected:
  // Keeps every menu request in `requests`, and counts the context clicks that reach the section.
  void listenForMenuRequests() {
    bridge().onAnnotationContextMenuRequested = [this](ReaderAnnotationContextMenuRequest request) {
      requests.push_back(request);
    };
    countContextClicksInTheSection();
  }

  std::vector<ReaderAnnotationContextMenuRequest> requests;

  // Opens a book of one long chapter and highlights some words on its first page, as the reader
  // would; gives the highlight and its one drawn record (words, boxes).
  std::pair<RuntimeAnnotation, json> highlightWordsOnTheFirstPage() {
    testing::EpubBuilder builder;
    builder.replaceFile("OEBPS/chapter1.xhtml", chapterDocument(1, 12));
    openBook(builder.build());
    std::optional<bool> offered;
    bridge().onSelectionAvailabilityChanged =
        [&](bool available, std::optional<ReaderSelectionRect>) { offered = available; };
    const json selected = selectWordsOnScreen(5, 8);
    EXPECT_TRUE(selected.is_string());
    EXPECT_TRUE(iterateUntil([&] { return offered == true; }, 2s));
    bridge().onSelectionAvailabilityChanged = nullptr;
    const std::optional<RuntimeAnnotation> annotation = highlightSelection();
    if (!annotation) {
      ADD_FAILURE() << "no selection to highlight";
      return {};
    }
    const json drawn = drawnHighlights();
    EXPECT_EQ(drawn.size(), 1u) << drawn.dump();
    if (drawn.size() != 1u) return {*annotation, json()};
    EXPECT_EQ(drawn[0]["words"], selected);
    EXPECT_TRUE(drawn[0]["onScreen"].get<bool>()) << drawn.dump();
    return {*annotation, drawn[0]};
  }

  // Counts, in the section on screen, the context clicks that reach the book's document, so a
  // test knows that its click arrived.
  void countContextClicksInTheSection() {
    evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      frame.contentWindow.contextClicksSeen = 0;
      frame.contentDocument.addEventListener('contextmenu', () => {
        frame.contentWindow.contextClicksSeen += 1;
      });
      return true;
    )");
  }

  int contextClicksSeen() {
    const json seen = evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      return frame.contentWindow.contextClicksSeen;
    )");
    return seen.is_number() ? seen.get<int>() : -1;
  }

  // Right-clicks `point` of the web view: with the pointer of the display, through the X server
  // (xdotool), as a reader's mouse does. Where that cannot be done (another display server, no
  // xdotool), the page gets the `contextmenu` event that the engine would send for that point,
  // aimed by the page's own hit test, and the test says so. False when the click failed.
  bool rightClickAt(const WebViewPoint& point) {
    GtkWidget* webView = GTK_WIDGET(host_->webView());
    GtkNative* native = gtk_widget_get_native(webView);
    GdkSurface* surface = gtk_native_get_surface(native);
    gchar* xdotool = g_find_program_in_path("xdotool");
    const bool canClick = GDK_IS_X11_SURFACE(surface) && xdotool != nullptr;
    g_free(xdotool);
    if (!canClick) {
      RecordProperty("rightClick", "dispatched in the page");
      std::cerr << "no X display or no xdotool: the context click is dispatched in the page\n";
      return dispatchContextClick(point);
    }
    double windowX = 0;
    double windowY = 0;
    if (!gtk_widget_translate_coordinates(webView, GTK_WIDGET(native), point.x, point.y, &windowX,
                                          &windowY)) {
      return false;
    }
    // The window's widgets stand inside its surface, after any frame the client draws.
    double surfaceX = 0;
    double surfaceY = 0;
    gtk_native_get_surface_transform(native, &surfaceX, &surfaceY);
    const std::string window = std::to_string(gdk_x11_surface_get_xid(surface));
    const std::string x = std::to_string(static_cast<int>(windowX + surfaceX));
    const std::string y = std::to_string(static_cast<int>(windowY + surfaceY));
    const char* arguments[] = {"xdotool", "mousemove", "--sync", "--window", window.c_str(),
                               x.c_str(), y.c_str(),   "click",  "3",        nullptr};
    gint status = 0;
    GError* error = nullptr;
    const bool spawned =
        g_spawn_sync(nullptr, const_cast<char**>(arguments), nullptr, G_SPAWN_SEARCH_PATH, nullptr,
                     nullptr, nullptr, nullptr, &status, &error);
    if (!spawned) {
      ADD_FAILURE() << "xdotool: " << error->message;
      g_clear_error(&error);
      return false;
    }
    return g_spawn_check_wait_status(status, nullptr);
  }

  bool dispatchContextClick(const WebViewPoint& point) {
    return evaluate("const x = " + std::to_string(point.x) + ", y = " + std::to_string(point.y) +
                    ";" + R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      const frameBox = frame.getBoundingClientRect();
      const clientX = x - frameBox.left, clientY = y - frameBox.top;
      const target = frame.contentDocument.elementFromPoint(clientX, clientY);
      if (!target) return false;
      target.dispatchEvent(new frame.contentWindow.MouseEvent('contextmenu', {
        bubbles: true, cancelable: true, button: 2, buttons: 2, clientX, clientY }));
      return true;
    )") == true;
  }
};

// A right-click beside the highlight first: the page hears it and asks for nothing. Then the
// same click on the highlight asks for its menu, so the silence before was the runtime's answer.
TEST_F(ReaderRuntimeAnnotationMenuDisplayTest, ARightClickAsksForTheMenuOfTheHighlightUnderIt) {
  const auto [annotation, drawn] = highlightWordsOnTheFirstPage();
  ASSERT_TRUE(drawn.is_object());
  ASSERT_FALSE(drawn["boxes"].empty());
  listenForMenuRequests();

  // Words a few lines below the highlight, in the same section and on screen.
  const json& box = drawn["boxes"][drawn["boxes"].size() - 1];
  const WebViewPoint beside{box["x"].get<double>() + box["width"].get<double>() / 2,
                            box["y"].get<double>() + box["height"].get<double>() * 4.5};
  for (const json& highlightBox : drawn["boxes"]) ASSERT_FALSE(contains(highlightBox, beside));
  const json inside = evaluate("const x = " + std::to_string(beside.x) +
                               ", y = " + std::to_string(beside.y) + ";" + R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    const frameBox = frame.getBoundingClientRect();
    const viewport = document.getElementById('reader-viewport').getBoundingClientRect();
    return x > viewport.left && x < viewport.right && y > viewport.top && y < viewport.bottom &&
           x > frameBox.left && x < frameBox.right && y > frameBox.top && y < frameBox.bottom;
  )");
  ASSERT_EQ(inside, true) << "the point beside the highlight is off the page";
  {
    SCOPED_TRACE("ARightClickBesideAHighlightAsksForNoMenu");
    ASSERT_TRUE(rightClickAt(beside));
    ASSERT_TRUE(iterateUntil([&] { return contextClicksSeen() == 1; }, 5s))
        << "the right-click did not reach the section";
    // Whatever the page sent for that click comes before the answer to a later call.
    run(bridge().currentLocator());
    EXPECT_TRUE(requests.empty()) << "a menu was asked for " << requests.size() << " times";
  }
  {
    SCOPED_TRACE("ARightClickOnAHighlightAsksForItsMenuThere");
    const WebViewPoint point = centreOf(drawn["boxes"][0]);
    ASSERT_TRUE(rightClickAt(point));
    ASSERT_TRUE(iterateUntil([&] { return !requests.empty(); }, 5s))
        << "no menu asked for; context clicks that reached the section: " << contextClicksSeen();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].annotationID, annotation.id);
    // The point is given in the web view's coordinates: where the pointer was, which lies on the
    // highlight as the page draws it.
    EXPECT_NEAR(requests[0].x, point.x, 1.0);
    EXPECT_NEAR(requests[0].y, point.y, 1.0);
    const WebViewPoint asked{requests[0].x, requests[0].y};
    EXPECT_TRUE(std::any_of(drawn["boxes"].begin(), drawn["boxes"].end(),
                            [&](const json& box) { return contains(box, asked); }))
        << "(" << asked.x << ", " << asked.y << ") is not on " << drawn.dump();
    EXPECT_EQ(contextClicksSeen(), 2);
  }
}

}  // namespace
}  // namespace tomekeeper
