#include "app/AboutWindow.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

TEST(AboutWindowTest, ReadsTheApplicationsOwnMetainfo) {
  const std::optional<ApplicationDescription> description =
      readApplicationDescription(TOMEKEEPER_TEST_METAINFO);
  ASSERT_TRUE(description.has_value());
  EXPECT_EQ(*description, (ApplicationDescription{.name = "Tomekeeper",
                                                  .version = "0.1.0",
                                                  .developerName = "The Tomekeeper Developers",
                                                  .projectLicense = "GPL-3.0-or-later",
                                                  .website = "https://tomekeeper.example.org"}));
  EXPECT_EQ(licenseTypeOf(description->projectLicense), GTK_LICENSE_GPL_3_0);
}

TEST(AboutWindowTest, ReadsWhatItCanAndRefusesWhatIsNotAMetainfo) {
  struct Case {
    const char* name;
    const char* text;  // null: no file at all
    std::optional<ApplicationDescription> expected;
  };
  const Case cases[] = {
      {"missing file", nullptr, std::nullopt},
      {"not XML", "<component><name>Tomekeeper</nam></component>", std::nullopt},
      {"no name", "<component><developer_name>Someone</developer_name></component>",
       std::nullopt},
      {"translated name and newest release first",
       "<component><name xml:lang=\"de\">Buchhüter</name><name> Tomekeeper </name>"
       "<url type=\"bugtracker\">https://bugs.example.org</url>"
       "<developer><name>People</name></developer>"
       "<releases><release version=\"2.0\"/><release version=\"1.0\"/></releases></component>",
       ApplicationDescription{.name = "Tomekeeper", .version = "2.0", .developerName = "People"}},
  };
  TemporaryDirectory directory;
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const std::filesystem::path file = directory / (std::string(testCase.name) + ".xml");
    if (testCase.text != nullptr) std::ofstream(file) << testCase.text;
    EXPECT_EQ(readApplicationDescription(file), testCase.expected);
  }
}

}  // namespace
}  // namespace tomekeeper::testing
