#include "app/AboutWindow.h"

#include <gtest/gtest.h>

namespace tomekeeper::testing {
namespace {

TEST(AboutWindowDisplayTest, ShowsTheDescriptionWithItsLicenceAndCredits) {
  adw_init();
  const ApplicationDescription description{.name = "Tomekeeper",
                                           .version = "0.1.0",
                                           .developerName = "The Tomekeeper Developers",
                                           .projectLicense = "GPL-3.0-or-later",
                                           .website = "https://tomekeeper.example.org"};
  GtkWidget* window = makeAboutWindow(description, nullptr);
  AdwAboutWindow* about = ADW_ABOUT_WINDOW(window);
  EXPECT_STREQ(adw_about_window_get_application_name(about), "Tomekeeper");
  EXPECT_STREQ(adw_about_window_get_application_icon(about), "org.tomekeeper.Tomekeeper");
  EXPECT_STREQ(adw_about_window_get_version(about), "0.1.0");
  EXPECT_STREQ(adw_about_window_get_developer_name(about), "The Tomekeeper Developers");
  EXPECT_STREQ(adw_about_window_get_website(about), "https://tomekeeper.example.org");
  EXPECT_EQ(adw_about_window_get_license_type(about), GTK_LICENSE_GPL_3_0);
  const char* const* developers = adw_about_window_get_developers(about);
  ASSERT_NE(developers, nullptr);
  EXPECT_STREQ(developers[0], "The Tomekeeper Developers");
  gtk_window_destroy(GTK_WINDOW(window));

  // A licence GTK has no name for is shown as its own text.
  ApplicationDescription custom = description;
  custom.projectLicense = "LicenseRef-Example";
  window = makeAboutWindow(custom, nullptr);
  EXPECT_EQ(adw_about_window_get_license_type(ADW_ABOUT_WINDOW(window)), GTK_LICENSE_CUSTOM);
  EXPECT_STREQ(adw_about_window_get_license(ADW_ABOUT_WINDOW(window)), "LicenseRef-Example");
  gtk_window_destroy(GTK_WINDOW(window));
}

}  // namespace
}  // namespace tomekeeper::testing
