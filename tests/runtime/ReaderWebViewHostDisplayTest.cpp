#include "runtime/ReaderWebViewHost.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "FakeReaderBridgeTransport.h"
#include "async/RunUntilDone.h"
#include "runtime/PublicationSchemeRoute.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::iterateUntil;
using testing::startCall;
using Case = ReaderBridgeFailure::Case;

const Uuid kPublicationID = *Uuid::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F");

std::string bookURL(const std::string& path) {
  return "tomekeeper://publication/" + kPublicationID.string() + "/" + path;
}

void writeFile(const std::filesystem::path& path, const std::string& contents) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

// A web view host in a window, with a book of a page that tries a script, a style sheet and an
// SVG chapter with a script, registered before the runtime loads.
struct HostedPage {
  HostedPage() {
    const std::filesystem::path book = directory / "Extracted";
    writeFile(book / "OEBPS/page.xhtml",
              "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
              "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>Book page</title>"
              "<link rel=\"stylesheet\" href=\"style.css\"/>"
              "<script>window.scriptRan = true; document.title = 'script ran';</script>"
              "</head><body><p>Call me Ishmael.</p>"
              "<a id=\"external\" href=\"https://example.invalid/whale\">web</a>"
              "<a id=\"mail\" href=\"mailto:someone@example.invalid\">mail</a>"
              "</body></html>");
    writeFile(book / "OEBPS/style.css", "p { color: black; }");
    writeFile(book / "OEBPS/chapter.svg",
              "<svg xmlns=\"http://www.w3.org/2000/svg\"><title>SVG chapter</title>"
              "<script>window.scriptRan = true;</script></svg>");
    host = ReaderWebViewHost::create();
    host->onExternalLink = [this](std::string url) { externalLinks.push_back(std::move(url)); };
    host->registerPublication(kPublicationID, book);
    window = gtk_window_new();
    gtk_window_set_default_size(GTK_WINDOW(window), 800, 600);
    gtk_window_set_child(GTK_WINDOW(window), GTK_WIDGET(host->webView()));
    gtk_window_present(GTK_WINDOW(window));
  }

  ~HostedPage() {
    host.reset();
    gtk_window_destroy(GTK_WINDOW(window));
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }

  void prepareRuntime() {
    async::runUntilDone(host->prepareRuntime(TOMEKEEPER_TEST_RUNTIME_DIRECTORY, 10s), 20s);
  }

  async::Task<json> query(const std::string& method, json payload = json::object()) {
    return host->bridge()->query<json, json>(method, std::move(payload), 10s, Uuid::random(),
                                             host->bridge()->generation());
  }

  json call(const std::string& method, json payload = json::object()) {
    return async::runUntilDone(query(method, std::move(payload)), 20s);
  }

  // Starts a request that the page never answers, and waits until the page has it: the answer
  // to a later call comes after the earlier request was delivered.
  std::shared_ptr<testing::CallOutcome<json>> startHangingRequest() {
    auto pending = startCall(query("hang"));
    EXPECT_TRUE(iterateUntil([&] { return host->bridge()->pendingCount() == 1; }));
    call("next");
    return pending;
  }

  testing::TemporaryDirectory directory;
  std::shared_ptr<ReaderWebViewHost> host;
  GtkWidget* window = nullptr;
  std::vector<std::string> externalLinks;
};

// One page for the cases that leave it standing: the runtime loads once for the suite.
class ReaderWebViewHostDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    gtk_init();
    page_ = std::make_unique<HostedPage>();
    page_->prepareRuntime();
  }
  static void TearDownTestSuite() { page_.reset(); }
  void SetUp() override {
    page_->externalLinks.clear();
    page_->host->bridge()->onLocatorChanged = nullptr;
  }

  json call(const std::string& method, json payload = json::object()) {
    return page_->call(method, std::move(payload));
  }

  static inline std::unique_ptr<HostedPage> page_;
};

// A page of its own for each case that navigates, kills or closes it.
class ReaderWebViewHostLifecycleDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }

  HostedPage page_;
  std::shared_ptr<ReaderWebViewHost>& host_ = page_.host;
};

TEST_F(ReaderWebViewHostDisplayTest, ARequestIsAnsweredByTheRuntimePage) {
  const ReaderPositionResult position = async::runUntilDone(page_->host->bridge()->next(), 20s);
  EXPECT_EQ(position.pageCount, 3);
  EXPECT_TRUE(position.atStart);
}

TEST_F(ReaderWebViewHostDisplayTest, AnUnknownMethodIsARuntimeFailureNotATimeout) {
  try {
    call("noSuchMethod");
    FAIL() << "the call succeeded";
  } catch (const ReaderBridgeFailure& failure) {
    EXPECT_EQ(failure.failureCase(), Case::runtime);
    EXPECT_EQ(failure.payload().code, "unknown-method");
  }
}

TEST_F(ReaderWebViewHostDisplayTest, EventsOfAStaleGenerationAreDropped) {
  std::vector<std::string> locators;
  page_->host->bridge()->onLocatorChanged = [&](Locator locator) {
    locators.push_back(locator.spineHref);
  };
  call("emitEvents");
  // The page sent both events before its reply, on the one channel: by the reply, both arrived.
  EXPECT_EQ(locators, std::vector<std::string>{"current.xhtml"});
}

// The forged kind of a reply, and a forged event and reply posted from a frame of the page's
// origin: what the page sent comes before the answer to a later call.
TEST_F(ReaderWebViewHostDisplayTest, APageOrItsFrameCannotForgeRepliesOrEvents) {
  int locatorEvents = 0;
  page_->host->bridge()->onLocatorChanged = [&](Locator) { ++locatorEvents; };
  for (const char* method : {"forgeKind", "postFromAFrame"}) {
    SCOPED_TRACE(method);
    EXPECT_EQ(call(method), json({{"forged", false}}));
    call("next");
    EXPECT_EQ(locatorEvents, 0);
  }
}

// What a book frame ends up holding when it is sent to a page of the book, an SVG document of
// the book, or the runtime: no script runs, and neither SVG nor the runtime is a frame's document.
TEST_F(ReaderWebViewHostDisplayTest, ABookFrameHoldsOnlyTheBooksPagesWithoutScript) {
  const struct {
    std::string href;
    bool shown;
  } cases[] = {
      {bookURL("OEBPS/page.xhtml"), true},
      {bookURL("OEBPS/chapter.svg"), false},
      {std::string(kReaderRuntimeEntryURL), false},
  };
  for (const auto& [href, shown] : cases) {
    SCOPED_TRACE(href);
    const json state = call("loadFrame", {{"href", href}});
    EXPECT_EQ(state["href"] == href, shown) << state.dump();
    EXPECT_EQ(state["scriptRan"], false);
    if (shown) EXPECT_EQ(state["title"], "Book page");
  }
}

TEST_F(ReaderWebViewHostDisplayTest, ThePolicyHeaderComesOnlyWithBookDocuments) {
  // Each address, the headers that it must come with, and whether the policy is among them.
  const std::tuple<std::string, const char*, bool> cases[] = {
      {bookURL("OEBPS/page.xhtml"),
       R"({"status": 200, "contentType": "application/xhtml+xml", "cacheControl": "no-store",
           "contentTypeOptions": "nosniff"})",
       true},
      {bookURL("OEBPS/chapter.svg"), R"({"contentType": "image/svg+xml"})", true},
      {bookURL("OEBPS/style.css"),
       R"({"status": 200, "contentType": "text/css", "cacheControl": "no-store"})", false},
      {std::string(kReaderRuntimeEntryURL), R"({"status": 200, "contentType": "text/html"})",
       false},
  };
  for (const auto& [href, expected, withPolicy] : cases) {
    const json headers = call("headers", {{"href", href}});
    const json wanted = json::parse(expected);
    for (const auto& [name, value] : wanted.items()) {
      EXPECT_EQ(headers[name], value) << href << " " << name;
    }
    EXPECT_EQ(headers["contentSecurityPolicy"],
              withPolicy ? json(kPublicationContentSecurityPolicy) : json(nullptr))
        << href;
  }
}

TEST_F(ReaderWebViewHostDisplayTest, UnknownPublicationsAndRefusedPathsFail) {
  for (const std::string& href :
       {"tomekeeper://publication/" + Uuid::random().string() + "/OEBPS/page.xhtml",
        bookURL("OEBPS/missing.xhtml"), bookURL("OEBPS/%2E%2E/%2E%2E/secret"),
        std::string("tomekeeper://publication/runtime/")}) {
    SCOPED_TRACE(href);
    try {
      call("headers", {{"href", href}});
      ADD_FAILURE() << "served";
    } catch (const ReaderBridgeFailure& failure) {
      EXPECT_EQ(failure.payload().code, "unreadable");
    }
  }
}

TEST_F(ReaderWebViewHostDisplayTest, AFrameThatSetsAWebLocationIsCancelled) {
  call("loadFrame", {{"href", bookURL("OEBPS/page.xhtml")}});
  const json state = call("assignFrameLocation", {{"href", "https://example.invalid/"}});
  EXPECT_EQ(state["href"], bookURL("OEBPS/page.xhtml"));
  EXPECT_TRUE(page_->externalLinks.empty());
}

// A clicked web or mail link reaches onExternalLink, and the frame stays on the book's page.
TEST_F(ReaderWebViewHostDisplayTest, AClickedWebOrMailLinkReachesOnExternalLinkWithoutLeaving) {
  const std::pair<const char*, const char*> cases[] = {
      {"external", "https://example.invalid/whale"}, {"mail", "mailto:someone@example.invalid"}};
  for (const auto& [elementID, url] : cases) {
    SCOPED_TRACE(elementID);
    page_->externalLinks.clear();
    call("loadFrame", {{"href", bookURL("OEBPS/page.xhtml")}});
    call("clickLink", {{"elementID", elementID}});
    // The host decides on the link's navigation, and cancels it, as it hands the link on.
    ASSERT_TRUE(iterateUntil([&] { return !page_->externalLinks.empty(); }, 5s));
    EXPECT_EQ(page_->externalLinks, std::vector<std::string>{url});
    EXPECT_EQ(call("frameState")["href"], bookURL("OEBPS/page.xhtml"));
  }
}

TEST_F(ReaderWebViewHostLifecycleDisplayTest, AProvisionalNavigationFailsPendingRequests) {
  page_.prepareRuntime();
  const std::uint64_t generation = host_->bridge()->generation();
  auto pending = page_.startHangingRequest();
  webkit_web_view_load_uri(host_->webView(), std::string(kReaderRuntimeEntryURL).c_str());
  ASSERT_TRUE(iterateUntil([&] { return pending->finished; }, 5s));
  ASSERT_TRUE(pending->failure);
  EXPECT_EQ(pending->failure->failureCase(), Case::navigationReset);
  EXPECT_GT(host_->bridge()->generation(), generation);
}

TEST_F(ReaderWebViewHostLifecycleDisplayTest, ATerminatedWebProcessFailsPendingRequests) {
  page_.prepareRuntime();
  auto pending = page_.startHangingRequest();
  webkit_web_view_terminate_web_process(host_->webView());
  ASSERT_TRUE(iterateUntil([&] { return pending->finished; }, 5s));
  ASSERT_TRUE(pending->failure);
  EXPECT_EQ(pending->failure->failureCase(), Case::webContentProcessTerminated);
}

TEST_F(ReaderWebViewHostLifecycleDisplayTest, AMissingReaderRuntimeIsMalformedNotATimeout) {
  page_.prepareRuntime();
  webkit_web_view_load_uri(host_->webView(), "tomekeeper://publication/runtime/bare.html");
  ASSERT_TRUE(iterateUntil([&] { return !webkit_web_view_is_loading(host_->webView()); }));
  const auto started = std::chrono::steady_clock::now();
  try {
    async::runUntilDone(host_->bridge()->next(), 20s);
    FAIL() << "the call succeeded";
  } catch (const ReaderBridgeFailure& failure) {
    EXPECT_EQ(failure.failureCase(), Case::malformedResponse);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - started, 5s);
}

TEST_F(ReaderWebViewHostLifecycleDisplayTest, TheMainFrameCannotHoldABookPage) {
  page_.prepareRuntime();
  // The refused load still starts and ends: it ends once it has failed or finished.
  bool ended = false;
  const gulong handler = g_signal_connect_swapped(
      host_->webView(), "load-changed", G_CALLBACK(+[](bool* ended, WebKitLoadEvent event) {
        *ended = *ended || event == WEBKIT_LOAD_FINISHED;
      }),
      &ended);
  webkit_web_view_load_uri(host_->webView(), bookURL("OEBPS/page.xhtml").c_str());
  EXPECT_TRUE(iterateUntil([&] { return ended; }));
  g_signal_handler_disconnect(host_->webView(), handler);
  // The runtime page is still there and answers.
  EXPECT_EQ(async::runUntilDone(host_->bridge()->next(), 20s).pageCount, 3);
}

TEST_F(ReaderWebViewHostLifecycleDisplayTest, ClosingFailsPendingRequestsAndLaterLoads) {
  page_.prepareRuntime();
  auto pending = startCall(page_.query("hang"));
  ASSERT_TRUE(iterateUntil([&] { return host_->bridge()->pendingCount() == 1; }));
  host_->close();
  host_->close();
  ASSERT_TRUE(iterateUntil([&] { return pending->finished; }));
  EXPECT_EQ(pending->failure->failureCase(), Case::readerClosed);
  try {
    async::runUntilDone(host_->prepareRuntime(TOMEKEEPER_TEST_RUNTIME_DIRECTORY, 10s), 5s);
    FAIL() << "a closed host loaded the runtime";
  } catch (const ReaderWebViewHostFailureError& error) {
    EXPECT_EQ(error.failure(), ReaderWebViewHostFailure::closed);
  }
}

TEST_F(ReaderWebViewHostLifecycleDisplayTest, ASecondLoadDuringTheFirstIsRefused) {
  auto first = startCall(host_->prepareRuntime(TOMEKEEPER_TEST_RUNTIME_DIRECTORY, 10s));
  try {
    async::runUntilDone(host_->prepareRuntime(TOMEKEEPER_TEST_RUNTIME_DIRECTORY, 10s), 5s);
    FAIL() << "a second load began";
  } catch (const ReaderWebViewHostFailureError& error) {
    EXPECT_EQ(error.failure(), ReaderWebViewHostFailure::alreadyLoading);
  }
  ASSERT_TRUE(iterateUntil([&] { return first->finished; }, 15s));
}

TEST_F(ReaderWebViewHostLifecycleDisplayTest, AnUnusableRuntimeDirectoryBeginsNoLoad) {
  try {
    async::runUntilDone(host_->prepareRuntime(page_.directory / "nowhere", 10s), 5s);
    FAIL() << "the load began";
  } catch (const PublicationResourceErrorError& error) {
    EXPECT_EQ(error.failure(), PublicationResourceError::unavailable);
  }
  // No load is under way, so a proper one may begin.
  page_.prepareRuntime();
}

TEST_F(ReaderWebViewHostLifecycleDisplayTest, ARuntimeLoadEndsAtItsTimeout) {
  // A runtime directory without its entry page: the load fails or times out, and ends.
  std::filesystem::create_directories(page_.directory / "EmptyRuntime");
  try {
    async::runUntilDone(host_->prepareRuntime(page_.directory / "EmptyRuntime", 500ms), 10s);
    FAIL() << "the load succeeded";
  } catch (const ReaderWebViewHostFailureError& error) {
    EXPECT_TRUE(error.failure() == ReaderWebViewHostFailure::runtimeLoadFailed ||
                error.failure() == ReaderWebViewHostFailure::runtimeLoadTimedOut);
  }
}

}  // namespace
}  // namespace tomekeeper
