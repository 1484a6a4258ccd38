#include "runtime/PublicationResourceProvider.h"

#include <gio/gio.h>
#include <glib.h>

#include <array>
#include <system_error>
#include <utility>
#include <vector>

#include "runtime/PercentDecoding.h"

namespace tomekeeper {

namespace {

constexpr std::string_view kUnknownMIMEType = "application/octet-stream";

// Audio and video carry the types that the web view's media engine looks up; the type
// database's own names for some of them ("audio/x-vorbis+ogg") are not among those.
constexpr std::array<std::pair<std::string_view, std::string_view>, 28> kExtensionTable{{
    {"xhtml", "application/xhtml+xml"},
    {"html", "text/html"},
    {"htm", "text/html"},
    {"css", "text/css"},
    {"svg", "image/svg+xml"},
    {"xml", "application/xml"},
    {"opf", "application/xml"},
    {"ncx", "application/xml"},
    {"jpg", "image/jpeg"},
    {"jpeg", "image/jpeg"},
    {"png", "image/png"},
    {"gif", "image/gif"},
    {"webp", "image/webp"},
    {"woff", "font/woff"},
    {"woff2", "font/woff2"},
    {"otf", "font/otf"},
    {"ttf", "font/ttf"},
    {"mp3", "audio/mpeg"},
    {"m4a", "audio/mp4"},
    {"aac", "audio/aac"},
    {"ogg", "audio/ogg"},
    {"oga", "audio/ogg"},
    {"opus", "audio/ogg"},
    {"weba", "audio/webm"},
    {"wav", "audio/wav"},
    {"mp4", "video/mp4"},
    {"m4v", "video/mp4"},
    {"webm", "video/webm"},
}};

[[noreturn]] void refuse(PublicationResourceError failure) {
  throwFailure(failure);
}

// What the desktop's type database says for a file name with this extension alone, so that
// the file's bytes are never read; octet-stream when it knows nothing better.
std::string platformMIMEType(const std::string& extension) {
  const std::string fileName = extension.empty() ? "resource" : "resource." + extension;
  gboolean uncertain = FALSE;
  gchar* contentType = g_content_type_guess(fileName.c_str(), nullptr, 0, &uncertain);
  std::string mimeType(kUnknownMIMEType);
  if (contentType != nullptr) {
    gchar* mime = g_content_type_get_mime_type(contentType);
    if (mime != nullptr && *mime != '\0') mimeType = mime;
    g_free(mime);
    g_free(contentType);
  }
  return mimeType;
}

std::string lowercased(const std::string& text) {
  gchar* lower = g_utf8_strdown(text.data(), static_cast<gssize>(text.size()));
  std::string result(lower);
  g_free(lower);
  return result;
}

bool isInside(const std::filesystem::path& candidate, const std::filesystem::path& root) {
  const std::string& rootText = root.native();
  const std::string& candidateText = candidate.native();
  // The root is canonical and never ends in "/" unless it is "/" itself.
  const std::string prefix = rootText == "/" ? rootText : rootText + "/";
  return candidateText.size() > prefix.size() &&
         candidateText.compare(0, prefix.size(), prefix) == 0;
}

// `path` made absolute, lexically normal and free of symbolic links as far as they lead. The
// library resolves only links whose targets exist; a dangling link at the end is followed by
// hand, so that a link pointing out of the book is judged by where it points.
std::filesystem::path resolvingSymbolicLinks(const std::filesystem::path& path,
                                             std::error_code& error) {
  constexpr int kMaximumLinkHops = 40;
  std::filesystem::path resolved = std::filesystem::weakly_canonical(path, error);
  for (int hop = 0; !error && hop < kMaximumLinkHops; ++hop) {
    std::error_code statusError;
    if (!std::filesystem::is_symlink(std::filesystem::symlink_status(resolved, statusError))) {
      return resolved;
    }
    const std::filesystem::path target = std::filesystem::read_symlink(resolved, error);
    if (error) break;
    resolved = std::filesystem::weakly_canonical(
        target.is_absolute() ? target : resolved.parent_path() / target, error);
  }
  if (!error) error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
  return {};
}

std::string caseFolded(std::string_view text) {
  gchar* folded = g_utf8_casefold(text.data(), static_cast<gssize>(text.size()));
  std::string result(folded);
  g_free(folded);
  return result;
}

bool entryExists(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

// The entry of the root that `components` name when letter case is ignored, taking at each
// step the entry of that exact name when there is one, else the only entry whose name folds to
// the same text; absent when a step finds none or more than one. Books made on file systems
// that ignore case link to their files in any case.
std::optional<std::filesystem::path> caseInsensitiveMatch(
    const std::filesystem::path& root, const std::vector<std::string_view>& components) {
  std::filesystem::path current = root;
  for (const std::string_view component : components) {
    std::filesystem::path exact = current / component;
    if (entryExists(exact)) {
      current = std::move(exact);
      continue;
    }
    const std::string wanted = caseFolded(component);
    std::optional<std::filesystem::path> found;
    std::error_code error;
    for (std::filesystem::directory_iterator entries(current, error), end;
         !error && entries != end; entries.increment(error)) {
      if (caseFolded(entries->path().filename().native()) != wanted) continue;
      if (found) return std::nullopt;
      found = entries->path();
    }
    if (error || !found) return std::nullopt;
    current = std::move(*found);
  }
  return current;
}

}  // namespace

PublicationContentKind publicationContentKind(std::string_view mimeType) {
  const std::string_view essence = mimeType.substr(0, mimeType.find(';'));
  std::string type(essence);
  for (char& character : type) character = g_ascii_tolower(character);
  while (!type.empty() && g_ascii_isspace(type.back())) type.pop_back();
  const std::size_t slash = type.find('/');
  if (slash == std::string::npos || slash == 0 || slash + 1 == type.size()) {
    return PublicationContentKind::document;
  }
  const std::string_view topLevel = std::string_view(type).substr(0, slash);
  const std::string_view subtype = std::string_view(type).substr(slash + 1);
  // An XML suffix or SVG anywhere in the name makes a document whatever the top level says.
  if (subtype.find("xml") != std::string_view::npos ||
      subtype.find("svg") != std::string_view::npos) {
    return PublicationContentKind::document;
  }
  if (topLevel == "image" || topLevel == "font" || topLevel == "audio" || topLevel == "video") {
    return PublicationContentKind::passive;
  }
  if (type == "text/css") return PublicationContentKind::passive;
  // Fonts under the names that older books and type databases still give them.
  static constexpr std::array<std::string_view, 6> kFontTypes{
      "application/font-woff",  "application/font-sfnt",  "application/vnd.ms-opentype",
      "application/x-font-ttf", "application/x-font-otf", "application/x-font-truetype"};
  for (const std::string_view fontType : kFontTypes) {
    if (type == fontType) return PublicationContentKind::passive;
  }
  return PublicationContentKind::document;
}

std::optional<std::string_view> publicationMIMETypeForExtension(std::string_view extension) {
  for (const auto& [key, mimeType] : kExtensionTable) {
    if (key == extension) return mimeType;
  }
  return std::nullopt;
}

PublicationResourceProvider::PublicationResourceProvider(const std::filesystem::path& root) {
  std::error_code error;
  std::filesystem::path canonical =
      std::filesystem::canonical(std::filesystem::absolute(root, error), error);
  if (error || !std::filesystem::is_directory(canonical, error) || error) {
    refuse(PublicationResourceError::unavailable);
  }
  root_ = std::move(canonical);
}

PublicationResource PublicationResourceProvider::resource(
    std::string_view path, ContentSecurityPolicyUse policyUse) const {
  if (path.empty() || path.front() == '/' || path.find('\\') != std::string_view::npos) {
    refuse(PublicationResourceError::invalidPath);
  }
  const std::optional<std::string> decoded = percentDecoded(path);
  if (!decoded) refuse(PublicationResourceError::invalidPath);

  // Decoding comes first, so an encoded "/" cannot smuggle in a "..".
  std::vector<std::string_view> components;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = decoded->find('/', start);
    const std::string_view component = std::string_view(*decoded).substr(
        start, end == std::string::npos ? std::string::npos : end - start);
    if (component.empty() || component == "." || component == "..") {
      refuse(PublicationResourceError::invalidPath);
    }
    components.push_back(component);
    if (end == std::string::npos) break;
    start = end + 1;
  }

  std::filesystem::path named = root_ / *decoded;
  if (!entryExists(named)) {
    if (std::optional<std::filesystem::path> matched = caseInsensitiveMatch(root_, components)) {
      named = std::move(*matched);
    }
  }
  std::error_code error;
  const std::filesystem::path resolved = resolvingSymbolicLinks(named, error);
  if (error) refuse(PublicationResourceError::unavailable);
  // A symbolic link inside the book that leads out ends here, whatever the extractor allowed.
  if (!isInside(resolved, root_)) refuse(PublicationResourceError::outsidePublicationRoot);
  const std::filesystem::file_status status = std::filesystem::status(resolved, error);
  if (error || status.type() != std::filesystem::file_type::regular) {
    refuse(PublicationResourceError::unavailable);
  }

  std::string extension = resolved.extension().native();
  if (!extension.empty()) extension.erase(0, 1);
  extension = lowercased(extension);

  PublicationResource resource;
  resource.fileURL = resolved;
  if (const auto known = publicationMIMETypeForExtension(extension)) {
    resource.mimeType = std::string(*known);
  } else {
    resource.mimeType = platformMIMEType(extension);
  }
  if (policyUse == ContentSecurityPolicyUse::applied &&
      publicationContentKind(resource.mimeType) == PublicationContentKind::document) {
    resource.contentSecurityPolicy = std::string(kPublicationContentSecurityPolicy);
  }
  return resource;
}

}  // namespace tomekeeper
