#include "views/ExternalLinkConsent.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tomekeeper {
namespace {

// Records what it was asked to open, instead of asking the desktop.
class RecordingLauncher final : public ExternalURLOpening {
 public:
  bool open(const std::string& url) override {
    opened.push_back(url);
    return true;
  }
  std::vector<std::string> opened;
};

// How the reader leaves the first dialog.
enum class Answer { cancel, openLink, closeWindow, replacedByAnotherLink, consentGoesAway };

struct ConsentCase {
  const char* name;
  Answer answer;
  bool firstLaunched;
};

class ExternalLinkConsentDisplayTest : public ::testing::TestWithParam<ConsentCase> {
 protected:
  static void SetUpTestSuite() { adw_init(); }

  void SetUp() override {
    window_ = gtk_window_new();
    anchor_ = gtk_label_new("book");
    gtk_window_set_child(GTK_WINDOW(window_), anchor_);
    gtk_window_present(GTK_WINDOW(window_));
    consent_ = std::make_unique<ExternalLinkConsent>(anchor_, launcher_);
  }

  void TearDown() override {
    consent_.reset();
    gtk_window_destroy(GTK_WINDOW(window_));
  }

  GtkWidget* window_ = nullptr;
  GtkWidget* anchor_ = nullptr;
  std::shared_ptr<RecordingLauncher> launcher_ = std::make_shared<RecordingLauncher>();
  std::unique_ptr<ExternalLinkConsent> consent_;
};

// After the first address, a second is opened with "Open Link": the sentinel that shows the
// first answer launched nothing more than it should.
TEST_P(ExternalLinkConsentDisplayTest, LaunchesOnlyWhatTheReaderAgreedTo) {
  const std::string first = "https://example.invalid/a%20long/path?query=1#part";
  const std::string second = "mailto:someone@example.invalid";

  EXPECT_FALSE(consent_->open(first));
  AdwMessageDialog* dialog = consent_->dialog();
  ASSERT_NE(dialog, nullptr);
  EXPECT_EQ(std::string(adw_message_dialog_get_body(dialog)), first);
  EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), GTK_WINDOW(window_));
  EXPECT_EQ(std::string(adw_message_dialog_get_response_label(dialog, "cancel")), "Cancel");
  EXPECT_EQ(std::string(adw_message_dialog_get_response_label(dialog, "open")), "Open Link");
  // Enter and Escape cancel; only a click on the suggested button opens.
  EXPECT_STREQ(adw_message_dialog_get_default_response(dialog), "cancel");
  EXPECT_STREQ(adw_message_dialog_get_close_response(dialog), "cancel");
  EXPECT_EQ(adw_message_dialog_get_response_appearance(dialog, "open"), ADW_RESPONSE_SUGGESTED);
  EXPECT_TRUE(launcher_->opened.empty());

  switch (GetParam().answer) {
    case Answer::cancel:
      adw_message_dialog_response(dialog, "cancel");
      break;
    case Answer::openLink:
      adw_message_dialog_response(dialog, "open");
      break;
    case Answer::closeWindow:
      gtk_window_close(GTK_WINDOW(dialog));
      break;
    case Answer::replacedByAnotherLink:
      break;
    case Answer::consentGoesAway:
      // Its dialog goes with it; a new consent asks for the second address.
      g_object_add_weak_pointer(G_OBJECT(dialog), reinterpret_cast<gpointer*>(&dialog));
      consent_ = std::make_unique<ExternalLinkConsent>(anchor_, launcher_);
      EXPECT_EQ(dialog, nullptr);
      break;
  }
  EXPECT_FALSE(consent_->open(second));
  ASSERT_NE(consent_->dialog(), nullptr);
  EXPECT_EQ(std::string(adw_message_dialog_get_body(consent_->dialog())), second);
  adw_message_dialog_response(consent_->dialog(), "open");
  EXPECT_EQ(consent_->dialog(), nullptr);

  std::vector<std::string> expected;
  if (GetParam().firstLaunched) expected.push_back(first);
  expected.push_back(second);
  EXPECT_EQ(launcher_->opened, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, ExternalLinkConsentDisplayTest,
    ::testing::Values(ConsentCase{"Cancel", Answer::cancel, false},
                      ConsentCase{"OpenLink", Answer::openLink, true},
                      ConsentCase{"CloseWindow", Answer::closeWindow, false},
                      ConsentCase{"ReplacedByAnotherLink", Answer::replacedByAnotherLink, false},
                      ConsentCase{"ConsentGoesAway", Answer::consentGoesAway, false}),
    [](const ::testing::TestParamInfo<ConsentCase>& info) { return info.param.name; });

}  // namespace
}  // namespace tomekeeper
