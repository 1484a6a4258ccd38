#pragma once

#include <adwaita.h>

#include "runtime/PublicationSafetyScan.h"

namespace tomekeeper {

// Shows the "Book Safety" message of a book over `parent`: what the book's documents try, said
// to be blocked, and the web addresses and unlisted files the book names in a scrolled list. The
// dialog owns itself and closes with its one response. Main thread.
AdwMessageDialog* presentBookSafety(GtkWindow* parent, const PublicationSafetyReport& report);

}  // namespace tomekeeper
