#include "app/ApplicationResources.h"

#include <system_error>

namespace tomekeeper {

namespace {

bool holdsRuntimePage(const std::filesystem::path& directory) {
  std::error_code error;
  return std::filesystem::is_regular_file(directory / "runtime" / "index.html", error);
}

}  // namespace

std::optional<std::filesystem::path> applicationResourceDirectory() {
  std::error_code error;
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return std::nullopt;
  const std::filesystem::path executableDirectory = executable.parent_path();
  // Installed first; the build tree's relative place is fixed by the build.
  const std::filesystem::path candidates[] = {
      executableDirectory / ".." / "share" / "tomekeeper",
      executableDirectory / TOMEKEEPER_BUILD_TREE_RESOURCE_DIRECTORY,
  };
  for (const auto& candidate : candidates) {
    if (holdsRuntimePage(candidate)) return candidate.lexically_normal();
  }
  return std::nullopt;
}

std::optional<std::filesystem::path> readerRuntimeDirectory() {
  std::optional<std::filesystem::path> resources = applicationResourceDirectory();
  if (!resources) return std::nullopt;
  return *resources / "runtime";
}

}  // namespace tomekeeper
