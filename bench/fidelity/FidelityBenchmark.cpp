// Checks that the reader's place never moves, over many cycles of the real reader runtime page
// in a real web view, driven through the bridge as the session drives it. Each cycle, on one of
// the books (the sample books under ../shared/corpus/samples when present, and generated books
// in three writing directions):
//   - sets the cycle's settings, goes to a random place and takes the place shown; highlights a
//     few words on that page;
//   - applies one to four changes among text size, line height, margins, theme, mode, spread and
//     window size, then the settings the cycle began with;
//   - checks that the place told to the native side (the one it saves) and the place shown are
//     the place from before;
//   - opens the book again, goes to the saved place and checks it is the same, and that every
//     highlight made on that book so far still resolves by its CFI.
// Prints the cycles run and the drifts, and for each drift the book, the changes and the two
// places. Needs a display, and an optimised build for a run of 1 000 cycles:
//   xvfb-run -a -s "-screen 0 1280x1024x24" dbus-run-session -- \
//     build/release/bench/fidelity/bench_fidelity [--cycles 1000] [--seed 1] [--only NAME]
// where --only keeps the books whose file name holds NAME, and --most-changes N (4) bounds the
// changes of a cycle (0 checks the reopen alone).
#include <glib.h>
#include <gtk/gtk.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "async/RunUntilDone.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "intake/EPUBContainerValidator.h"
#include "runtime/ReaderWebViewHost.h"
#include "support/EpubBuilder.h"

namespace {

using namespace tomekeeper;
using namespace std::chrono_literals;

constexpr int kWindowWidth = 900;
constexpr int kWindowHeight = 700;

// ---- Generated books ----------------------------------------------------------------------------

using SentenceMaker = std::function<std::string(int number)>;

std::string englishSentence(int number) {
  return "The keeper of tomes walked the long corridor number " + std::to_string(number) +
         " and counted the shelves one by one. ";
}

std::string arabicSentence(int number) {
  return "مشى حارس الكتب في الممر الطويل رقم " + std::to_string(number) +
         " وعدّ الرفوف واحدا واحدا. ";
}

std::string japaneseSentence(int number) {
  return "本の番人は長い廊下の" + std::to_string(number) + "番を歩き、棚を一つずつ数えた。";
}

// A book of four sections of numbered sentences, so that every excerpt names one place.
std::string generatedBook(const std::string& language, const std::string& direction,
                          const std::string& style, const SentenceMaker& sentence) {
  testing::PackageDescription package{
      .identifier = "urn:uuid:0b7c4b8e-3f7a-4b8e-9c1d-" + language + "0000000000",
      .title = "Fidelity " + language,
      .language = language,
      .spineAttributes = "page-progression-direction=\"" + direction + "\""};
  package.manifest.push_back({"style", "book.css", "text/css"});
  testing::EpubBuilder builder;
  for (int section = 1; section <= 4; ++section) {
    const std::string name = "section" + std::to_string(section);
    package.manifest.push_back({name, name + ".xhtml"});
    package.spine.push_back(name);
    std::string body = "<h1>" + sentence(section * 10000) + "</h1>\n";
    for (int paragraph = 0; paragraph < 30; ++paragraph) {
      body += "<p>";
      for (int index = 0; index < 5; ++index)
        body += sentence(section * 10000 + paragraph * 10 + index);
      body += "</p>\n";
    }
    builder.addFile("OEBPS/" + name + ".xhtml",
                    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                    "<html xmlns=\"http://www.w3.org/1999/xhtml\" xml:lang=\"" +
                        language + "\" dir=\"" +
                        (direction == "rtl" && language != "ja" ? "rtl" : "ltr") +
                        "\"><head><title>" + name +
                        "</title><link rel=\"stylesheet\" type=\"text/css\" href=\"book.css\"/>"
                        "</head>\n<body>\n" +
                        body + "</body></html>\n");
  }
  builder.withPackageDocument(package);
  builder.addFile("OEBPS/book.css", style);
  return builder.build();
}

// ---- Books registered with the web view ---------------------------------------------------------

struct Book {
  std::string name;
  OpenPublicationRequest request;
  std::int64_t sectionCount = 0;
  std::vector<RuntimeAnnotation> highlights;
};

Book registerBook(ReaderWebViewHost& host, const std::filesystem::path& archive,
                  const std::filesystem::path& directory) {
  const std::string name = archive.stem().string();
  const EPUBArchiveInspection inspection = EPUBArchiveInspector().inspectBlocking(archive);
  const std::filesystem::path root =
      EPUBArchiveExtractor()
          .extract(archive, inspection, directory / ("extracted-" + name))
          .rootURL;
  const ValidatedEPUBContainer container = EPUBContainerValidator().validate(root);
  const Uuid publicationID = Uuid::random();
  host.registerPublication(publicationID, root);
  const std::string base = "tomekeeper://publication/" + publicationID.string() + "/";
  const std::string& packagePath = container.packageDocumentPath;
  const std::size_t slash = packagePath.rfind('/');
  Book book;
  book.name = name;
  book.request.publication.publicationID = publicationID;
  book.request.publication.packageURL = base + packagePath;
  book.request.publication.resourceBaseURL =
      base + (slash == std::string::npos ? std::string() : packagePath.substr(0, slash + 1));
  return book;
}

// ---- Settings and changes -----------------------------------------------------------------------

struct Settings {
  double fontScale = 1.0;
  double lineHeight = 1.5;
  double margins = 6.0;
  ReadingThemeSelection theme = ReadingThemeSelection::light;
  ReadingMode mode = ReadingMode::paginated;
  PageLayout layout = PageLayout::singlePage;
  int width = kWindowWidth;
  int height = kWindowHeight;
};

enum class Change { fontSize, lineHeight, margins, theme, mode, spread, windowSize };

const char* nameOf(Change change) {
  switch (change) {
    case Change::fontSize:
      return "font size";
    case Change::lineHeight:
      return "line height";
    case Change::margins:
      return "margins";
    case Change::theme:
      return "theme";
    case Change::mode:
      return "mode";
    case Change::spread:
      return "spread";
    case Change::windowSize:
      return "window size";
  }
  return "?";
}

Settings changed(Settings settings, Change change, std::mt19937& random) {
  const auto pick = [&](auto values) {
    return values[std::uniform_int_distribution<std::size_t>(0, values.size() - 1)(random)];
  };
  switch (change) {
    case Change::fontSize:
      settings.fontScale = pick(std::vector{0.8, 0.9, 1.1, 1.21, 1.4, 1.8});
      break;
    case Change::lineHeight:
      settings.lineHeight = pick(std::vector{1.2, 1.35, 1.7, 1.9, 2.2});
      break;
    case Change::margins:
      settings.margins = pick(std::vector{2.0, 4.0, 9.0, 12.0});
      break;
    case Change::theme:
      settings.theme = pick(std::vector{ReadingThemeSelection::dark, ReadingThemeSelection::warm,
                                        ReadingThemeSelection::light});
      break;
    case Change::mode:
      settings.mode =
          settings.mode == ReadingMode::paginated ? ReadingMode::scrolled : ReadingMode::paginated;
      break;
    case Change::spread:
      settings.layout = settings.layout == PageLayout::doublePage ? PageLayout::singlePage
                                                                  : PageLayout::doublePage;
      break;
    case Change::windowSize:
      settings.width = pick(std::vector{640, 760, 1024, 1200});
      settings.height = pick(std::vector{600, 900, 760});
      break;
  }
  return settings;
}

// ---- The runtime, driven through the bridge -----------------------------------------------------

class Driver {
 public:
  Driver() : host_(ReaderWebViewHost::create()), window_(gtk_window_new()) {
    gtk_window_set_default_size(GTK_WINDOW(window_), kWindowWidth, kWindowHeight);
    gtk_window_set_child(GTK_WINDOW(window_), GTK_WIDGET(host_->webView()));
    gtk_window_present(GTK_WINDOW(window_));
    async::runUntilDone(host_->prepareRuntime(TOMEKEEPER_RUNTIME_PAGE_DIRECTORY, 10s), 30s);
    bridge().onLocatorChanged = [this](Locator locator) { told_ = std::move(locator); };
  }
  ~Driver() {
    host_.reset();
    gtk_window_destroy(GTK_WINDOW(window_));
  }

  ReaderWebViewHost& host() { return *host_; }
  ReaderBridge& bridge() { return *host_->bridge(); }
  const std::optional<Locator>& told() const { return told_; }

  template <typename Result>
  Result run(async::Task<Result> task) {
    return async::runUntilDone(std::move(task), 120s);
  }

  enum class Calls { differences, all };

  // Brings the runtime from `from` to `to`, one bridge call per setting that differs, or for
  // every setting (the runtime's own defaults are not those of Settings).
  void apply(const Settings& from, const Settings& to, Calls calls = Calls::differences) {
    const bool all = calls == Calls::all;
    if (all || from.fontScale != to.fontScale || from.lineHeight != to.lineHeight ||
        from.margins != to.margins) {
      ConfigureTypographyRequest typography;
      typography.fontScale = {ResolvedTypographyFontScale::Mode::value, to.fontScale};
      typography.lineHeight = {ResolvedTypographyLineHeight::Mode::value, to.lineHeight};
      typography.pageMargins = {ResolvedTypographyPageMargins::Mode::preset, to.margins};
      run(bridge().configureTypography(typography));
    }
    if (all || from.theme != to.theme)
      run(bridge().configureTheme(ConfigureThemeRequest{{to.theme}}));
    if (all || from.mode != to.mode) {
      run(bridge().configureReadingMode(ConfigureReadingModeRequest{to.mode}));
    }
    if (all || from.layout != to.layout) {
      run(bridge().configurePageLayout(ConfigurePageLayoutRequest{to.layout}));
    }
    if (from.width != to.width || from.height != to.height) resize(to.width, to.height);
  }

  // A new window size reaches the page as a resize, which lays it out again and tells the place.
  void resize(int width, int height) {
    told_.reset();
    gtk_window_set_default_size(GTK_WINDOW(window_), width, height);
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!told_ && std::chrono::steady_clock::now() < deadline) {
      g_main_context_iteration(nullptr, TRUE);
    }
    // The runtime answers once WebKit has drawn the new size.
    run(bridge().currentLocator());
  }

  // Selects three words wholly on screen in the section shown and gives the selection.
  std::optional<TextSelection> selectWordsOnScreen() {
    const std::string script = R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      if (!frame) return false;
      const doc = frame.contentDocument;
      const frameBox = frame.getBoundingClientRect();
      const viewport = document.getElementById('reader-viewport').getBoundingClientRect();
      const inside = (box) => {
        const x = frameBox.left + box.left + box.width / 2, y = frameBox.top + box.top + box.height / 2;
        return x >= viewport.left && x <= viewport.right && y >= viewport.top && y <= viewport.bottom;
      };
      const walker = doc.createTreeWalker(doc.body, NodeFilter.SHOW_TEXT);
      for (let node = walker.nextNode(); node; node = walker.nextNode()) {
        const words = [...node.data.matchAll(/\p{L}+/gu)];
        for (let first = 2; first + 3 <= words.length; first += 1) {
          const range = doc.createRange();
          range.setStart(node, words[first].index);
          const last = words[first + 2];
          range.setEnd(node, last.index + last[0].length);
          const boxes = [...range.getClientRects()].filter((box) => box.width > 0 && box.height > 0);
          if (boxes.length === 0 || !boxes.every(inside)) continue;
          doc.getSelection().removeAllRanges();
          doc.getSelection().addRange(range);
          return true;
        }
      }
      return false;
    )";
    if (evaluate("return " + std::string("(() => {") + script + "})() === true;") != "true") {
      return std::nullopt;
    }
    return run(bridge().currentSelection()).selection;
  }

  // Runs `body` as an async function in the runtime page; gives its result as JSON text.
  std::string evaluate(const std::string& body) {
    struct Outcome {
      bool finished = false;
      std::string text;
    } outcome;
    const std::string wrapped = "return JSON.stringify(await (async () => {" + body + "})());";
    webkit_web_view_call_async_javascript_function(
        host_->webView(), wrapped.c_str(), -1, nullptr, nullptr, nullptr, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          auto* outcome = static_cast<Outcome*>(data);
          JSCValue* value = webkit_web_view_call_async_javascript_function_finish(
              WEBKIT_WEB_VIEW(source), result, nullptr);
          if (value != nullptr) {
            gchar* text = jsc_value_to_string(value);
            outcome->text = text;
            g_free(text);
            g_object_unref(value);
          }
          outcome->finished = true;
        },
        &outcome);
    while (!outcome.finished) g_main_context_iteration(nullptr, TRUE);
    return outcome.text;
  }

  // What the viewport and the section frames measure, for the report of a drift.
  std::string measures() {
    return evaluate(R"(
      const viewport = document.getElementById('reader-viewport');
      const frames = [...document.querySelectorAll('iframe.section-frame')].map((frame) =>
        ({ preparing: frame.classList.contains('preparing'), width: frame.offsetWidth, height: frame.offsetHeight,
           writing: frame.contentDocument && frame.contentDocument.body ? getComputedStyle(frame.contentDocument.body).writingMode : null,
           inner: frame.contentWindow ? frame.contentWindow.innerWidth : null,
           innerScroll: frame.contentDocument && frame.contentDocument.scrollingElement
             ? [frame.contentDocument.scrollingElement.scrollLeft, frame.contentDocument.scrollingElement.scrollTop] : null,
           body: frame.contentDocument && frame.contentDocument.body
             ? [frame.contentDocument.body.scrollWidth, frame.contentDocument.body.scrollHeight] : null,
           root: frame.contentDocument ? frame.contentDocument.documentElement.style.cssText : null,
           url: frame.src.replace(/.*\//, '') }));
      return { top: viewport.scrollTop, left: viewport.scrollLeft, clientWidth: viewport.clientWidth,
               clientHeight: viewport.clientHeight, scrollHeight: viewport.scrollHeight, frames };
    )");
  }

 private:
  std::shared_ptr<ReaderWebViewHost> host_;
  GtkWidget* window_;
  std::optional<Locator> told_;
};

std::string describe(const std::optional<Locator>& locator) {
  if (!locator) return "(none)";
  std::string text = locator->cfi.value_or("(no CFI)");
  if (locator->excerpt) text += " \"" + locator->excerpt->exact + "\"";
  return text;
}

struct Drift {
  std::string book;
  std::string changes;
  std::string what;
  std::string before;
  std::string after;
};

}  // namespace

int main(int argc, char** argv) {
  // Line by line: a long run's findings survive a kill, and a sanitizer's exit, which does not
  // flush the standard streams.
  setvbuf(stdout, nullptr, _IOLBF, 0);
  int cycles = 1000;
  unsigned seed = 1;
  int mostChanges = 4;
  for (int index = 1; index + 1 < argc; index += 2) {
    const std::string option = argv[index];
    if (option == "--cycles") cycles = std::atoi(argv[index + 1]);
    if (option == "--seed") seed = static_cast<unsigned>(std::atoi(argv[index + 1]));
    if (option == "--most-changes") mostChanges = std::atoi(argv[index + 1]);
  }
  gtk_init();
  gchar* made = g_dir_make_tmp("tomekeeper-fidelity-XXXXXX", nullptr);
  if (made == nullptr) return 2;
  const std::filesystem::path directory = made;
  g_free(made);
  Driver driver;

  driver.apply(Settings{}, Settings{}, Driver::Calls::all);
  std::string only;
  for (int index = 1; index + 1 < argc; index += 2) {
    if (std::string(argv[index]) == "--only") only = argv[index + 1];
  }
  std::vector<Book> books;
  const std::filesystem::path corpus = TOMEKEEPER_SAMPLE_CORPUS_DIRECTORY;
  std::vector<std::filesystem::path> archives;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(corpus, error)) {
    if (entry.path().extension() == ".epub" &&
        entry.path().filename().string().find(only) != std::string::npos) {
      archives.push_back(entry.path());
    }
  }
  std::sort(archives.begin(), archives.end());
  const std::vector<std::pair<std::string, std::string>> generated = {
      {"generated-left-to-right",
       generatedBook("en", "ltr", "body { line-height: 1.5; }\n", englishSentence)},
      {"generated-right-to-left",
       generatedBook("ar", "rtl", "body { line-height: 1.6; }\n", arabicSentence)},
      {"generated-vertical",
       generatedBook("ja", "rtl",
                     "html, body { writing-mode: vertical-rl; -epub-writing-mode: vertical-rl; }\n",
                     japaneseSentence)},
  };
  for (const auto& [name, epub] : generated) {
    if (name.find(only) == std::string::npos) continue;
    const std::filesystem::path archive = directory / (name + ".epub");
    FILE* file = std::fopen(archive.c_str(), "wb");
    std::fwrite(epub.data(), 1, epub.size(), file);
    std::fclose(file);
    archives.push_back(archive);
  }
  for (const auto& archive : archives) {
    try {
      books.push_back(registerBook(driver.host(), archive, directory));
    } catch (const std::exception& failure) {
      std::printf("skipped %s: %s\n", archive.filename().c_str(), failure.what());
    }
  }

  std::mt19937 random(seed);
  std::vector<Drift> drifts;
  int cyclesRun = 0, highlightChecks = 0, placesWithoutText = 0;
  Settings current;
  const Book* openBook = nullptr;
  // Places without text are passed over, so a run takes attempts until `cycles` have run.
  for (int attempt = 0; cyclesRun < cycles && attempt < 3 * cycles; ++attempt) {
    Book& book = books[static_cast<std::size_t>(attempt) % books.size()];
    if (openBook != &book) {
      book.sectionCount = driver.run(driver.bridge().open(book.request)).spineItemCount;
      openBook = &book;
    }
    const Settings start =
        changed(changed(Settings{}, Change::mode, random), Change::fontSize, random);
    driver.apply(current, start);
    current = start;

    // A random place that shows text, so that it has a CFI to compare.
    Locator target;
    target.spineIndex =
        std::uniform_int_distribution<std::int64_t>(0, book.sectionCount - 1)(random);
    target.sectionProgression = std::uniform_real_distribution<double>(0.0, 0.95)(random);
    driver.run(driver.bridge().goTo(GoToLocatorRequest{target}));
    const Locator before = driver.run(driver.bridge().currentLocator());
    const std::string measuredBefore = driver.measures();
    if (!before.cfi) {
      ++placesWithoutText;
      continue;
    }
    if (const std::optional<TextSelection> selection = driver.selectWordsOnScreen()) {
      RuntimeAnnotation highlight{Uuid::random(), selection->locator, selection->selectedText,
                                  AnnotationColor::yellow};
      driver.run(driver.bridge().addAnnotation(AnnotationRequest{highlight}));
      book.highlights.push_back(highlight);
    }

    std::string changes = start.mode == ReadingMode::scrolled ? "(scrolled) " : "(paginated) ";
    const int changeCount =
        std::uniform_int_distribution<int>(std::min(1, mostChanges), mostChanges)(random);
    for (int step = 0; step < changeCount; ++step) {
      const auto change = static_cast<Change>(std::uniform_int_distribution<int>(0, 6)(random));
      const Settings next = changed(current, change, random);
      driver.apply(current, next);
      current = next;
      changes += std::string(step == 0 ? "" : ", ") + nameOf(change);
    }
    driver.apply(current, start);
    current = start;
    changes += changeCount == 0 ? "no change" : ", back";
    ++cyclesRun;

    const std::optional<Locator> saved = driver.told();
    const Locator shown = driver.run(driver.bridge().currentLocator());
    const std::size_t driftsBefore = drifts.size();
    if (!saved || saved->cfi != before.cfi) {
      drifts.push_back({book.name, changes, "saved", describe(before), describe(saved)});
    }
    if (shown.cfi != before.cfi) {
      drifts.push_back({book.name, changes, "shown", describe(before), describe(shown)});
    }
    if (drifts.size() != driftsBefore) {
      drifts.back().after += " " + driver.measures();
      drifts.back().before += " " + measuredBefore;
    }
    // Closed and opened again, as the application does with the saved place.
    driver.run(driver.bridge().open(book.request));
    driver.run(driver.bridge().goTo(GoToLocatorRequest{saved.value_or(before)}));
    const Locator reopened = driver.run(driver.bridge().currentLocator());
    if (reopened.cfi != before.cfi) {
      drifts.push_back({book.name, changes, "reopened", describe(before) + " " + measuredBefore,
                        describe(reopened) + " " + driver.measures()});
    }
    for (const RuntimeAnnotation& highlight : book.highlights) {
      const AnnotationRenderResult rendered =
          driver.run(driver.bridge().addAnnotation(AnnotationRequest{highlight}));
      ++highlightChecks;
      if (!rendered.rendered || rendered.resolution != "cfi") {
        drifts.push_back({book.name, changes, "highlight", highlight.selectedText,
                          rendered.rendered ? "resolved by " + rendered.resolution : "not placed"});
      }
    }
    // As found, with the cycle's number: a long run's findings can be looked at while it goes on.
    for (std::size_t index = driftsBefore; index < drifts.size(); ++index) {
      std::printf("drift in cycle %d (%s, after %s): %s place %s, was %s\n", cyclesRun,
                  drifts[index].book.c_str(), drifts[index].changes.c_str(),
                  drifts[index].what.c_str(), drifts[index].after.c_str(),
                  drifts[index].before.c_str());
    }
  }

  std::printf(
      "cycles run: %d over %zu books (seed %u; %d random places without text passed over)\n",
      cyclesRun, books.size(), seed, placesWithoutText);
  std::printf("highlight checks: %d\n", highlightChecks);
  std::printf("drifts: %zu\n", drifts.size());
  for (const Drift& drift : drifts) {
    std::printf("  %s, after %s: %s place %s, was %s\n", drift.book.c_str(), drift.changes.c_str(),
                drift.what.c_str(), drift.after.c_str(), drift.before.c_str());
  }
  std::filesystem::remove_all(directory, error);
  return drifts.empty() ? 0 : 1;
}
