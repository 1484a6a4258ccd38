// The library's first screen with 500 generated books, each with a record, a 341×512 cover
// thumbnail, a source bookmark of a real file and a reading position. Usage: bench_library
// [BOOKS] [ROUNDS]. Figures: the time from the start of the process to a window whose first
// frame shows the books, and to the frame in which the cover of every item made is drawn; the
// processor time to that first frame, split between the main thread's set-up of GTK, its work
// until the books are in the view, their first frame, and the other threads (reading the
// records on the pool, the accessibility bus); then the same for each later round (a new window
// and view over the same books, as when the last reader window closes), with their median. The
// generated books go to a temporary directory that is removed at the end.

#include <adwaita.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "library/LibraryRecord.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "views/LibraryView.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

const Clock::time_point kProcessStart = Clock::now();

double milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

// Processor time the process has used, all threads, in milliseconds: on a machine that other
// work keeps busy, the wall-clock figures grow with the load and this one much less.
double processorMilliseconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto total = [](const timeval& time) {
    return time.tv_sec * 1000.0 + time.tv_usec / 1000.0;
  };
  return total(usage.ru_utime) + total(usage.ru_stime);
}

double mainThreadMilliseconds() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000.0 +
         (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000.0;
}

std::string coverBytes() {
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 341, 512);
  // A gradient, so that the PNG is not trivially small.
  guchar* pixels = gdk_pixbuf_get_pixels(pixbuf);
  const int stride = gdk_pixbuf_get_rowstride(pixbuf);
  for (int y = 0; y < 512; ++y) {
    for (int x = 0; x < 341; ++x) {
      guchar* pixel = pixels + y * stride + x * 3;
      pixel[0] = static_cast<guchar>(x * 255 / 341);
      pixel[1] = static_cast<guchar>(y * 255 / 512);
      pixel[2] = static_cast<guchar>((x ^ y) & 0xff);
    }
  }
  gchar* buffer = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(pixbuf, &buffer, &size, "png", nullptr, nullptr);
  g_object_unref(pixbuf);
  std::string bytes(buffer, size);
  g_free(buffer);
  return bytes;
}

// Plain writes: the generated books need no crash safety, and a sync per file would make the
// generation take longer than everything measured.
void writePlainly(const fs::path& file, const std::string& contents) {
  std::ofstream(file, std::ios::binary) << contents;
}

tomekeeper::LibraryLocations generate(const fs::path& root, int count) {
  using namespace tomekeeper;
  const LibraryLocations locations{root / "data/Publications", root / "data/Publications"};
  const std::string cover = coverBytes();
  SystemSecurityScopedBookmarkCodec codec;
  std::mt19937 random(7);
  const std::vector<std::string> authors = {"Émile Zola",  "Victor Hugo",  "Charlotte Brontë",
                                            "Leo Tolstoy", "George Eliot", "Natsume Sōseki"};
  fs::create_directories(root / "books");
  for (int index = 0; index < count; ++index) {
    char name[65];
    std::snprintf(name, sizeof name, "%064x", index + 1);
    const fs::path directory = locations.recordsRoot / name;
    fs::create_directories(directory);
    const fs::path book = root / "books" / ("book-" + std::to_string(index) + ".epub");
    writePlainly(book, "an epub");
    writePlainly(directory / kSourceBookmarkFileName, codec.makeBookmarkData(book));
    writePlainly(directory / kCoverThumbnailFileName, cover);
    LibraryRecord record{"Generated Book " + std::to_string(index),
                         {authors[random() % authors.size()]},
                         "en",
                         Date(7.0e8 + index * 3600.0),
                         std::string(kSourceBookmarkFileName),
                         book.filename().string(),
                         std::string(kCoverThumbnailFileName)};
    writePlainly(directory / kLibraryRecordFileName, encodeLibraryRecord(record));
    JSONReadingPositionRepository::Store store;
    Locator locator;
    locator.spineHref = "chapter1.xhtml";
    locator.totalProgression = static_cast<double>(random() % 1000) / 1000.0;
    store.locators[name] = locator;
    writePlainly(directory / "reading-position.json",
                 JSONReadingPositionRepository::encodeStore(store));
  }
  return locations;
}

struct Round {
  double loaded = 0;
  double mainThreadAtLoaded = 0;
  double mainThreadAtFirstFrame = 0;
  double processorAtFirstFrame = 0;
  double firstFrame = 0;
  double coversDrawn = 0;
  // The longest time between two frames from the first frame with books to the covers.
  double longestFrameGap = 0;
};

struct Watch {
  tomekeeper::LibraryView* view = nullptr;
  Clock::time_point start;
  bool loaded = false;
  double lastFrame = 0;
  Round round;
  bool done = false;
};

// With TOMEKEEPER_BENCH_PERF_FIFO naming the control FIFO of `perf record --control
// fifo:FIFO -D -1`, perf samples only from the books' arrival in the view to their first frame.
void perfControl(const char* command) {
  const char* fifo = std::getenv("TOMEKEEPER_BENCH_PERF_FIFO");
  if (fifo == nullptr) return;
  if (FILE* file = std::fopen(fifo, "w")) {
    std::fprintf(file, "%s\n", command);
    std::fclose(file);
  }
}

void afterPaint(GdkFrameClock*, gpointer data) {
  auto& watch = *static_cast<Watch*>(data);
  if (!watch.loaded || watch.done) return;
  const double now = milliseconds(Clock::now() - watch.start);
  if (watch.round.firstFrame != 0) {
    watch.round.longestFrameGap = std::max(watch.round.longestFrameGap, now - watch.lastFrame);
  }
  watch.lastFrame = now;
  if (watch.round.firstFrame == 0) {
    watch.round.firstFrame = now;
    watch.round.processorAtFirstFrame = processorMilliseconds();
    watch.round.mainThreadAtFirstFrame = mainThreadMilliseconds();
    perfControl("disable");
  }
  if (watch.view->covers().pendingCount() == 0 && watch.round.firstFrame != now) {
    watch.round.coversDrawn = now;
    watch.done = true;
  }
}

// One window with a new library view, from `start` until its covers are drawn.
Round showLibrary(const tomekeeper::LibraryLocations& locations, Clock::time_point start) {
  Watch watch;
  watch.start = start;
  GtkWidget* window = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), 1100, 800);
  tomekeeper::LibraryView view(
      locations, std::make_shared<tomekeeper::SystemSecurityScopedBookmarkCodec>(), {});
  watch.view = &view;
  view.loaded.connect([&watch](std::size_t) {
    watch.loaded = true;
    watch.round.loaded = milliseconds(Clock::now() - watch.start);
    watch.round.mainThreadAtLoaded = mainThreadMilliseconds();
    perfControl("enable");
  });
  gtk_window_set_child(GTK_WINDOW(window), view.widget());
  gtk_window_present(GTK_WINDOW(window));
  GdkFrameClock* clock = gtk_widget_get_frame_clock(window);
  const gulong handler = g_signal_connect(clock, "after-paint", G_CALLBACK(afterPaint), &watch);
  const Clock::time_point limit = Clock::now() + std::chrono::seconds(30);
  while (!watch.done && Clock::now() < limit) g_main_context_iteration(nullptr, TRUE);
  g_signal_handler_disconnect(clock, handler);
  gtk_window_destroy(GTK_WINDOW(window));
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  if (!watch.done) std::fprintf(stderr, "the library did not finish drawing within 30 s\n");
  return watch.round;
}

}  // namespace

int main(int argc, char** argv) {
  const int books = argc > 1 ? std::atoi(argv[1]) : 500;
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 7;
  const fs::path root =
      fs::temp_directory_path() / ("tomekeeper-library-bench-" + std::to_string(::getpid()));
  // The books are made before the clock of the first round starts, in a process of their own
  // as far as the measured start is concerned: the start is taken again below.
  const tomekeeper::LibraryLocations locations = generate(root, books);
  const Clock::time_point processStart = Clock::now();
  const double processorAtStart = processorMilliseconds();
  const double mainThreadAtStart = mainThreadMilliseconds();
  adw_init();
  const double setUp = milliseconds(Clock::now() - processStart);
  const double mainThreadSetUp = mainThreadMilliseconds() - mainThreadAtStart;
  const Round first = showLibrary(locations, processStart);
  std::vector<double> loads;
  std::vector<double> firstFrames;
  std::vector<double> coversDrawn;
  for (int round = 1; round < rounds; ++round) {
    const Round later = showLibrary(locations, Clock::now());
    loads.push_back(later.loaded);
    firstFrames.push_back(later.firstFrame);
    coversDrawn.push_back(later.coversDrawn);
  }
  // The parts below the window: reading the books, and sorting and folding them for the model.
  tomekeeper::SystemSecurityScopedBookmarkCodec codec;
  const Clock::time_point loadStart = Clock::now();
  std::vector<tomekeeper::LibraryBook> loaded = tomekeeper::loadLibraryBooks(locations, codec);
  const double loading = milliseconds(Clock::now() - loadStart);
  const Clock::time_point modelStart = Clock::now();
  tomekeeper::LibraryModel model;
  model.setBooks(std::move(loaded));
  const double modelling = milliseconds(Clock::now() - modelStart);
  std::sort(loads.begin(), loads.end());
  std::sort(firstFrames.begin(), firstFrames.end());
  std::sort(coversDrawn.begin(), coversDrawn.end());
  std::printf("library of %d books (records, covers, bookmarks, positions generated in %.0f ms)\n",
              books, milliseconds(processStart - kProcessStart));
  std::printf("  GTK and libadwaita set up:          %7.1f ms\n", setUp);
  std::printf("  start to books loaded in the view:  %7.1f ms\n", first.loaded);
  std::printf("  start to first frame with books:    %7.1f ms\n", first.firstFrame);
  std::printf("  start to the covers of made items:  %7.1f ms\n", first.coversDrawn);
  std::printf("  longest gap between frames till then:%6.1f ms\n", first.longestFrameGap);
  const double processorToFirstFrame = first.processorAtFirstFrame - processorAtStart;
  const double mainThreadToFirstFrame = first.mainThreadAtFirstFrame - mainThreadAtStart;
  std::printf("  processor time to first frame:      %7.1f ms (all threads)\n",
              processorToFirstFrame);
  std::printf("    main thread, GTK set up:          %7.1f ms\n", mainThreadSetUp);
  std::printf("    main thread, to books in the view:%7.1f ms\n",
              first.mainThreadAtLoaded - mainThreadAtStart - mainThreadSetUp);
  std::printf("    main thread, their first frame:   %7.1f ms\n",
              first.mainThreadAtFirstFrame - first.mainThreadAtLoaded);
  std::printf("    other threads (records, D-Bus):   %7.1f ms\n",
              processorToFirstFrame - mainThreadToFirstFrame);
  if (!firstFrames.empty()) {
    std::printf("  new window, books loaded (median of %zu):  %7.1f ms\n", loads.size(),
                loads[loads.size() / 2]);
    std::printf("  new window, first frame (median of %zu):   %7.1f ms\n", firstFrames.size(),
                firstFrames[firstFrames.size() / 2]);
    std::printf("  new window, covers (median of %zu):  %7.1f ms\n", coversDrawn.size(),
                coversDrawn[coversDrawn.size() / 2]);
  }
  std::printf("  of which reading the books:         %7.1f ms\n", loading);
  std::printf("  of which the model (fold, collate): %7.1f ms\n", modelling);
  std::error_code ignored;
  fs::remove_all(root, ignored);
  return 0;
}
