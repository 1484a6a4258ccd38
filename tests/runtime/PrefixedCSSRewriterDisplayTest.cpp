// The rewriter's table checked against the real engine: WebKit ignores each prefixed form as a
// book writes it, and applies what the rewriter makes of it, in a style sheet and in a style
// attribute alike.
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "PageScript.h"
#include "runtime/PrefixedCSSRewriter.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using testing::iterateUntil;

struct DisplayCase {
  const char* declaration;
  const char* property;
  const char* expected;
};

// Each element sits in a block with text-orientation: upright, so that a mapped orientation
// differs from what the element would inherit.
const std::vector<DisplayCase> kCases = {
    {"-epub-text-align-last: center", "text-align-last", "center"},
    {"-epub-text-combine-horizontal: all", "text-combine-upright", "all"},
    {"-epub-text-emphasis-position: under", "text-emphasis-position", "under"},
    {"-epub-text-emphasis-position: over left", "text-emphasis-position", "over left"},
    {"text-transform: -epub-fullwidth", "text-transform", "full-width"},
    {"-epub-line-break: strict", "line-break", "strict"},
    {"-epub-text-underline-position: under", "text-underline-position", "under"},
    {"-epub-text-orientation: vertical-right", "text-orientation", "mixed"},
    {"-epub-text-orientation: rotate-right", "text-orientation", "sideways"},
};

enum class Rewriting { none, applied };

class PrefixedCSSRewriterDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }

  void SetUp() override {
    webView_ = WEBKIT_WEB_VIEW(webkit_web_view_new());
    window_ = gtk_window_new();
    gtk_window_set_child(GTK_WINDOW(window_), GTK_WIDGET(webView_));
    gtk_window_present(GTK_WINDOW(window_));
  }

  void TearDown() override { gtk_window_destroy(GTK_WINDOW(window_)); }

  // For each case, the computed value of its property for the element styled by the style
  // sheet and for the one styled by its style attribute.
  nlohmann::json computedValues(Rewriting rewriting) {
    const auto sheet = [&](const std::string& css) {
      return rewriting == Rewriting::applied ? PrefixedCSSRewriter::rewriteStyleSheet(css) : css;
    };
    const auto attribute = [&](const std::string& css) {
      return rewriting == Rewriting::applied ? PrefixedCSSRewriter::rewriteStyleAttribute(css)
                                             : css;
    };
    std::string styleSheet = "div { text-orientation: upright; writing-mode: vertical-rl }\n";
    std::string body;
    std::string script = "return [";
    for (std::size_t index = 0; index < kCases.size(); ++index) {
      const std::string number = std::to_string(index);
      styleSheet += ".sheet" + number + " { " + kCases[index].declaration + " }\n";
      body += "<div><p class=\"sheet" + number + "\" id=\"sheet" + number +
              "\">12</p><p id=\"attribute" + number + "\" style=\"" +
              attribute(kCases[index].declaration) + "\">12</p></div>";
      const std::string property = nlohmann::json(kCases[index].property).dump();
      script += "[getComputedStyle(document.getElementById('sheet" + number +
                "')).getPropertyValue(" + property +
                "), getComputedStyle(document.getElementById('attribute" + number +
                "')).getPropertyValue(" + property + ")],";
    }
    script += "];";
    const std::string page = "<!DOCTYPE html><html><head><style>" + sheet(styleSheet) +
                             "</style></head><body>" + body + "</body></html>";
    webkit_web_view_load_html(webView_, page.c_str(), "about:blank");
    EXPECT_TRUE(iterateUntil([&] { return !webkit_web_view_is_loading(webView_); }, 20s));
    return testing::evaluateInPage(webView_, script);
  }

  WebKitWebView* webView_ = nullptr;
  GtkWidget* window_ = nullptr;
};

TEST_F(PrefixedCSSRewriterDisplayTest, WebKitAppliesTheRewrittenFormsAndNotThePrefixedOnes) {
  const nlohmann::json prefixed = computedValues(Rewriting::none);
  const nlohmann::json rewritten = computedValues(Rewriting::applied);
  ASSERT_EQ(prefixed.size(), kCases.size());
  ASSERT_EQ(rewritten.size(), kCases.size());
  for (std::size_t index = 0; index < kCases.size(); ++index) {
    SCOPED_TRACE(kCases[index].declaration);
    for (std::size_t element = 0; element < 2; ++element) {
      EXPECT_NE(prefixed[index][element], kCases[index].expected);
      EXPECT_EQ(rewritten[index][element], kCases[index].expected);
    }
  }
}

}  // namespace
}  // namespace tomekeeper
