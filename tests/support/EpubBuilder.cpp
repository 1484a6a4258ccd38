#include "support/EpubBuilder.h"

namespace tomekeeper::testing {
namespace {

constexpr const char* kChapter = R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>One</title></head>
<body><p>It was a quiet morning.</p></body></html>
)";

}  // namespace

EpubBuilder::EpubBuilder() {
  archive_.addStored("mimetype", "application/epub+zip");
  archive_.addDeflated("META-INF/container.xml", containerXML(kPackageDocumentPath));
  archive_.addDeflated(
      kPackageDocumentPath,
      PackageDescription{.manifest = {{"chapter", "chapter1.xhtml"}}, .spine = {"chapter"}}.text());
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

PackageDescription& PackageDescription::withChapters(int count, const std::string& hrefPrefix) {
  for (int chapter = 1; chapter <= count; ++chapter) {
    const std::string id = "chapter" + std::to_string(chapter);
    manifest.push_back(ManifestItem{id, hrefPrefix + std::to_string(chapter) + ".xhtml"});
    spine.push_back(id);
  }
  return *this;
}

std::string PackageDescription::text() const {
  std::string document = R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id")";
  if (!packageAttributes.empty()) document += " " + packageAttributes;
  document += R"(>
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="id">)" +
              identifier + "</dc:identifier>\n    <dc:title>" + title + "</dc:title>\n";
  for (const std::string& creator : creators) {
    document += "    <dc:creator>" + creator + "</dc:creator>\n";
  }
  document += "    <dc:language>" + language + "</dc:language>\n" + extraMetadata +
              "    <meta property=\"dcterms:modified\">2025-01-01T00:00:00Z</meta>\n"
              "  </metadata>\n  <manifest>\n";
  for (const ManifestItem& item : manifest) {
    document += "    <item id=\"" + item.id + "\" href=\"" + item.href + "\" media-type=\"" +
                item.mediaType + "\"";
    if (!item.properties.empty()) document += " properties=\"" + item.properties + "\"";
    document += "/>\n";
  }
  document += "  </manifest>\n  <spine";
  if (!spineAttributes.empty()) document += " " + spineAttributes;
  document += ">\n";
  for (const std::string& idref : spine) document += "    <itemref idref=\"" + idref + "\"/>\n";
  document += "  </spine>\n</package>\n";
  return document;
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
