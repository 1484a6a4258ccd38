#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/BookXMLParser.h"

namespace tomekeeper {
namespace {

// What one parse of a document gave: the status, expat's error and the element names reported.
struct ParseOutcome {
  XML_Status status = XML_STATUS_ERROR;
  XML_Error error = XML_ERROR_NONE;
  std::vector<std::string> elements;
};

ParseOutcome parse(const std::string& document, XMLEntityLimits limits = {}) {
  ParseOutcome outcome;
  const XMLParserHandle parser = makeBookXMLParser(limits);
  if (!parser) {
    ADD_FAILURE() << "no parser";
    return outcome;
  }
  XML_SetUserData(parser.get(), &outcome.elements);
  XML_SetStartElementHandler(parser.get(), [](void* data, const XML_Char* name, const XML_Char**) {
    static_cast<std::vector<std::string>*>(data)->emplace_back(name);
  });
  outcome.status =
      XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE);
  outcome.error = XML_GetErrorCode(parser.get());
  return outcome;
}

// Each internal entity ten times the one before: a few hundred bytes that expand to megabytes.
std::string entityExpansionDocument() {
  std::string document = "<!DOCTYPE book [<!ENTITY e0 \"laugh\">";
  for (int level = 1; level <= 6; ++level) {
    document += "<!ENTITY e" + std::to_string(level) + " \"";
    for (int copy = 0; copy < 10; ++copy) document += "&e" + std::to_string(level - 1) + ";";
    document += "\">";
  }
  return document + "]><book>&e6;</book>";
}

TEST(BookXMLParserTest, ParsesWhatABookMayHoldAndRefusesWhatReachesOutside) {
  struct Case {
    const char* name;
    std::string document;
    XMLEntityLimits limits;
    XML_Error error;
    std::vector<std::string> elements;
  };
  const std::string separator(1, kXMLNamespaceSeparator);
  const std::vector<Case> cases = {
      {"NamesCarryTheirNamespace",
       R"(<package xmlns="http://www.idpf.org/2007/opf"><x:meta xmlns:x="urn:x"/></package>)",
       {},
       XML_ERROR_NONE,
       {"http://www.idpf.org/2007/opf" + separator + "package", "urn:x" + separator + "meta"}},
      {"ExpandsASmallInternalEntity",
       R"(<!DOCTYPE book [<!ENTITY name "Ledger">]><book>&name;</book>)",
       {},
       XML_ERROR_NONE,
       {"book"}},
      {"RefusesAnExternalEntity",
       R"(<!DOCTYPE book [<!ENTITY secret SYSTEM "file:///etc/passwd">]><book>&secret;</book>)",
       {},
       XML_ERROR_EXTERNAL_ENTITY_HANDLING,
       {"book"}},
      // Never parsed, so never fetched: the external subset is skipped and the parse goes on.
      {"SkipsAParameterEntity",
       R"(<!DOCTYPE book [<!ENTITY % outside SYSTEM "http://example.org/x.dtd"> %outside;]><book/>)",
       {},
       XML_ERROR_NONE,
       {"book"}},
      {"StopsAnEntityExpansionPastTheLimit",
       entityExpansionDocument(),
       {.maximumAmplification = 100.0F, .activationThreshold = 1024},
       XML_ERROR_AMPLIFICATION_LIMIT_BREACH,
       {"book"}},
      {"AllowsTheSameExpansionUnderLooserLimits",
       entityExpansionDocument(),
       {.maximumAmplification = 1.0e6F, .activationThreshold = 1ULL << 30},
       XML_ERROR_NONE,
       {"book"}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const ParseOutcome outcome = parse(test.document, test.limits);
    EXPECT_EQ(outcome.error, test.error) << XML_ErrorString(outcome.error);
    EXPECT_EQ(outcome.status, test.error == XML_ERROR_NONE ? XML_STATUS_OK : XML_STATUS_ERROR);
    EXPECT_EQ(outcome.elements, test.elements);
  }
}

TEST(BookXMLParserTest, LimitsThatExpatRefusesGiveNoParser) {
  // expat takes no maximum amplification below one, nor one that is not a number.
  EXPECT_FALSE(makeBookXMLParser({.maximumAmplification = 0.5F}));
  EXPECT_FALSE(
      makeBookXMLParser({.maximumAmplification = std::numeric_limits<float>::quiet_NaN()}));
  EXPECT_TRUE(makeBookXMLParser({.maximumAmplification = 1.0F}));
}

}  // namespace
}  // namespace tomekeeper
