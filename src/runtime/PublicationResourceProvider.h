#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "async/Failure.h"

namespace tomekeeper {

// Why a resource path was refused. Thrown as PublicationResourceErrorError;
// notListed: the file exists but the publication's manifest does not list it (decided by the
// scheme handler, which answers it with 404).
TOMEKEEPER_FAILURE(PublicationResourceError, invalidPath, outsidePublicationRoot, unavailable,
                   notListed);

// Whether the content policy is wanted for a request: the scheme handler asks for it on a
// publication's documents and never on the reader runtime's own files.
enum class ContentSecurityPolicyUse { omitted, applied };

// The exact policy served with every response of a book that a web view could show as a
// document: no script of the book runs, nothing is fetched from elsewhere, no plug-in, no frame,
// no base change. Audio and video may also play from blob URLs, which only a script of this
// origin (the reader runtime; the book's own never run) can make: the web view's media engine
// cannot read this application's scheme.
inline constexpr std::string_view kPublicationContentSecurityPolicy =
    "default-src 'self' data:; script-src 'none'; style-src 'self' 'unsafe-inline' data:; "
    "media-src 'self' data: blob:; connect-src 'none'; object-src 'none'; frame-src 'none'; "
    "base-uri 'none'";

// A file that a request may read.
struct PublicationResource {
  std::filesystem::path fileURL;  // absolute, lexically normal, symbolic links resolved
  std::string mimeType;
  std::optional<std::string> contentSecurityPolicy;

  bool operator==(const PublicationResource&) const = default;
};

// What a web view may make of a response of a MIME type. Only images other than SVG, fonts,
// audio, video and CSS are passive: a frame shows them without any document of their own, so no
// script can come with them. HTML, XHTML, SVG, every XML type, text, and any type not known here
// are documents.
enum class PublicationContentKind { passive, document };

// The kind of `mimeType`, compared without case and without parameters ("; charset=...").
PublicationContentKind publicationContentKind(std::string_view mimeType);

// The MIME type that the extension table gives for a lower-cased extension without its dot
// ("xhtml" → "application/xhtml+xml"), or absent for an extension not in the table.
std::optional<std::string_view> publicationMIMETypeForExtension(std::string_view extension);

// The only road from a path asked for by the web view to a file on disk. A plain value: it
// holds the canonical root of one extracted publication (or of the reader runtime) and reads
// nothing but file metadata, so it is safe to use from any thread and in parallel.
class PublicationResourceProvider {
 public:
  // Resolves symbolic links in `root`. Throws PublicationResourceErrorError(unavailable) when
  // it does not exist or is not a directory.
  explicit PublicationResourceProvider(const std::filesystem::path& root);

  const std::filesystem::path& root() const noexcept { return root_; }

  // The file named by `path`, a still percent-encoded path relative to the root, with its MIME
  // type and, when `policyUse` is applied and that type is not passive, the content policy. The
  // decision follows the type that is served, so a file is never trusted for its name: an
  // unknown or missing extension is served as a document, with the policy. A path that names
  // no entry is looked for without regard to letter case, one component at a time inside the
  // root; an exact name always wins and a name that matches two entries matches none.
  // Throws PublicationResourceErrorError: invalidPath for an empty, absolute, backslashed,
  // badly encoded path or one with an empty, "." or ".." component after decoding;
  // outsidePublicationRoot when the resolved file lies outside the root; unavailable when it
  // does not exist or is not a regular file.
  PublicationResource resource(std::string_view path, ContentSecurityPolicyUse policyUse) const;

  bool operator==(const PublicationResourceProvider&) const = default;

 private:
  std::filesystem::path root_;
};

}  // namespace tomekeeper
