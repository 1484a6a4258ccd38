#include <gtest/gtest.h>

#include "session/LocationDiagnostics.h"

namespace tomekeeper {
namespace {

TEST(LocationDiagnosticsTest, ReducesEveryBracketedAssertionOfACFI) {
  EXPECT_EQ(cleanedCFIForLog(std::string("/6/4[chap01]!/4/2[para05]/1:12")), "/6/4[]!/4/2[]/1:12");
  EXPECT_EQ(cleanedCFIForLog(std::string("/6/4!/4/2/1:0")), "/6/4!/4/2/1:0");
  EXPECT_EQ(cleanedCFIForLog(std::string("/4[;s=a]")), "/4[]");
  EXPECT_EQ(cleanedCFIForLog(std::nullopt), "nil");
}

TEST(LocationDiagnosticsTest, LineWithoutLocatorOrPositionUsesTheMarkers) {
  LocationLogEntry entry;
  entry.sessionID = "S";
  entry.stage = "open.ready";
  entry.viewport = {800, 600};
  EXPECT_EQ(locationLogLine(entry),
            "session=S stage=open.ready spine=-1 cfi=nil fraction=-1.0 page=-1 pages=-1 "
            "resolution=nil viewport=(800.0, 600.0) mode=paginated layout=adaptive");
}

TEST(LocationDiagnosticsTest, LineCarriesLocatorPositionAndLayout) {
  LocationLogEntry entry;
  entry.sessionID = "S";
  entry.stage = "runtime.event";
  Locator locator;
  locator.spineIndex = 3;
  locator.cfi = "/6/8[c3]!/4/2[p1]/1:0";
  locator.sectionProgression = 0.25;
  entry.locator = locator;
  ReaderPositionResult position;
  position.page = 4;
  position.pageCount = 9;
  position.locatorResolution = "approximate";
  entry.position = position;
  entry.viewport = {1024.5, 700};
  entry.readingMode = ReadingMode::scrolled;
  entry.pageLayout = PageLayout::doublePage;
  EXPECT_EQ(locationLogLine(entry),
            "session=S stage=runtime.event spine=3 cfi=/6/8[]!/4/2[]/1:0 fraction=0.25 page=4 "
            "pages=9 resolution=Optional(\"approximate\") viewport=(1024.5, 700.0) mode=scrolled "
            "layout=doublePage");
}

}  // namespace
}  // namespace tomekeeper
