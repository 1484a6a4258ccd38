#include "support/EpubBuilder.h"

namespace tomekeeper::testing {
namespace {

constexpr const char* kPackageDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="id">urn:uuid:6c1a0c3e-8f0e-4d7e-9a57-3d1d7f0f4b21</dc:identifier>
    <dc:title>A Test Book</dc:title>
    <dc:language>en</dc:language>
    <meta property="dcterms:modified">2025-01-01T00:00:00Z</meta>
  </metadata>
  <manifest>
    <item id="chapter" href="chapter1.xhtml" media-type="application/xhtml+xml"/>
  </manifest>
  <spine>
    <itemref idref="chapter"/>
  </spine>
</package>
)";

constexpr const char* kChapter = R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>One</title></head>
<body><p>It was a quiet morning.</p></body></html>
)";

}  // namespace

EpubBuilder::EpubBuilder() {
  archive_.addStored("mimetype", "application/epub+zip");
  archive_.addDeflated("META-INF/container.xml", containerXML(kPackageDocumentPath));
  archive_.addDeflated(kPackageDocumentPath, kPackageDocument);
  archive_.addDeflated("OEBPS/chapter1.xhtml", kChapter);
}

EpubBuilder& EpubBuilder::addFile(std::string name, std::string content, std::uint16_t method) {
  ZipArchiveBuilder::Entry entry;
  entry.name = std::move(name);
  entry.content = std::move(content);
  entry.method = method;
  archive_.add(std::move(entry));
  return *this;
}

EpubBuilder& EpubBuilder::replaceFile(const std::string& name, std::string content) {
  archive_.entryNamed(name).content = std::move(content);
  return *this;
}

std::string EpubBuilder::containerXML(const std::string& fullPath, const std::string& mediaType) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<container version="1.0" xmlns="urn:oasis:names:tc:opendocument:xmlns:container">
  <rootfiles>
    <rootfile full-path=")" +
         fullPath + R"(" media-type=")" + mediaType + R"("/>
  </rootfiles>
</container>
)";
}

std::string EpubBuilder::encryptionXML(const std::vector<std::string>& algorithms) {
  std::string xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<encryption xmlns="urn:oasis:names:tc:opendocument:xmlns:container"
            xmlns:enc="http://www.w3.org/2001/04/xmlenc#">
)";
  int index = 0;
  for (const std::string& algorithm : algorithms) {
    xml += "  <enc:EncryptedData><enc:EncryptionMethod Algorithm=\"" + algorithm +
           "\"/><enc:CipherData><enc:CipherReference URI=\"OEBPS/font" + std::to_string(index++) +
           ".otf\"/></enc:CipherData></enc:EncryptedData>\n";
  }
  xml += "</encryption>\n";
  return xml;
}

}  // namespace tomekeeper::testing
