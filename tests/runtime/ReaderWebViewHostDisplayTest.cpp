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
using testing::iterateFor;
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

class ReaderWebViewHostDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }

  void SetUp() override {
    const std::filesystem::path book = directory_ / "Extracted";
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
    host_ = ReaderWebViewHost::create();
    host_->onExternalLink = [this](std::string url) { externalLinks_.push_back(std::move(url)); };
    host_->registerPublication(kPublicationID, book);
    window_ = gtk_window_new();
    gtk_window_set_default_size(GTK_WINDOW(window_), 800, 600);
    gtk_window_set_child(GTK_WINDOW(window_), GTK_WIDGET(host_->webView()));
    gtk_window_present(GTK_WINDOW(window_));
  }

  void TearDown() override {
    host_.reset();
    gtk_window_destroy(GTK_WINDOW(window_));
    iterateFor(20ms);
  }

  void prepareRuntime() {
    async::runUntilDone(host_->prepareRuntime(TOMEKEEPER_TEST_RUNTIME_DIRECTORY, 10s), 20s);
  }

  json call(const std::string& method, json payload = json::object()) {
    return async::runUntilDone(
        host_->bridge()->query<json, json>(method, std::move(payload), 10s, Uuid::random(),
                                           host_->bridge()->generation()),
        20s);
  }

  testing::TemporaryDirectory directory_;
  std::shared_ptr<ReaderWebViewHost> host_;
  GtkWidget* window_ = nullptr;
  std::vector<std::string> externalLinks_;
};

TEST_F(ReaderWebViewHostDisplayTest, ARequestIsAnsweredByTheRuntimePage) {
  prepareRuntime();
  const ReaderPositionResult position = async::runUntilDone(host_->bridge()->next(), 20s);
  EXPECT_EQ(position.pageCount, 3);
  EXPECT_TRUE(position.atStart);
}

TEST_F(ReaderWebViewHostDisplayTest, AnUnknownMethodIsARuntimeFailureNotATimeout) {
  prepareRuntime();
  try {
    call("noSuchMethod");
    FAIL() << "the call succeeded";
  } catch (const ReaderBridgeFailure& failure) {
    EXPECT_EQ(failure.failureCase(), Case::runtime);
    EXPECT_EQ(failure.payload().code, "unknown-method");
  }
}

TEST_F(ReaderWebViewHostDisplayTest, EventsOfAStaleGenerationAreDropped) {
  prepareRuntime();
  std::vector<std::string> locators;
  host_->bridge()->onLocatorChanged = [&](Locator locator) {
    locators.push_back(locator.spineHref);
  };
  call("emitEvents");
  // The page sent both events before its reply, on the one channel: by the reply, both arrived.
  EXPECT_EQ(locators, std::vector<std::string>{"current.xhtml"});
}

TEST_F(ReaderWebViewHostDisplayTest, APageCannotForgeTheKindOfAReply) {
  prepareRuntime();
  int locatorEvents = 0;
  host_->bridge()->onLocatorChanged = [&](Locator) { ++locatorEvents; };
  const json result = call("forgeKind");
  EXPECT_EQ(result, json({{"forged", false}}));
  // Whatever the page sent for the forged reply comes before the answer to a later call.
  call("next");
  EXPECT_EQ(locatorEvents, 0);
}

TEST_F(ReaderWebViewHostDisplayTest, AMessageFromAFrameNeverReachesTheBridge) {
  prepareRuntime();
  int locatorEvents = 0;
  host_->bridge()->onLocatorChanged = [&](Locator) { ++locatorEvents; };
  // The frame's forged event and reply were posted before the page's own reply, so they would
  // have arrived before it.
  const json result = call("postFromAFrame");
  EXPECT_EQ(result, json({{"forged", false}}));
  EXPECT_EQ(locatorEvents, 0);
}

TEST_F(ReaderWebViewHostDisplayTest, AProvisionalNavigationFailsPendingRequests) {
  prepareRuntime();
  const std::uint64_t generation = host_->bridge()->generation();
  auto pending = startCall(
      host_->bridge()->query<json, json>("hang", json::object(), 10s, Uuid::random(), generation));
  ASSERT_TRUE(iterateUntil([&] { return host_->bridge()->pendingCount() == 1; }));
  iterateFor(50ms);
  webkit_web_view_load_uri(host_->webView(), std::string(kReaderRuntimeEntryURL).c_str());
  ASSERT_TRUE(iterateUntil([&] { return pending->finished; }, 5s));
  ASSERT_TRUE(pending->failure);
  EXPECT_EQ(pending->failure->failureCase(), Case::navigationReset);
  EXPECT_GT(host_->bridge()->generation(), generation);
}

TEST_F(ReaderWebViewHostDisplayTest, ATerminatedWebProcessFailsPendingRequests) {
  prepareRuntime();
  auto pending = startCall(host_->bridge()->query<json, json>(
      "hang", json::object(), 10s, Uuid::random(), host_->bridge()->generation()));
  ASSERT_TRUE(iterateUntil([&] { return host_->bridge()->pendingCount() == 1; }));
  iterateFor(50ms);
  webkit_web_view_terminate_web_process(host_->webView());
  ASSERT_TRUE(iterateUntil([&] { return pending->finished; }, 5s));
  ASSERT_TRUE(pending->failure);
  EXPECT_EQ(pending->failure->failureCase(), Case::webContentProcessTerminated);
}

TEST_F(ReaderWebViewHostDisplayTest, AMissingReaderRuntimeIsMalformedNotATimeout) {
  prepareRuntime();
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

TEST_F(ReaderWebViewHostDisplayTest, ABookPageRunsNoScript) {
  prepareRuntime();
  const json state = call("loadFrame", {{"href", bookURL("OEBPS/page.xhtml")}});
  EXPECT_EQ(state["href"], bookURL("OEBPS/page.xhtml"));
  EXPECT_EQ(state["title"], "Book page");
  EXPECT_EQ(state["scriptRan"], false);
}

TEST_F(ReaderWebViewHostDisplayTest, AnSVGDocumentOfTheBookIsNoFramesDocument) {
  prepareRuntime();
  const json state = call("loadFrame", {{"href", bookURL("OEBPS/chapter.svg")}});
  EXPECT_NE(state["href"], bookURL("OEBPS/chapter.svg"));
  EXPECT_EQ(state["scriptRan"], false);
}

TEST_F(ReaderWebViewHostDisplayTest, ThePolicyHeaderComesOnlyWithBookDocuments) {
  prepareRuntime();
  const json page = call("headers", {{"href", bookURL("OEBPS/page.xhtml")}});
  EXPECT_EQ(page["status"], 200);
  EXPECT_EQ(page["contentType"], "application/xhtml+xml");
  EXPECT_EQ(page["cacheControl"], "no-store");
  EXPECT_EQ(page["contentSecurityPolicy"], std::string(kPublicationContentSecurityPolicy));

  EXPECT_EQ(page["contentTypeOptions"], "nosniff");

  const json svg = call("headers", {{"href", bookURL("OEBPS/chapter.svg")}});
  EXPECT_EQ(svg["contentType"], "image/svg+xml");
  EXPECT_EQ(svg["contentSecurityPolicy"], std::string(kPublicationContentSecurityPolicy));

  const json style = call("headers", {{"href", bookURL("OEBPS/style.css")}});
  EXPECT_EQ(style["status"], 200);
  EXPECT_EQ(style["contentType"], "text/css");
  EXPECT_EQ(style["cacheControl"], "no-store");
  EXPECT_EQ(style["contentSecurityPolicy"], nullptr);

  const json runtimePage = call("headers", {{"href", std::string(kReaderRuntimeEntryURL)}});
  EXPECT_EQ(runtimePage["status"], 200);
  EXPECT_EQ(runtimePage["contentType"], "text/html");
  EXPECT_EQ(runtimePage["contentSecurityPolicy"], nullptr);
}

TEST_F(ReaderWebViewHostDisplayTest, UnknownPublicationsAndRefusedPathsFail) {
  prepareRuntime();
  const auto failureCode = [&](const std::string& href) -> std::string {
    try {
      call("headers", {{"href", href}});
    } catch (const ReaderBridgeFailure& failure) {
      return failure.payload().code;
    }
    return "served";
  };
  EXPECT_EQ(
      failureCode("tomekeeper://publication/" + Uuid::random().string() + "/OEBPS/page.xhtml"),
      "unreadable");
  EXPECT_EQ(failureCode(bookURL("OEBPS/missing.xhtml")), "unreadable");
  EXPECT_EQ(failureCode(bookURL("OEBPS/%2E%2E/%2E%2E/secret")), "unreadable");
  EXPECT_EQ(failureCode("tomekeeper://publication/runtime/"), "unreadable");
}

TEST_F(ReaderWebViewHostDisplayTest, AFrameThatSetsAWebLocationIsCancelled) {
  prepareRuntime();
  call("loadFrame", {{"href", bookURL("OEBPS/page.xhtml")}});
  const json state = call("assignFrameLocation", {{"href", "https://example.invalid/"}});
  EXPECT_EQ(state["href"], bookURL("OEBPS/page.xhtml"));
  EXPECT_TRUE(externalLinks_.empty());
}

TEST_F(ReaderWebViewHostDisplayTest, AClickedWebLinkInABookReachesOnExternalLink) {
  prepareRuntime();
  call("loadFrame", {{"href", bookURL("OEBPS/page.xhtml")}});
  const json state = call("clickLink", {{"elementID", "external"}});
  EXPECT_EQ(state["href"], bookURL("OEBPS/page.xhtml"));
  EXPECT_EQ(externalLinks_, std::vector<std::string>{"https://example.invalid/whale"});
}

TEST_F(ReaderWebViewHostDisplayTest, AClickedMailLinkReachesOnExternalLinkWithoutLeaving) {
  prepareRuntime();
  call("loadFrame", {{"href", bookURL("OEBPS/page.xhtml")}});
  const json state = call("clickLink", {{"elementID", "mail"}});
  EXPECT_EQ(state["href"], bookURL("OEBPS/page.xhtml"));
  EXPECT_EQ(externalLinks_, std::vector<std::string>{"mailto:someone@example.invalid"});
}

TEST_F(ReaderWebViewHostDisplayTest, ABookFrameCannotHoldTheRuntime) {
  prepareRuntime();
  const json state = call("loadFrame", {{"href", std::string(kReaderRuntimeEntryURL)}});
  EXPECT_NE(state["href"], std::string(kReaderRuntimeEntryURL));
}

TEST_F(ReaderWebViewHostDisplayTest, TheMainFrameCannotHoldABookPage) {
  prepareRuntime();
  webkit_web_view_load_uri(host_->webView(), bookURL("OEBPS/page.xhtml").c_str());
  iterateFor(300ms);
  ASSERT_TRUE(iterateUntil([&] { return !webkit_web_view_is_loading(host_->webView()); }));
  // The runtime page is still there and answers.
  EXPECT_EQ(async::runUntilDone(host_->bridge()->next(), 20s).pageCount, 3);
}

TEST_F(ReaderWebViewHostDisplayTest, ClosingFailsPendingRequestsAndLaterLoads) {
  prepareRuntime();
  auto pending = startCall(host_->bridge()->query<json, json>(
      "hang", json::object(), 10s, Uuid::random(), host_->bridge()->generation()));
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

TEST_F(ReaderWebViewHostDisplayTest, ASecondLoadDuringTheFirstIsRefused) {
  auto first = startCall(host_->prepareRuntime(TOMEKEEPER_TEST_RUNTIME_DIRECTORY, 10s));
  try {
    async::runUntilDone(host_->prepareRuntime(TOMEKEEPER_TEST_RUNTIME_DIRECTORY, 10s), 5s);
    FAIL() << "a second load began";
  } catch (const ReaderWebViewHostFailureError& error) {
    EXPECT_EQ(error.failure(), ReaderWebViewHostFailure::alreadyLoading);
  }
  ASSERT_TRUE(iterateUntil([&] { return first->finished; }, 15s));
}

TEST_F(ReaderWebViewHostDisplayTest, AnUnusableRuntimeDirectoryBeginsNoLoad) {
  try {
    async::runUntilDone(host_->prepareRuntime(directory_ / "nowhere", 10s), 5s);
    FAIL() << "the load began";
  } catch (const PublicationResourceErrorError& error) {
    EXPECT_EQ(error.failure(), PublicationResourceError::unavailable);
  }
  // No load is under way, so a proper one may begin.
  prepareRuntime();
}

TEST_F(ReaderWebViewHostDisplayTest, ARuntimeLoadEndsAtItsTimeout) {
  // A runtime directory without its entry page: the load fails or times out, and ends.
  std::filesystem::create_directories(directory_ / "EmptyRuntime");
  try {
    async::runUntilDone(host_->prepareRuntime(directory_ / "EmptyRuntime", 500ms), 10s);
    FAIL() << "the load succeeded";
  } catch (const ReaderWebViewHostFailureError& error) {
    EXPECT_TRUE(error.failure() == ReaderWebViewHostFailure::runtimeLoadFailed ||
                error.failure() == ReaderWebViewHostFailure::runtimeLoadTimedOut);
  }
}

}  // namespace
}  // namespace tomekeeper
