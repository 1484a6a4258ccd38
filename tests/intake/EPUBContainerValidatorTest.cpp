#include "intake/EPUBContainerValidator.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <stop_token>

#include "async/OperationCancelled.h"
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

TEST_F(EPUBContainerValidatorTest, RefusesAMissingContainer) {
  fs::remove(root_ / "META-INF/container.xml");
  EXPECT_EQ(failure(), ValidationFailure::missingContainer);
}

TEST_F(EPUBContainerValidatorTest, RefusesAContainerThatIsADirectory) {
  fs::remove(root_ / "META-INF/container.xml");
  fs::create_directories(root_ / "META-INF/container.xml");
  EXPECT_EQ(failure(), ValidationFailure::missingContainer);
}

TEST_F(EPUBContainerValidatorTest, RefusesAContainerThatIsASymbolicLink) {
  writeFile("elsewhere.xml", EpubBuilder::containerXML("OEBPS/package.opf"));
  fs::remove(root_ / "META-INF/container.xml");
  fs::create_symlink(root_ / "elsewhere.xml", root_ / "META-INF/container.xml");
  EXPECT_EQ(failure(), ValidationFailure::missingContainer);
}

TEST_F(EPUBContainerValidatorTest, AContainerOfExactlyOneMebibytePassesAndOneByteMoreDoesNot) {
  std::string xml = EpubBuilder::containerXML("OEBPS/package.opf");
  xml += std::string(1048576 - xml.size(), ' ');
  EXPECT_EQ(failureWithContainer(xml), std::nullopt);
  EXPECT_EQ(failureWithContainer(xml + " "), ValidationFailure::missingContainer);
}

TEST_F(EPUBContainerValidatorTest, RefusesBrokenXML) {
  EXPECT_EQ(failureWithContainer("<container><rootfiles>"), ValidationFailure::malformedContainer);
  EXPECT_EQ(failureWithContainer(""), ValidationFailure::malformedContainer);
  EXPECT_EQ(failureWithContainer(rootfiles("<rootfile full-path=\"&undefined;\"/>")),
            ValidationFailure::malformedContainer);
}

TEST_F(EPUBContainerValidatorTest, RefusesEntityDeclarationsInsteadOfExpandingThem) {
  const std::string laughs = R"(<?xml version="1.0"?>
<!DOCTYPE container [
  <!ENTITY a "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa">
  <!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">
  <!ENTITY c "&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;">
]>
<container><rootfiles><rootfile full-path="OEBPS/package.opf" media-type="&c;"/></rootfiles></container>)";
  EXPECT_EQ(failureWithContainer(laughs), ValidationFailure::malformedContainer);
}

TEST_F(EPUBContainerValidatorTest, NeverReadsAnExternalEntity) {
  writeFile("secret.txt", "OEBPS/package.opf");
  const std::string external = R"(<?xml version="1.0"?>
<!DOCTYPE container [ <!ENTITY path SYSTEM "file://)" +
                               (root_ / "secret.txt").string() + R"("> ]>
<container><rootfiles><rootfile full-path="&path;"/></rootfiles></container>)";
  EXPECT_EQ(failureWithContainer(external), ValidationFailure::malformedContainer);
}

TEST_F(EPUBContainerValidatorTest, AcceptsADoctypeWithoutEntities) {
  EXPECT_EQ(
      failureWithContainer("<!DOCTYPE container><container><rootfiles>"
                           "<rootfile full-path=\"OEBPS/package.opf\"/></rootfiles></container>"),
      std::nullopt);
}

TEST_F(EPUBContainerValidatorTest, RefusesAContainerWithoutRootfiles) {
  EXPECT_EQ(failureWithContainer(rootfiles("")), ValidationFailure::missingRootfile);
}

TEST_F(EPUBContainerValidatorTest, ARootfileWithoutFullPathDoesNotCount) {
  EXPECT_EQ(
      failureWithContainer(rootfiles(R"(<rootfile media-type="application/oebps-package+xml"/>)")),
      ValidationFailure::missingRootfile);
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

TEST_F(EPUBContainerValidatorTest, ComparesLocalNamesWhateverThePrefix) {
  EXPECT_EQ(failureWithContainer(
                R"(<c:container xmlns:c="urn:oasis:names:tc:opendocument:xmlns:container">)"
                R"(<c:rootfiles><c:rootfile full-path="OEBPS/package.opf"/></c:rootfiles>)"
                R"(</c:container>)"),
            std::nullopt);
  EXPECT_EQ(failureWithContainer(rootfiles(R"(<RootFile full-path="OEBPS/package.opf"/>)")),
            ValidationFailure::missingRootfile);
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

TEST_F(EPUBContainerValidatorTest, AnyRightsFileMeansDRM) {
  writeFile("META-INF/rights.xml", "");
  EXPECT_EQ(failure(), ValidationFailure::unsupportedDRM);
}

TEST_F(EPUBContainerValidatorTest, TheTwoObfuscationAlgorithmsMeanObfuscatedFonts) {
  writeFile("META-INF/encryption.xml", EpubBuilder::encryptionXML({kIDPF, kAdobe, kIDPF}));
  EXPECT_TRUE(EPUBContainerValidator().validate(root_).usesFontObfuscation);
}

TEST_F(EPUBContainerValidatorTest, OneForeignAlgorithmMeansDRM) {
  writeFile("META-INF/encryption.xml",
            EpubBuilder::encryptionXML({kIDPF, "http://www.w3.org/2001/04/xmlenc#aes128-cbc"}));
  EXPECT_EQ(failure(), ValidationFailure::unsupportedDRM);
  writeFile("META-INF/encryption.xml",
            EpubBuilder::encryptionXML({"http://www.idpf.org/2008/embedding/"}));
  EXPECT_EQ(failure(), ValidationFailure::unsupportedDRM);
}

TEST_F(EPUBContainerValidatorTest, AnEncryptionFileThatNamesNoMethodIsMalformed) {
  writeFile("META-INF/encryption.xml", EpubBuilder::encryptionXML({}));
  EXPECT_EQ(failure(), ValidationFailure::malformedEncryptionMetadata);
  writeFile("META-INF/encryption.xml",
            R"(<encryption xmlns:enc="http://www.w3.org/2001/04/xmlenc#">)"
            R"(<enc:EncryptedData><enc:EncryptionMethod/></enc:EncryptedData></encryption>)");
  EXPECT_EQ(failure(), ValidationFailure::malformedEncryptionMetadata);
}

TEST_F(EPUBContainerValidatorTest, RefusesAnEncryptionFileThatIsBrokenTooLargeOrNotAFile) {
  writeFile("META-INF/encryption.xml", "<encryption>");
  EXPECT_EQ(failure(), ValidationFailure::malformedEncryptionMetadata);
  std::string large = EpubBuilder::encryptionXML({kIDPF});
  large += std::string(1048577 - large.size(), ' ');
  writeFile("META-INF/encryption.xml", large);
  EXPECT_EQ(failure(), ValidationFailure::malformedEncryptionMetadata);
  fs::remove(root_ / "META-INF/encryption.xml");
  fs::create_directories(root_ / "META-INF/encryption.xml");
  EXPECT_EQ(failure(), ValidationFailure::malformedEncryptionMetadata);
}

TEST_F(EPUBContainerValidatorTest, RightsAreCheckedBeforeEncryption) {
  writeFile("META-INF/rights.xml", "<rights/>");
  writeFile("META-INF/encryption.xml", "broken");
  EXPECT_EQ(failure(), ValidationFailure::unsupportedDRM);
}

TEST_F(EPUBContainerValidatorTest, ChecksForCancellationFirst) {
  std::stop_source source;
  source.request_stop();
  EXPECT_THROW(EPUBContainerValidator().validate(root_, source.get_token()),
               async::OperationCancelled);
}

}  // namespace
}  // namespace tomekeeper
