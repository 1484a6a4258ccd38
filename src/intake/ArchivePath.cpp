#include "intake/ArchivePath.h"

#include <glib.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <stdexcept>
#include <vector>

namespace tomekeeper {
namespace {

std::vector<std::string_view> splitKeepingEmpty(std::string_view path) {
  std::vector<std::string_view> components;
  std::size_t start = 0;
  while (true) {
    const std::size_t slash = path.find('/', start);
    if (slash == std::string_view::npos) {
      components.push_back(path.substr(start));
      return components;
    }
    components.push_back(path.substr(start, slash - start));
    start = slash + 1;
  }
}

bool hasForbiddenCharacters(std::string_view path) {
  return path.starts_with('/') || path.find('\\') != std::string_view::npos ||
         path.find('\0') != std::string_view::npos;
}

std::optional<std::string> joinValidComponents(const std::vector<std::string_view>& components) {
  if (components.empty()) return std::nullopt;
  for (std::string_view component : components) {
    if (component.empty() || component == "." || component == "..") return std::nullopt;
  }
  // A drive letter or a URL scheme in front would make the path absolute elsewhere.
  if (components.front().find(':') != std::string_view::npos) return std::nullopt;
  std::string joined;
  for (std::string_view component : components) {
    if (!joined.empty()) joined += '/';
    joined += component;
  }
  return joined;
}

}  // namespace

bool isWellFormedUTF8(std::string_view bytes) {
  // GLib refuses NUL inside a counted string; NUL is refused as a path
  // character anyway, so check the pieces between NULs.
  std::size_t start = 0;
  while (start <= bytes.size()) {
    std::size_t end = bytes.find('\0', start);
    if (end == std::string_view::npos) end = bytes.size();
    if (!g_utf8_validate_len(bytes.data() + start, end - start, nullptr)) return false;
    start = end + 1;
  }
  return true;
}

std::optional<std::string> validateArchiveEntryPath(std::string_view name, ArchiveEntryKind kind) {
  if (hasForbiddenCharacters(name)) return std::nullopt;
  std::vector<std::string_view> components = splitKeepingEmpty(name);
  if (kind == ArchiveEntryKind::directory) components.pop_back();
  return joinValidComponents(components);
}

std::optional<std::string> validateRootfilePath(std::string_view path) {
  if (path.empty() || hasForbiddenCharacters(path)) return std::nullopt;
  return joinValidComponents(splitKeepingEmpty(path));
}

std::string foldArchivePath(std::string_view validPath) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* composition = icu::Normalizer2::getNFCInstance(status);
  if (U_FAILURE(status)) throw std::runtime_error("NFC normaliser unavailable");
  const icu::UnicodeString decoded = icu::UnicodeString::fromUTF8(
      icu::StringPiece(validPath.data(), static_cast<std::int32_t>(validPath.size())));
  icu::UnicodeString folded = composition->normalize(decoded, status);
  if (U_FAILURE(status)) throw std::runtime_error("NFC normalisation failed");
  folded.toLower(icu::Locale::getRoot());
  std::string result;
  folded.toUTF8String(result);
  return result;
}

}  // namespace tomekeeper
