// Feeds arbitrary bytes to the scheme's URL parsing and to the resource provider, and checks
// that whatever is served lies inside the publication root and that nothing but the provider's
// own failures escapes.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <unistd.h>

#include "runtime/PublicationResourceProvider.h"
#include "runtime/PublicationSchemeRoute.h"

namespace {

using namespace tomekeeper;

const PublicationResourceProvider& fuzzProvider() {
  static const PublicationResourceProvider provider = [] {
    const std::filesystem::path base = std::filesystem::temp_directory_path() /
                                       ("tomekeeper-scheme-fuzz-" + std::to_string(getpid()));
    const std::filesystem::path root = base / "Extracted";
    static const std::filesystem::path removedAtExit = base;
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(removedAtExit, ignored);
    });
    std::filesystem::create_directories(root / "OEBPS");
    std::ofstream(root / "OEBPS/a.xhtml") << "<html/>";
    std::ofstream(root / "OEBPS/style.css") << "p{}";
    std::ofstream(base / "secret.txt") << "secret";
    std::error_code ignored;
    std::filesystem::create_symlink(base / "secret.txt", root / "escape.css", ignored);
    std::filesystem::create_directory_symlink(base, root / "outside", ignored);
    return PublicationResourceProvider(root);
  }();
  return provider;
}

void checkServed(std::string_view path) {
  const PublicationResourceProvider& provider = fuzzProvider();
  try {
    const PublicationResource resource = provider.resource(path, ContentSecurityPolicyUse::applied);
    const std::string prefix = provider.root().native() + "/";
    if (resource.fileURL.native().compare(0, prefix.size(), prefix) != 0) std::abort();
    if (resource.mimeType.empty()) std::abort();
  } catch (const PublicationResourceErrorError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  if (const auto route = parsePublicationSchemeRoute(input)) {
    if (route->resourcePath.empty()) std::abort();
    checkServed(route->resourcePath);
  }
  if (const auto batch = parsePublicationSectionBatchRoute(input)) {
    if (batch->resourcePaths.empty()) std::abort();
    for (const std::string& path : batch->resourcePaths) {
      if (path.empty()) std::abort();
      checkServed(withDotPiecesResolved(path));
    }
  }
  if (const auto runtimePath = parseRuntimeResourcePath(input)) {
    if (runtimePath->empty()) std::abort();
    checkServed(*runtimePath);
  }
  checkServed(input);
  return 0;
}
