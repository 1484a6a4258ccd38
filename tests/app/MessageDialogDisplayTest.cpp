#include <gtest/gtest.h>

#include <optional>

#include "ShellDisplaySupport.h"
#include "app/GtkShellPlatform.h"
#include "async/Spawn.h"

namespace tomekeeper::testing {
namespace {

async::Task<void> runInto(AlertContent content, std::optional<std::size_t>* chosen) {
  *chosen = co_await runMessageDialog(nullptr, std::move(content));
}

struct AlertCase {
  const char* name;
  AlertContent content;
  // The response ids ("0", "1") the dialog gives Enter and Escape, and the action's appearance.
  const char* defaultResponse;
  const char* closeResponse;
  AdwResponseAppearance actionAppearance;
};

class MessageDialogDisplayTest : public ::testing::TestWithParam<AlertCase> {
 protected:
  static void SetUpTestSuite() { adw_init(); }
};

TEST_P(MessageDialogDisplayTest, PutsCancelFirstAndKeepsEnterSafe) {
  const AlertCase& alert = GetParam();
  std::optional<std::size_t> chosen;
  async::spawn(runInto(alert.content, &chosen));
  AdwMessageDialog* dialog = nullptr;
  ASSERT_TRUE(iterateUntil([&] {
    const auto shown = shownWindowsOfType(ADW_TYPE_MESSAGE_DIALOG);
    dialog = shown.empty() ? nullptr : ADW_MESSAGE_DIALOG(shown.front());
    return dialog != nullptr;
  }));
  const auto& buttons = alert.content.buttons;
  for (std::size_t index = 0; index < buttons.size(); ++index) {
    EXPECT_STREQ(adw_message_dialog_get_response_label(dialog, std::to_string(index).c_str()),
                 buttons[index].c_str());
  }
  EXPECT_STREQ(adw_message_dialog_get_default_response(dialog), alert.defaultResponse);
  EXPECT_STREQ(adw_message_dialog_get_close_response(dialog), alert.closeResponse);
  const std::string action = std::to_string(buttons.size() - 1);
  EXPECT_EQ(adw_message_dialog_get_response_appearance(dialog, action.c_str()),
            alert.actionAppearance);

  // Escape answers with the close response: the first button.
  adw_message_dialog_response(dialog, adw_message_dialog_get_close_response(dialog));
  ASSERT_TRUE(iterateUntil([&] { return chosen.has_value(); }));
  EXPECT_EQ(*chosen, 0U);
  // Its buttons close it after their response; a response sent directly leaves that to us.
  gtk_window_destroy(GTK_WINDOW(dialog));
}

INSTANTIATE_TEST_SUITE_P(
    Alerts, MessageDialogDisplayTest,
    ::testing::Values(
        AlertCase{"OneButton",
                  {AlertStyle::warning, "Choose an EPUB file", "Only .epub files.", {"OK"}},
                  "0",
                  "0",
                  ADW_RESPONSE_DEFAULT},
        AlertCase{"SuggestedActionIsTheDefault",
                  {AlertStyle::informational,
                   "The original EPUB can\u2019t be accessed",
                   "Locate it.",
                   {"Not Now", "Locate EPUB\u2026"}},
                  "1",
                  "0",
                  ADW_RESPONSE_SUGGESTED},
        AlertCase{"DestructiveActionLeavesEnterToCancel",
                  {AlertStyle::warning,
                   "Clear Reading Cache?",
                   "Frees storage.",
                   {"Cancel", "Clear Cache"},
                   AlertAction::destructive},
                  "0",
                  "0",
                  ADW_RESPONSE_DESTRUCTIVE}),
    [](const ::testing::TestParamInfo<AlertCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tomekeeper::testing
