#include "intake/EPUBContainerValidator.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <stop_token>
#include <variant>

#include "async/OperationCancelled.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "intake/IntakeFailures.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using testing::EpubBuilder;
using ValidationFailure = EPUBContainerValidationFailure;
// The package document path a validation finds (with kObfuscated appended when the book uses
// font obfuscation), or the failure it ends in.
using Outcome = std::variant<std::string, ValidationFailure>;

constexpr const char* kIDPF = "http://www.idpf.org/2008/embedding";
constexpr const char* kAdobe = "http://ns.adobe.com/pdf/enc#RC";
constexpr const char* kAES = "http://www.w3.org/2001/04/xmlenc#aes128-cbc";
const std::string kPackage = "OEBPS/package.opf";
const std::string kObfuscated = kPackage + " with obfuscated fonts";

Outcome outcomeOf(const fs::path& root) {
  try {
    const ValidatedEPUBContainer container = EPUBContainerValidator().validate(root);
    EXPECT_EQ(container.packageDocumentURL, fs::canonical(root) / container.packageDocumentPath);
    return container.packageDocumentPath +
           (container.usesFontObfuscation ? " with obfuscated fonts" : "");
  } catch (const EPUBContainerValidationFailureError& error) {
    return error.failure();
  }
}

std::string rootfiles(const std::string& elements) {
  return R"(<?xml version="1.0"?><container version="1.0" )"
         R"(xmlns="urn:oasis:names:tc:opendocument:xmlns:container"><rootfiles>)" +
         elements + "</rootfiles></container>";
}

// Ten levels of ten references each: 10^9 copies of "lol" if nothing stopped it.
std::string billionLaughs(const std::string& root, const std::string& use) {
  std::string doctype = "<?xml version=\"1.0\"?>\n<!DOCTYPE " + root + " [\n<!ENTITY l0 \"lol\">\n";
  for (int level = 1; level <= 9; ++level) {
    doctype += "<!ENTITY l" + std::to_string(level) + " \"";
    for (int copy = 0; copy < 10; ++copy) doctype += "&l" + std::to_string(level - 1) + ";";
    doctype += "\">\n";
  }
  return doctype + "]>\n" + use;
}

// An extracted plain book at root_: mimetype, container and package document.
class EPUBContainerValidatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile("mimetype", "application/epub+zip");
    writeFile("META-INF/container.xml", EpubBuilder::containerXML(kPackage));
    writeFile(kPackage, "<package/>");
  }

  void writeFile(const std::string& relative, const std::string& contents) {
    testing::writeFile(root_ / relative, contents);
  }

  testing::TemporaryDirectory directory_;
  fs::path root_ = directory_ / "Extracted";
};

TEST_F(EPUBContainerValidatorTest, DescribesAPlainBookReachedByAnyPath) {
  fs::create_directory_symlink(root_, directory_ / "link");
  for (const fs::path& path : {root_, directory_ / "other" / ".." / "link"}) {
    SCOPED_TRACE(path);
    const ValidatedEPUBContainer result = EPUBContainerValidator().validate(path);
    EXPECT_EQ(result.publicationRoot, fs::canonical(root_));
    EXPECT_EQ(result.packageDocumentURL, fs::canonical(root_) / kPackage);
    EXPECT_EQ(result.packageDocumentPath, kPackage);
    EXPECT_FALSE(result.usesFontObfuscation);
  }
}

// Gone, a directory, a symbolic link, or two names that differ only in case: the container is
// not there. One name in another case is.
TEST_F(EPUBContainerValidatorTest, FindsTheContainerOnlyAsAFileOfItsOwn) {
  writeFile("elsewhere.xml", EpubBuilder::containerXML(kPackage));
  const fs::path container = root_ / "META-INF/container.xml";
  const struct {
    const char* name;
    std::function<void()> replace;
    Outcome outcome;
  } cases[] = {
      {"gone", [] {}, ValidationFailure::missingContainer},
      {"a directory", [&] { fs::create_directories(container); },
       ValidationFailure::missingContainer},
      {"a symbolic link", [&] { fs::create_symlink(root_ / "elsewhere.xml", container); },
       ValidationFailure::missingContainer},
      {"one name in another case",
       [&] { writeFile("META-INF/Container.xml", EpubBuilder::containerXML(kPackage)); }, kPackage},
      {"two names that differ in case",
       [&] {
         writeFile("META-INF/Container.xml", EpubBuilder::containerXML(kPackage));
         writeFile("META-INF/CONTAINER.XML", EpubBuilder::containerXML(kPackage));
       },
       ValidationFailure::missingContainer},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    for (const char* name : {"container.xml", "Container.xml", "CONTAINER.XML"}) {
      fs::remove_all(root_ / "META-INF" / name);
    }
    testCase.replace();
    EXPECT_EQ(outcomeOf(root_), testCase.outcome);
  }
}

// Containers as written: their size, their XML and entities, their rootfiles and where those
// lead.
TEST_F(EPUBContainerValidatorTest, JudgesTheContainerDocument) {
  std::string mebibyte = EpubBuilder::containerXML(kPackage);
  mebibyte += std::string(1048576 - mebibyte.size(), ' ');
  writeFile("secret.dtd", "<!ENTITY path \"OEBPS/package.opf\">");
  const std::string secret = "file://" + (root_ / "secret.dtd").string();
  const std::string usePath = R"(<container><rootfiles><rootfile full-path="&path;"/>)"
                              "</rootfiles></container>";
  writeFile("OEBPS/second.opf", "<package/>");
  writeFile("../outside.opf", "<package/>");
  fs::create_symlink(directory_ / "outside.opf", root_ / "OEBPS/linked.opf");
  fs::create_directories(root_ / "OEBPS/folder.opf");
  const auto refusedPath = [](const char* path) {
    return std::tuple(path, EpubBuilder::containerXML(path),
                      Outcome(ValidationFailure::invalidRootfilePath));
  };
  const std::tuple<const char*, std::string, Outcome> cases[] = {
      {"exactly one mebibyte", mebibyte, kPackage},
      {"one byte more", mebibyte + " ", ValidationFailure::missingContainer},
      {"broken XML", "<container><rootfiles>", ValidationFailure::malformedContainer},
      {"no XML at all", "", ValidationFailure::malformedContainer},
      {"an undefined entity", rootfiles("<rootfile full-path=\"&undefined;\"/>"),
       ValidationFailure::malformedContainer},
      {"a doctype without entities",
       "<!DOCTYPE container><container><rootfiles>"
       "<rootfile full-path=\"OEBPS/package.opf\"/></rootfiles></container>",
       kPackage},
      {"no rootfiles", rootfiles(""), ValidationFailure::missingRootfile},
      {"a rootfile without a full path",
       rootfiles(R"(<rootfile media-type="application/oebps-package+xml"/>)"),
       ValidationFailure::missingRootfile},
      {"local names whatever the prefix",
       R"(<c:container xmlns:c="urn:oasis:names:tc:opendocument:xmlns:container">)"
       R"(<c:rootfiles><c:rootfile full-path="OEBPS/package.opf"/></c:rootfiles>)"
       R"(</c:container>)",
       kPackage},
      {"a name in another letter case", rootfiles(R"(<RootFile full-path="OEBPS/package.opf"/>)"),
       ValidationFailure::missingRootfile},
      {"an internal entity",
       "<!DOCTYPE container [ <!ENTITY path \"OEBPS/package.opf\"> ]>" + usePath, kPackage},
      {"nested internal entities within the limits",
       R"(<!DOCTYPE container [ <!ENTITY a "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa">
          <!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">
          <!ENTITY path "OEBPS/package.opf"> ]>)"
       "<container><rootfiles><rootfile full-path=\"&path;\" media-type=\"&b;\"/>"
       "</rootfiles></container>",
       kPackage},
      {"an external entity",
       "<!DOCTYPE container [ <!ENTITY path SYSTEM \"" + secret + "\"> ]>" + usePath,
       ValidationFailure::malformedContainer},
      {"a public external entity",
       "<!DOCTYPE container [ <!ENTITY path PUBLIC \"-//x//y\" \"" + secret + "\"> ]>" + usePath,
       ValidationFailure::malformedContainer},
      {"a parameter entity reference to an external DTD",
       "<!DOCTYPE container [ <!ENTITY % dtd SYSTEM \"" + secret + "\"> %dtd; ]>" + usePath,
       ValidationFailure::malformedContainer},
      {"an internal parameter entity reference",
       "<!DOCTYPE container [ <!ENTITY % p \"<!ENTITY path 'OEBPS/package.opf'>\"> %p; ]>" +
           usePath,
       ValidationFailure::malformedContainer},
      {"an external DTD subset", "<!DOCTYPE container SYSTEM \"" + secret + "\">" + usePath,
       ValidationFailure::malformedContainer},
      {"an entity the doctype does not declare", "<!DOCTYPE container>" + usePath,
       ValidationFailure::malformedContainer},
      {"amplification past the limits",
       R"(<!DOCTYPE container [ <!ENTITY a "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa">
          <!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">
          <!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;">
          <!ENTITY d "&c;&c;&c;&c;&c;"> ]>)"
       "<container><rootfiles><rootfile full-path=\"OEBPS/package.opf\" media-type=\"&d;\"/>"
       "</rootfiles></container>",
       ValidationFailure::malformedContainer},
      {"billion laughs",
       billionLaughs("container",
                     "<container><rootfiles><rootfile full-path=\"OEBPS/package.opf\" "
                     "media-type=\"&l9;\"/></rootfiles></container>"),
       ValidationFailure::malformedContainer},
      {"the rootfile of the package type first",
       rootfiles(R"(<rootfile full-path="OEBPS/missing.opf" media-type="text/plain"/>)"
                 R"(<rootfile full-path="OEBPS/second.opf" )"
                 R"(media-type="application/oebps-package+xml"/>)"),
       "OEBPS/second.opf"},
      {"the first rootfile when none has the package type",
       rootfiles(R"(<rootfile full-path="OEBPS/package.opf" media-type="text/plain"/>)"
                 R"(<rootfile full-path="OEBPS/missing.opf"/>)"),
       kPackage},
      refusedPath("../package.opf"),
      refusedPath("OEBPS/"),
      refusedPath("/etc/passwd"),
      refusedPath("OEBPS\\package.opf"),
      refusedPath("C:/package.opf"),
      refusedPath("./OEBPS/package.opf"),
      refusedPath("OEBPS//package.opf"),
      {"an empty rootfile path", rootfiles(R"(<rootfile full-path=""/>)"),
       ValidationFailure::invalidRootfilePath},
      {"a link that leads out of the publication", EpubBuilder::containerXML("OEBPS/linked.opf"),
       ValidationFailure::invalidRootfilePath},
      {"a package document that is missing", EpubBuilder::containerXML("OEBPS/absent.opf"),
       ValidationFailure::unavailablePackageDocument},
      {"a package document that is a directory", EpubBuilder::containerXML("OEBPS/folder.opf"),
       ValidationFailure::unavailablePackageDocument},
  };
  for (const auto& [name, xml, outcome] : cases) {
    SCOPED_TRACE(name);
    writeFile("META-INF/container.xml", xml);
    EXPECT_EQ(outcomeOf(root_), outcome);
  }
}

// Rights and encryption metadata: only the two font obfuscation algorithms pass; any rights
// file, another algorithm, or encryption metadata that cannot be read refuse the book, rights
// first.
TEST_F(EPUBContainerValidatorTest, JudgesRightsAndEncryptionMetadata) {
  std::string large = EpubBuilder::encryptionXML({kIDPF});
  large += std::string(1048577 - large.size(), ' ');
  std::string withEntity = EpubBuilder::encryptionXML({"&idpf;"});
  withEntity.insert(
      withEntity.find("?>") + 2,
      "<!DOCTYPE encryption [ <!ENTITY idpf \"http://www.idpf.org/2008/embedding\"> ]>");
  const struct {
    const char* name;
    std::optional<std::string> rights;
    std::optional<std::string> encryption;
    Outcome outcome;
  } cases[] = {
      {"the two obfuscation algorithms", std::nullopt,
       EpubBuilder::encryptionXML({kIDPF, kAdobe, kIDPF}), kObfuscated},
      {"an algorithm through an internal entity", std::nullopt, withEntity, kObfuscated},
      {"an empty rights file", "", std::nullopt, ValidationFailure::unsupportedDRM},
      {"rights before broken encryption", "<rights/>", "broken", ValidationFailure::unsupportedDRM},
      {"a foreign algorithm", std::nullopt, EpubBuilder::encryptionXML({kIDPF, kAES}),
       ValidationFailure::unsupportedDRM},
      {"an algorithm that only looks like obfuscation", std::nullopt,
       EpubBuilder::encryptionXML({"http://www.idpf.org/2008/embedding/"}),
       ValidationFailure::unsupportedDRM},
      {"no method named", std::nullopt, EpubBuilder::encryptionXML({}),
       ValidationFailure::malformedEncryptionMetadata},
      {"a method without an algorithm", std::nullopt,
       R"(<encryption xmlns:enc="http://www.w3.org/2001/04/xmlenc#">)"
       R"(<enc:EncryptedData><enc:EncryptionMethod/></enc:EncryptedData></encryption>)",
       ValidationFailure::malformedEncryptionMetadata},
      {"broken XML", std::nullopt, "<encryption>", ValidationFailure::malformedEncryptionMetadata},
      {"above one mebibyte", std::nullopt, large, ValidationFailure::malformedEncryptionMetadata},
      {"billion laughs", std::nullopt,
       billionLaughs("encryption",
                     "<encryption><EncryptionMethod Algorithm=\"&l9;\"/>"
                     "</encryption>"),
       ValidationFailure::malformedEncryptionMetadata},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    fs::remove_all(root_ / "META-INF/rights.xml");
    fs::remove_all(root_ / "META-INF/encryption.xml");
    if (testCase.rights) writeFile("META-INF/rights.xml", *testCase.rights);
    if (testCase.encryption) writeFile("META-INF/encryption.xml", *testCase.encryption);
    EXPECT_EQ(outcomeOf(root_), testCase.outcome);
  }
  fs::remove_all(root_ / "META-INF/encryption.xml");
  fs::create_directories(root_ / "META-INF/encryption.xml");
  EXPECT_EQ(outcomeOf(root_), Outcome(ValidationFailure::malformedEncryptionMetadata))
      << "a directory";
}

// Renames an entry of a builder book, as an archive made on a system that ignores case might.
void renameEntry(EpubBuilder& book, const std::string& from, const std::string& to) {
  book.archive().entryNamed(from).name = to;
}

// Books taken in by the inspector and extractor, whose names differ in case from the usual.
TEST_F(EPUBContainerValidatorTest, FindsMetadataAndRootfileWithoutRegardToLetterCase) {
  const struct {
    const char* name;
    std::function<void(EpubBuilder&)> change;
    Outcome outcome;
  } cases[] = {
      {"container in another case",
       [](EpubBuilder& book) {
         renameEntry(book, "META-INF/container.xml", "META-INF/Container.XML");
       },
       kPackage},
      {"META-INF in another case",
       [](EpubBuilder& book) {
         renameEntry(book, "META-INF/container.xml", "Meta-Inf/container.xml");
       },
       kPackage},
      {"rootfile path in another case",
       [](EpubBuilder& book) {
         book.withContainerXML(EpubBuilder::containerXML("oebps/PACKAGE.opf"));
       },
       kPackage},
      {"rootfile that is missing in any case",
       [](EpubBuilder& book) {
         book.withContainerXML(EpubBuilder::containerXML("OEBPS/other.opf"));
       },
       ValidationFailure::unavailablePackageDocument},
      {"rights file in another case",
       [](EpubBuilder& book) { book.addFile("META-INF/Rights.XML", "<rights/>"); },
       ValidationFailure::unsupportedDRM},
      {"encryption file in another case",
       [](EpubBuilder& book) {
         book.addFile("meta-inf/ENCRYPTION.xml", EpubBuilder::encryptionXML({kAES}));
         renameEntry(book, "META-INF/container.xml", "meta-inf/container.xml");
       },
       ValidationFailure::unsupportedDRM},
  };
  int bookNumber = 0;
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EpubBuilder book;
    testCase.change(book);
    const fs::path archive = directory_ / (std::to_string(++bookNumber) + ".epub");
    const fs::path extracted = directory_ / std::to_string(bookNumber);
    book.writeTo(archive);
    EPUBArchiveExtractor().extract(archive, EPUBArchiveInspector().inspectBlocking(archive),
                                   extracted);
    EXPECT_EQ(outcomeOf(extracted), testCase.outcome);
  }
}

TEST_F(EPUBContainerValidatorTest, ChecksForCancellationFirst) {
  std::stop_source source;
  source.request_stop();
  EXPECT_THROW(EPUBContainerValidator().validate(root_, source.get_token()),
               async::OperationCancelled);
}

}  // namespace
}  // namespace tomekeeper
