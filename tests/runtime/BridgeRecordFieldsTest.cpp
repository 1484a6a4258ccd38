// The records that cross the bridge are written twice, here in C++ and in the page's TypeScript;
// the runtime's catalogue holds an example of each with every field, and both sides are checked
// against it (the page's side when it is built). Here: the native side reads every field of each
// record it decodes, and writes exactly the fields of each record it encodes.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <set>
#include <string>

#include "runtime/BridgeMessages.h"

namespace tomekeeper {
namespace {

using json = nlohmann::json;

const json& catalogueRecords() {
  static const json records = [] {
    std::ifstream file(TOMEKEEPER_RUNTIME_CATALOGUE);
    return json::parse(file).at("records");
  }();
  return records;
}

template <typename Record>
std::optional<Record> decoded(const json& value) {
  try {
    return value.get<Record>();
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<ReaderSelectionRect> decodedRect(const json& value) {
  const auto event = parseSelectionAvailabilityChanged({{"available", true}, {"rect", value}});
  return event ? event->rect : std::nullopt;
}

// Every field of the example is read: without it, the record decodes differently or not at all.
template <typename Record, typename Decode>
void expectEveryFieldRead(const std::string& name, Decode decode, std::set<std::string>& checked) {
  SCOPED_TRACE(name);
  checked.insert(name);
  const json& example = catalogueRecords().at(name);
  const std::optional<Record> whole = decode(example);
  ASSERT_TRUE(whole) << example.dump();
  for (const auto& field : example.items()) {
    json without = example;
    without.erase(field.key());
    EXPECT_NE(decode(without), whole) << "the native side does not read " << field.key();
  }
}

template <typename Record>
void expectEveryFieldRead(const std::string& name, std::set<std::string>& checked) {
  expectEveryFieldRead<Record>(name, decoded<Record>, checked);
}

// What the native side writes of a record is exactly its example.
template <typename Record>
void expectWrittenAsExample(const std::string& name, const Record& record,
                            std::set<std::string>& checked) {
  SCOPED_TRACE(name);
  checked.insert(name);
  EXPECT_EQ(json(record), catalogueRecords().at(name));
}

template <typename Record>
void expectRoundTrip(const std::string& name, std::set<std::string>& checked) {
  expectEveryFieldRead<Record>(name, checked);
  const auto record = decoded<Record>(catalogueRecords().at(name));
  if (record) expectWrittenAsExample(name, *record, checked);
}

TEST(BridgeRecordFieldsTest, EachRecordOfTheCatalogueAgreesWithTheNativeSide) {
  std::set<std::string> checked;
  // Records the native side both writes and reads.
  expectRoundTrip<TextContext>("TextContext", checked);
  expectRoundTrip<Locator>("Locator", checked);
  expectRoundTrip<PublicationDescriptor>("PublicationDescriptor", checked);
  expectRoundTrip<ResolvedTypographyFont>("ResolvedTypographyFont", checked);
  expectRoundTrip<ResolvedTypographyFontScale>("ResolvedTypographyFontScale", checked);
  expectRoundTrip<ResolvedTypographyLineHeight>("ResolvedTypographyLineHeight", checked);
  expectRoundTrip<ResolvedTypographyLetterSpacing>("ResolvedTypographyLetterSpacing", checked);
  expectRoundTrip<ResolvedTypographyPageMargins>("ResolvedTypographyPageMargins", checked);
  expectRoundTrip<TextSelection>("TextSelection", checked);
  expectRoundTrip<TableOfContentsItem>("TableOfContentsItem", checked);

  // Records the native side only writes, built from parts it reads.
  const json& records = catalogueRecords();
  const auto part = [&](const char* record, const char* field) -> const json& {
    return records.at(record).at(field);
  };
  expectWrittenAsExample(
      "ConfigureTypographyRequest",
      ConfigureTypographyRequest{
          .font = part("ConfigureTypographyRequest", "font").get<ResolvedTypographyFont>(),
          .fontScale =
              part("ConfigureTypographyRequest", "fontScale").get<ResolvedTypographyFontScale>(),
          .lineHeight =
              part("ConfigureTypographyRequest", "lineHeight").get<ResolvedTypographyLineHeight>(),
          .letterSpacing = part("ConfigureTypographyRequest", "letterSpacing")
                               .get<ResolvedTypographyLetterSpacing>(),
          .pageMargins = part("ConfigureTypographyRequest", "pageMargins")
                             .get<ResolvedTypographyPageMargins>()},
      checked);
  expectWrittenAsExample(
      "BookmarkVisibilityCandidate",
      BookmarkVisibilityCandidate{
          .id = *Uuid::fromString(part("BookmarkVisibilityCandidate", "id").get<std::string>()),
          .locator = part("BookmarkVisibilityCandidate", "locator").get<Locator>()},
      checked);

  // Records the native side only reads.
  expectEveryFieldRead<OpenPublicationResult>("OpenPublicationResult", checked);
  expectEveryFieldRead<ReaderPositionResult>("ReaderPositionResult", checked);
  expectEveryFieldRead<ConfigureTypographyResult>("ConfigureTypographyResult", checked);
  expectEveryFieldRead<ConfigureThemeResult>("ConfigureThemeResult", checked);
  expectEveryFieldRead<ConfigureReadingModeResult>("ConfigureReadingModeResult", checked);
  expectEveryFieldRead<ConfigurePageLayoutResult>("ConfigurePageLayoutResult", checked);
  expectEveryFieldRead<ConfigureScrolledContentWidthResult>("ConfigureScrolledContentWidthResult",
                                                            checked);
  expectEveryFieldRead<PublicationSearchResult>("PublicationSearchResult", checked);
  expectEveryFieldRead<ReaderSelectionRect>("ReaderSelectionRect", decodedRect, checked);

  std::set<std::string> catalogued;
  for (const auto& record : records.items()) catalogued.insert(record.key());
  EXPECT_EQ(checked, catalogued);
}

}  // namespace
}  // namespace tomekeeper
