#include "runtime/ReaderNavigationPolicy.h"

#include <gtest/gtest.h>

namespace tomekeeper {
namespace {

using Decision = ReaderNavigationDecision;
using Trigger = ReaderNavigationTrigger;

constexpr const char* kBookPage =
    "tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/OEBPS/a.xhtml";
constexpr const char* kRuntime = "tomekeeper://publication/runtime/index.html";

TEST(ReaderNavigationPolicyTest, ANavigationWithoutURLIsCancelled) {
  EXPECT_EQ(decideReaderNavigation(std::nullopt, Trigger::other), Decision::cancel);
  EXPECT_EQ(decideReaderNavigation("", Trigger::linkActivated), Decision::cancel);
}

TEST(ReaderNavigationPolicyTest, AClickedLinkOutOfTheBookOpensExternallyWhateverItsCase) {
  for (const char* url : {"https://example.org/", "HTTPS://example.org/", "http://example.org/",
                          "mailto:a@example.org", "MailTo:a@example.org", "tel:+15550100"}) {
    SCOPED_TRACE(url);
    EXPECT_EQ(decideReaderNavigation(url, Trigger::linkActivated), Decision::openExternally);
    // Reached any other way (a script, a refresh, a form), it goes nowhere.
    EXPECT_EQ(decideReaderNavigation(url, Trigger::other), Decision::cancel);
  }
}

TEST(ReaderNavigationPolicyTest, OtherSchemesAreCancelledEvenWhenClicked) {
  for (const char* url : {"file:///etc/passwd", "data:text/html,x",
                          "javascript:alert(1)", "ftp://example.org/", "httpx://example.org/"}) {
    EXPECT_EQ(decideReaderNavigation(url, Trigger::linkActivated), Decision::cancel) << url;
  }
}

TEST(ReaderNavigationPolicyTest, TheSchemesOwnRoutesGoOn) {
  EXPECT_EQ(decideReaderNavigation(kBookPage, Trigger::linkActivated), Decision::allow);
  EXPECT_EQ(decideReaderNavigation(kRuntime, Trigger::other), Decision::allow);
  EXPECT_EQ(decideReaderNavigation("tomekeeper://publication/not-a-uuid/a.xhtml", Trigger::other),
            Decision::cancel);
  EXPECT_EQ(decideReaderNavigation("tomekeeper://other/runtime/index.html", Trigger::other),
            Decision::cancel);
}

TEST(ReaderNavigationPolicyTest, AboutIsAllowedOnlyInExactlyThatSpelling) {
  EXPECT_EQ(decideReaderNavigation("about:blank", Trigger::other), Decision::allow);
  EXPECT_EQ(decideReaderNavigation("about:srcdoc", Trigger::other), Decision::allow);
  EXPECT_EQ(decideReaderNavigation("ABOUT:blank", Trigger::other), Decision::cancel);
}

TEST(ReaderNavigationPolicyTest, TheMainFrameHoldsOnlyTheRuntime) {
  EXPECT_EQ(decideReaderResponse(kRuntime, "text/html", ReaderResponseTarget::mainFrameDocument),
            Decision::allow);
  EXPECT_EQ(decideReaderResponse(kBookPage, "application/xhtml+xml",
                                 ReaderResponseTarget::mainFrameDocument),
            Decision::cancel);
}

TEST(ReaderNavigationPolicyTest, NoOtherFrameHoldsARuntimePage) {
  EXPECT_EQ(decideReaderResponse(kRuntime, "text/html", ReaderResponseTarget::otherResource),
            Decision::cancel);
  EXPECT_EQ(decideReaderResponse("tomekeeper://publication/runtime/page.xhtml",
                                 "application/xhtml+xml", ReaderResponseTarget::otherResource),
            Decision::cancel);
  EXPECT_EQ(decideReaderResponse("tomekeeper://publication/runtime/runtime.js",
                                 "application/javascript", ReaderResponseTarget::otherResource),
            Decision::allow);
  EXPECT_EQ(
      decideReaderResponse(kBookPage, "application/xhtml+xml", ReaderResponseTarget::otherResource),
      Decision::allow);
}

TEST(ReaderNavigationPolicyTest, ABookFrameHoldsOnlyARenderedOrPassiveType) {
  const std::string book = "tomekeeper://publication/E621E1F8-C36C-495A-93FC-0C247A3E6E5F/OEBPS/";
  const struct {
    const char* name;
    const char* mimeType;
    Decision decision;
  } cases[] = {
      {"a.xhtml", "application/xhtml+xml", Decision::allow},
      {"a.html", "Text/HTML; charset=utf-8", Decision::allow},
      {"cover.jpg", "image/jpeg", Decision::allow},
      {"chapter.svg", "image/svg+xml", Decision::cancel},
      {"chapter.xhtml", "image/svg+xml", Decision::cancel},
      {"data.xml", "application/xml", Decision::cancel},
      {"notes.txt", "text/plain", Decision::cancel},
      {"LICENSE", "application/octet-stream", Decision::cancel},
  };
  for (const auto& [name, mimeType, decision] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(decideReaderResponse(book + name, mimeType, ReaderResponseTarget::otherResource),
              decision);
  }
}

}  // namespace
}  // namespace tomekeeper
