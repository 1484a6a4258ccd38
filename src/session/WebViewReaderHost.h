#pragma once

#include <memory>

#include "session/ReaderHosting.h"

namespace tomekeeper {

// A new host over a WebKitGTK web view (ReaderWebViewHost), for a session made without one.
// Main executor. Only in builds with the web view.
std::shared_ptr<ReaderHosting> makeWebViewReaderHost();

}  // namespace tomekeeper
