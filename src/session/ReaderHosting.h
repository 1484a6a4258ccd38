#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "async/Task.h"
#include "model/Uuid.h"
#include "runtime/BridgeMessages.h"
#include "runtime/ReaderBridge.h"

namespace tomekeeper {

// The width and height of the reader's web view, in its own units.
struct ReaderViewportSize {
  double width = 0;
  double height = 0;
  bool operator==(const ReaderViewportSize&) const = default;
};

// Whether a highlight that the menu is for carries a note (the menu then offers "Edit Note…").
enum class AnnotationNotePresence { withoutNote, withNote };

// What a reading session needs of the web view host that it owns: the bridge, the publication
// registration, the runtime load, close, the highlight menu and the view's callbacks. The web
// view host implements it over WebKitGTK (WebKitReaderHosting); tests implement it without a
// display. The keys are the shell's: it hands them to the session's navigation commands. Main
// executor only. The session sets the callbacks once, at its construction.
class ReaderHosting {
 public:
  virtual ~ReaderHosting() = default;

  // The bridge to the runtime, created once with the host and alive as long as it.
  virtual const std::shared_ptr<ReaderBridge>& bridge() const = 0;

  // Makes `root` reachable under `publicationID` on the private scheme; throws when the root
  // is unusable.
  virtual void registerPublication(const Uuid& publicationID,
                                   const std::filesystem::path& root) = 0;

  // Loads the reader runtime and returns once its page has loaded; throws the host's failure.
  virtual async::Task<void> prepareRuntime(std::filesystem::path runtimeDirectory,
                                           std::chrono::steady_clock::duration timeout) = 0;

  // Idempotent; fails every pending bridge request.
  virtual void close() = 0;

  // The size of the web view's bounds, for the location log.
  virtual ReaderViewportSize viewportSize() const = 0;

  // Shows the highlight menu for `request` ("Add Note…" or "Edit Note…", "Remove Highlight").
  virtual void presentAnnotationMenu(const ReaderAnnotationContextMenuRequest& request,
                                     AnnotationNotePresence notePresence) = 0;

  // ---- Set by the session ----
  // A web address clicked in a book; the navigation itself was cancelled.
  std::function<void(std::string url)> onExternalLink;
  // The menu's "Remove Highlight".
  std::function<void(Uuid annotationID)> onRemoveAnnotation;
  // The menu's note item.
  std::function<void(ReaderAnnotationContextMenuRequest request)> onEditAnnotation;
};

}  // namespace tomekeeper
