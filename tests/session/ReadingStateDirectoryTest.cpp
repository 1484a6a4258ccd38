#include <glib.h>
#include <gtest/gtest.h>

#include "session/ReadingStateDirectory.h"

namespace tomekeeper {
namespace {

TEST(ReadingStateDirectoryTest, TakesAnAbsoluteSettingAndElseTheDefault) {
  const std::filesystem::path fallback = "/home/reader/.local/share/tomekeeper";
  const std::filesystem::path home = g_get_home_dir();
  const struct {
    const char* setting;
    std::filesystem::path expected;
  } cases[] = {
      {"", fallback},
      {"/srv/sync/reading", "/srv/sync/reading"},
      {"/srv/sync/./reading/../reading/", "/srv/sync/reading/"},
      {"~/Sync/Tomekeeper", home / "Sync/Tomekeeper"},
      {"~", home / ""},
      {"Sync/Tomekeeper", fallback},
      {"~reader/Sync", fallback},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(readingStateDirectory(testCase.setting, fallback),
              testCase.expected.lexically_normal())
        << testCase.setting;
  }
}

}  // namespace
}  // namespace tomekeeper
