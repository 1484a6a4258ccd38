#include "intake/EPUBContainerValidator.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <optional>
#include <stop_token>

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

constexpr const char* kIDPF = "http://www.idpf.org/2008/embedding";
constexpr const char* kAdobe = "http://ns.adobe.com/pdf/enc#RC";

class EPUBContainerValidatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile("mimetype", "application/epub+zip");
    writeFile("META-INF/container.xml", EpubBuilder::containerXML("OEBPS/package.opf"));
    writeFile("OEBPS/package.opf", "<package/>");
  }

  void writeFile(const std::string& relative, const std::string& contents) {
    const fs::path path = root_ / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
  }

  std::optional<ValidationFailure> failure() {
    try {
      EPUBContainerValidator().validate(root_);
      return std::nullopt;
    } catch (const EPUBContainerValidationFailureError& error) {
      return error.failure();
    }
  }

  std::optional<ValidationFailure> failureWithContainer(const std::string& xml) {
    writeFile("META-INF/container.xml", xml);
    return failure();
  }

  static std::string rootfiles(const std::string& elements) {
    return R"(<?xml version="1.0"?><container version="1.0" )"
           R"(xmlns="urn:oasis:names:tc:opendocument:xmlns:container"><rootfiles>)" +
           elements + "</rootfiles></container>";
  }

  testing::TemporaryDirectory directory_;
  fs::path root_ = directory_ / "Extracted";
};

TEST_F(EPUBContainerValidatorTest, FindsThePackageDocumentOfAPlainBook) {
  const ValidatedEPUBContainer result = EPUBContainerValidator().validate(root_);
  const fs::path canonicalRoot = fs::canonical(root_);
  EXPECT_EQ(result.publicationRoot, canonicalRoot);
  EXPECT_EQ(result.packageDocumentURL, canonicalRoot / "OEBPS/package.opf");
  EXPECT_EQ(result.packageDocumentPath, "OEBPS/package.opf");
  EXPECT_FALSE(result.usesFontObfuscation);
}

TEST_F(EPUBContainerValidatorTest, ResolvesALinkedRootAndAStandardisedPath) {
  fs::create_directory_symlink(root_, directory_ / "link");
  const ValidatedEPUBContainer result =
      EPUBContainerValidator().validate(directory_ / "other" / ".." / "link");
  EXPECT_EQ(result.publicationRoot, fs::canonical(root_));
}

// Gone, a directory, or a symbolic link: the container is not there.
TEST_F(EPUBContainerValidatorTest, RefusesAContainerThatIsNotAFileOfItsOwn) {
  writeFile("elsewhere.xml", EpubBuilder::containerXML("OEBPS/package.opf"));
  const fs::path container = root_ / "META-INF/container.xml";
  for (const auto& replace : std::vector<std::function<void()>>{
           [] {}, [&] { fs::create_directories(container); },
           [&] { fs::create_symlink(root_ / "elsewhere.xml", container); }}) {
    fs::remove_all(container);
    replace();
    EXPECT_EQ(failure(), ValidationFailure::missingContainer);
  }
}

// Containers as written: their size, their XML, their rootfiles.
TEST_F(EPUBContainerValidatorTest, JudgesTheContainerDocument) {
  std::string mebibyte = EpubBuilder::containerXML("OEBPS/package.opf");
  mebibyte += std::string(1048576 - mebibyte.size(), ' ');
  const struct {
    const char* name;
    std::string xml;
    std::optional<ValidationFailure> failure;
  } cases[] = {
      {"exactly one mebibyte", mebibyte, std::nullopt},
      {"one byte more", mebibyte + " ", ValidationFailure::missingContainer},
      {"broken XML", "<container><rootfiles>", ValidationFailure::malformedContainer},
      {"no XML at all", "", ValidationFailure::malformedContainer},
      {"an undefined entity", rootfiles("<rootfile full-path=\"&undefined;\"/>"),
       ValidationFailure::malformedContainer},
      {"a doctype without entities",
       "<!DOCTYPE container><container><rootfiles>"
       "<rootfile full-path=\"OEBPS/package.opf\"/></rootfiles></container>",
       std::nullopt},
      {"no rootfiles", rootfiles(""), ValidationFailure::missingRootfile},
      {"a rootfile without a full path",
       rootfiles(R"(<rootfile media-type="application/oebps-package+xml"/>)"),
       ValidationFailure::missingRootfile},
      {"local names whatever the prefix",
       R"(<c:container xmlns:c="urn:oasis:names:tc:opendocument:xmlns:container">)"
       R"(<c:rootfiles><c:rootfile full-path="OEBPS/package.opf"/></c:rootfiles>)"
       R"(</c:container>)",
       std::nullopt},
      {"a name in another letter case", rootfiles(R"(<RootFile full-path="OEBPS/package.opf"/>)"),
       ValidationFailure::missingRootfile},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(failureWithContainer(testCase.xml), testCase.failure) << testCase.name;
  }
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

TEST_F(EPUBContainerValidatorTest, ExpandsInternalEntitiesAndRefusesAllThatReachesOutside) {
  writeFile("secret.dtd", "<!ENTITY path \"OEBPS/package.opf\">");
  const std::string secret = "file://" + (root_ / "secret.dtd").string();
  const std::string usePath =
      "<container><rootfiles><rootfile full-path=\"&path;\"/>"
      "</rootfiles></container>";
  struct Case {
    const char* name;
    std::string document;
    std::optional<ValidationFailure> expected;
  };
  const Case cases[] = {
      {"internal entity", "<!DOCTYPE container [ <!ENTITY path \"OEBPS/package.opf\"> ]>" + usePath,
       std::nullopt},
      {"nested internal entities within the limits",
       R"(<!DOCTYPE container [ <!ENTITY a "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa">
          <!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">
          <!ENTITY path "OEBPS/package.opf"> ]>)"
       "<container><rootfiles><rootfile full-path=\"&path;\" media-type=\"&b;\"/>"
       "</rootfiles></container>",
       std::nullopt},
      {"external entity",
       "<!DOCTYPE container [ <!ENTITY path SYSTEM \"" + secret + "\"> ]>" + usePath,
       ValidationFailure::malformedContainer},
      {"public external entity",
       "<!DOCTYPE container [ <!ENTITY path PUBLIC \"-//x//y\" \"" + secret + "\"> ]>" + usePath,
       ValidationFailure::malformedContainer},
      {"parameter entity reference to an external DTD",
       "<!DOCTYPE container [ <!ENTITY % dtd SYSTEM \"" + secret + "\"> %dtd; ]>" + usePath,
       ValidationFailure::malformedContainer},
      {"internal parameter entity reference",
       "<!DOCTYPE container [ <!ENTITY % p \"<!ENTITY path 'OEBPS/package.opf'>\"> %p; ]>" +
           usePath,
       ValidationFailure::malformedContainer},
      {"external DTD subset", "<!DOCTYPE container SYSTEM \"" + secret + "\">" + usePath,
       ValidationFailure::malformedContainer},
      {"undefined entity", "<!DOCTYPE container>" + usePath, ValidationFailure::malformedContainer},
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
  };
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EXPECT_EQ(failureWithContainer(testCase.document), testCase.expected);
  }
}

TEST_F(EPUBContainerValidatorTest, EncryptionMetadataMayUseInternalEntitiesWithinTheLimits) {
  std::string withEntity = EpubBuilder::encryptionXML({"&idpf;"});
  withEntity.insert(
      withEntity.find("?>") + 2,
      "<!DOCTYPE encryption [ <!ENTITY idpf \"http://www.idpf.org/2008/embedding\"> ]>");
  writeFile("META-INF/encryption.xml", withEntity);
  EXPECT_TRUE(EPUBContainerValidator().validate(root_).usesFontObfuscation);
  writeFile("META-INF/encryption.xml",
            billionLaughs("encryption",
                          "<encryption><EncryptionMethod Algorithm=\"&l9;\"/>"
                          "</encryption>"));
  EXPECT_EQ(failure(), ValidationFailure::malformedEncryptionMetadata);
}

TEST_F(EPUBContainerValidatorTest, PrefersTheRootfileOfThePackageType) {
  writeFile("OEBPS/second.opf", "<package/>");
  writeFile("META-INF/container.xml",
            rootfiles(R"(<rootfile full-path="OEBPS/missing.opf" media-type="text/plain"/>)"
                      R"(<rootfile full-path="OEBPS/second.opf" )"
                      R"(media-type="application/oebps-package+xml"/>)"));
  EXPECT_EQ(EPUBContainerValidator().validate(root_).packageDocumentPath, "OEBPS/second.opf");
}

TEST_F(EPUBContainerValidatorTest, TakesTheFirstRootfileWhenNoneHasThePackageType) {
  writeFile("META-INF/container.xml",
            rootfiles(R"(<rootfile full-path="OEBPS/package.opf" media-type="text/plain"/>)"
                      R"(<rootfile full-path="OEBPS/missing.opf"/>)"));
  EXPECT_EQ(EPUBContainerValidator().validate(root_).packageDocumentPath, "OEBPS/package.opf");
}

TEST_F(EPUBContainerValidatorTest, RefusesRootfilePathsThatFailValidation) {
  for (const char* path : {"../package.opf", "OEBPS/", "/etc/passwd", "OEBPS\\package.opf",
                           "C:/package.opf", "./OEBPS/package.opf", "OEBPS//package.opf"}) {
    EXPECT_EQ(failureWithContainer(EpubBuilder::containerXML(path)),
              ValidationFailure::invalidRootfilePath)
        << path;
  }
  EXPECT_EQ(failureWithContainer(rootfiles(R"(<rootfile full-path=""/>)")),
            ValidationFailure::invalidRootfilePath);
}

TEST_F(EPUBContainerValidatorTest, RefusesALinkThatLeadsOutOfThePublication) {
  writeFile("../outside.opf", "<package/>");
  fs::create_symlink(directory_ / "outside.opf", root_ / "OEBPS/linked.opf");
  EXPECT_EQ(failureWithContainer(EpubBuilder::containerXML("OEBPS/linked.opf")),
            ValidationFailure::invalidRootfilePath);
}

TEST_F(EPUBContainerValidatorTest, RefusesAPackageDocumentThatIsMissingOrADirectory) {
  EXPECT_EQ(failureWithContainer(EpubBuilder::containerXML("OEBPS/absent.opf")),
            ValidationFailure::unavailablePackageDocument);
  fs::create_directories(root_ / "OEBPS/folder.opf");
  EXPECT_EQ(failureWithContainer(EpubBuilder::containerXML("OEBPS/folder.opf")),
            ValidationFailure::unavailablePackageDocument);
}

TEST_F(EPUBContainerValidatorTest, TheTwoObfuscationAlgorithmsMeanObfuscatedFonts) {
  writeFile("META-INF/encryption.xml", EpubBuilder::encryptionXML({kIDPF, kAdobe, kIDPF}));
  EXPECT_TRUE(EPUBContainerValidator().validate(root_).usesFontObfuscation);
}

// Rights and encryption metadata: any rights file, an algorithm other than font obfuscation,
// and encryption metadata that cannot be read all refuse the book; rights come first.
TEST_F(EPUBContainerValidatorTest, RefusesDRMAndUnreadableEncryptionMetadata) {
  std::string large = EpubBuilder::encryptionXML({kIDPF});
  large += std::string(1048577 - large.size(), ' ');
  const struct {
    const char* name;
    std::optional<std::string> rights;
    std::optional<std::string> encryption;
    ValidationFailure failure;
  } cases[] = {
      {"an empty rights file", "", std::nullopt, ValidationFailure::unsupportedDRM},
      {"rights before broken encryption", "<rights/>", "broken", ValidationFailure::unsupportedDRM},
      {"a foreign algorithm", std::nullopt,
       EpubBuilder::encryptionXML({kIDPF, "http://www.w3.org/2001/04/xmlenc#aes128-cbc"}),
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
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    fs::remove_all(root_ / "META-INF/rights.xml");
    fs::remove_all(root_ / "META-INF/encryption.xml");
    if (testCase.rights) writeFile("META-INF/rights.xml", *testCase.rights);
    if (testCase.encryption) writeFile("META-INF/encryption.xml", *testCase.encryption);
    EXPECT_EQ(failure(), testCase.failure);
  }
  fs::remove_all(root_ / "META-INF/encryption.xml");
  fs::create_directories(root_ / "META-INF/encryption.xml");
  EXPECT_EQ(failure(), ValidationFailure::malformedEncryptionMetadata) << "a directory";
}

// Renames an entry of a builder book, as an archive made on a system that ignores case might.
void renameEntry(EpubBuilder& book, const std::string& from, const std::string& to) {
  for (std::size_t index = 0; index < book.archive().entryCount(); ++index) {
    if (book.archive().entry(index).name == from) book.archive().entry(index).name = to;
  }
}

TEST_F(EPUBContainerValidatorTest, FindsMetadataAndRootfileWithoutRegardToLetterCase) {
  struct Case {
    const char* name;
    std::function<void(EpubBuilder&)> change;
    std::optional<ValidationFailure> expected;
  };
  const Case cases[] = {
      {"container in another case",
       [](EpubBuilder& book) {
         renameEntry(book, "META-INF/container.xml", "META-INF/Container.XML");
       },
       std::nullopt},
      {"META-INF in another case",
       [](EpubBuilder& book) {
         renameEntry(book, "META-INF/container.xml", "Meta-Inf/container.xml");
       },
       std::nullopt},
      {"rootfile path in another case",
       [](EpubBuilder& book) {
         book.withContainerXML(EpubBuilder::containerXML("oebps/PACKAGE.opf"));
       },
       std::nullopt},
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
         book.addFile("meta-inf/ENCRYPTION.xml",
                      EpubBuilder::encryptionXML({"http://www.w3.org/2001/04/xmlenc#aes128-cbc"}));
         renameEntry(book, "META-INF/container.xml", "meta-inf/container.xml");
       },
       ValidationFailure::unsupportedDRM},
  };
  int bookNumber = 0;
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EpubBuilder book;
    testCase.change(book);
    const fs::path archive = directory_ / (std::to_string(++bookNumber) + ".epub");
    const fs::path extracted = directory_ / std::to_string(bookNumber);
    book.writeTo(archive);
    EPUBArchiveExtractor().extract(archive, EPUBArchiveInspector().inspectBlocking(archive),
                                   extracted);
    try {
      const ValidatedEPUBContainer container = EPUBContainerValidator().validate(extracted);
      EXPECT_EQ(testCase.expected, std::nullopt);
      EXPECT_EQ(container.packageDocumentPath, EpubBuilder::kPackageDocumentPath);
      EXPECT_EQ(container.packageDocumentURL,
                fs::canonical(extracted) / EpubBuilder::kPackageDocumentPath);
    } catch (const EPUBContainerValidationFailureError& error) {
      EXPECT_EQ(error.failure(), testCase.expected);
    }
  }
}

TEST_F(EPUBContainerValidatorTest, TwoNamesDifferingOnlyInCaseMatchNeither) {
  fs::remove(root_ / "META-INF/container.xml");
  writeFile("META-INF/Container.xml", EpubBuilder::containerXML("OEBPS/package.opf"));
  EXPECT_EQ(failure(), std::nullopt);
  writeFile("META-INF/CONTAINER.XML", EpubBuilder::containerXML("OEBPS/package.opf"));
  EXPECT_EQ(failure(), ValidationFailure::missingContainer);
}

TEST_F(EPUBContainerValidatorTest, InspectionStillRefusesEntriesDifferingOnlyInCase) {
  EpubBuilder book;
  book.addFile("META-INF/CONTAINER.XML", EpubBuilder::containerXML("OEBPS/package.opf"));
  const fs::path archive = directory_ / "book.epub";
  book.writeTo(archive);
  try {
    EPUBArchiveInspector().inspectBlocking(archive);
    ADD_FAILURE() << "inspection passed";
  } catch (const EPUBArchiveInspectionFailureError& error) {
    EXPECT_EQ(error.failure(), EPUBArchiveInspectionFailure::conflictingPath);
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
