// A book served by the publication scheme to a real web view: its images as the web view
// resolves their links (past the container root, from it, in another letter case) and only
// those its manifest lists; its audio, made at test time with GStreamer's own tools, read over
// the scheme and played until its time advances, also after a seek.
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <webkit/webkit.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "PageScript.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "runtime/PublicationSchemeHandler.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using testing::generatedSong;
using testing::iterateUntil;

class PublicationSchemeDisplayTest : public ::testing::Test {
 protected:
  // Xvfb has no sound card. ALSA's null device takes the samples as a card would, so the
  // media engine's audio output opens and its clock runs; set before the first web view
  // starts its web process, which inherits the environment and sees the file in its sandbox.
  static void SetUpTestSuite() {
    static ::tomekeeper::testing::TemporaryDirectory configuration;
    const std::filesystem::path file = configuration / "asound.conf";
    std::ofstream(file) << "pcm.!default { type null }\nctl.!default { type hw card 0 }\n";
    g_setenv("ALSA_CONFIG_PATH", file.c_str(), TRUE);
    gtk_init();
    webkit_web_context_add_path_to_sandbox(webkit_web_context_get_default(),
                                           configuration.path().c_str(), TRUE);
  }

  void SetUp() override {
    // A reader starts the song with a click on its controls; the test lets it start unasked.
    WebKitWebsitePolicies* policies =
        webkit_website_policies_new_with_policies("autoplay", WEBKIT_AUTOPLAY_ALLOW, nullptr);
    webView_ =
        WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "website-policies", policies, nullptr));
    g_object_unref(policies);
    window_ = gtk_window_new();
    gtk_window_set_child(GTK_WINDOW(window_), GTK_WIDGET(webView_));
    gtk_window_present(GTK_WINDOW(window_));
    handler_->attach(webView_);
  }

  void TearDown() override { gtk_window_destroy(GTK_WINDOW(window_)); }

  // Checks, unpacks and registers `book`; the base URL of its files.
  std::string registerBook(const ::tomekeeper::testing::EpubBuilder& book) {
    book.writeTo(directory_ / "book.epub");
    const std::filesystem::path root =
        EPUBArchiveExtractor()
            .extract(directory_ / "book.epub",
                     EPUBArchiveInspector().inspectBlocking(directory_ / "book.epub"),
                     directory_ / "Extracted")
            .rootURL;
    const Uuid publicationID = Uuid::random();
    handler_->registerPublication(publicationID, root);
    return "tomekeeper://publication/" + publicationID.string() + "/";
  }

  nlohmann::json evaluate(const std::string& body) {
    return testing::evaluateInPage(webView_, body);
  }

  void load(const std::string& url) {
    webkit_web_view_load_uri(webView_, url.c_str());
    ASSERT_TRUE(iterateUntil([&] { return !webkit_web_view_is_loading(webView_); }, 20s));
  }

  ::tomekeeper::testing::TemporaryDirectory directory_;
  std::shared_ptr<PublicationSchemeHandler> handler_ = PublicationSchemeHandler::create();
  WebKitWebView* webView_ = nullptr;
  GtkWidget* window_ = nullptr;
};

// A small PNG of one colour, written by gdk-pixbuf.
std::string portableNetworkGraphic() {
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 3, 2);
  gdk_pixbuf_fill(pixbuf, 0xCC2200FF);
  gchar* buffer = nullptr;
  gsize size = 0;
  const bool saved = gdk_pixbuf_save_to_buffer(pixbuf, &buffer, &size, "png", nullptr, nullptr);
  g_object_unref(pixbuf);
  std::string bytes = saved ? std::string(buffer, size) : std::string();
  g_free(buffer);
  return bytes;
}

TEST_F(PublicationSchemeDisplayTest, ImagesShowAsLinkedFromAnywhereInTheBookButOnlyListedOnes) {
  ::tomekeeper::testing::PackageDescription package;
  package.manifest.emplace_back("chapter", "text/chapter.xhtml");
  package.manifest.emplace_back("photo", "images/photo.png", "image/png");
  package.spine = {"chapter"};
  const std::string image = portableNetworkGraphic();
  ASSERT_FALSE(image.empty());
  ::tomekeeper::testing::EpubBuilder book;
  book.withPackageDocument(package)
      .addFile("OEBPS/text/chapter.xhtml",
               "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
               "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>Images</title></head>"
               "<body><img id=\"relative\" src=\"../images/photo.png\"/>"
               "<img id=\"climbing\" src=\"../../../../OEBPS/images/photo.png\"/>"
               "<img id=\"rooted\" src=\"/OEBPS/images/photo.png\"/>"
               "<img id=\"cased\" src=\"../IMAGES/Photo.PNG\"/>"
               "<img id=\"unlisted\" src=\"../images/red.png\"/>"
               "<img id=\"outside\" src=\"../../../../../secret.png\"/></body></html>")
      .addFile("OEBPS/images/photo.png", image)
      .addFile("OEBPS/images/red.png", image);
  std::ofstream(directory_ / "secret.png", std::ios::binary) << image;
  load(registerBook(book) + "OEBPS/text/chapter.xhtml");
  // The page has loaded, so every image has either drawn or failed.
  const nlohmann::json widths = evaluate(
      "return Object.fromEntries(Array.from(document.images, (image) =>"
      "[image.id, image.complete ? image.naturalWidth : -1]));");
  const nlohmann::json expected = {{"relative", 3}, {"climbing", 3}, {"rooted", 3},
                                   {"cased", 3},    {"unlisted", 0}, {"outside", 0}};
  EXPECT_EQ(widths, expected);
}

TEST_F(PublicationSchemeDisplayTest, ABooksAudioPlaysAndSeeks) {
  const std::string song = generatedSong(directory_ / "song.ogg");
  ASSERT_FALSE(song.empty()) << "gst-launch-1.0 with vorbisenc and oggmux is needed "
                                "(tools/dependencies.txt)";
  ::tomekeeper::testing::PackageDescription package;
  package.withChapters(1);
  package.manifest.emplace_back("song", "media/song.ogg", "audio/ogg");
  ::tomekeeper::testing::EpubBuilder book;
  book.withPackageDocument(package)
      .replaceFile("OEBPS/chapter1.xhtml",
                   "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                   "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>Song</title></head>"
                   "<body><audio id=\"song\" controls=\"controls\" src=\"media/song.ogg\"/>"
                   "</body></html>")
      .addFile("OEBPS/media/song.ogg", song);
  const std::string base = registerBook(book);
  std::filesystem::create_directories(directory_ / "Runtime");
  std::ofstream(directory_ / "Runtime/host.html") << "<!DOCTYPE html><title>host</title>";
  handler_->setRuntimeProvider(PublicationResourceProvider(directory_ / "Runtime"));
  load("tomekeeper://publication/runtime/host.html");

  // The web view's media engine reads only blob, data, file and web URLs, never a scheme of
  // the application's: the page that frames the chapter reads the song over the scheme and
  // gives the chapter's audio element a blob of it, as the reader runtime must.
  const std::string chapterURL = base + "OEBPS/chapter1.xhtml";
  evaluate(
      "window.stage = 'framing';"
      "const frame = document.createElement('iframe');"
      "frame.src = " +
      nlohmann::json(chapterURL).dump() +
      ";"
      "frame.onload = () => {"
      "  window.song = frame.contentDocument.getElementById('song');"
      "  const request = new XMLHttpRequest();"
      "  request.open('GET', new URL(song.getAttribute('src'), frame.src).href);"
      "  request.responseType = 'blob';"
      "  request.onload = () => { song.src = URL.createObjectURL(request.response);"
      "    song.play().then(() => { window.stage = 'playing'; },"
      "      (error) => { window.stage = 'play refused: ' + error.name; }); };"
      "  request.onerror = () => { window.stage = 'read failed'; };"
      "  request.send(); };"
      "document.body.appendChild(frame); return null;");
  const std::string state =
      "return window.song ? {stage: window.stage, time: song.currentTime,"
      "error: song.error ? song.error.code : 0, duration: song.duration || 0, paused: song.paused} "
      ":"
      "{stage: window.stage, time: 0, error: 0, duration: 0};";
  nlohmann::json last;
  const bool advanced = iterateUntil(
      [&] {
        last = evaluate(state);
        return last.is_object() && (last["stage"] != "framing" &&
                                    (last["stage"] != "playing" ||
                                     (last["time"].get<double>() > 0.5 || last["error"] != 0)));
      },
      30s);
  ASSERT_TRUE(advanced) << last.dump();
  EXPECT_EQ(last["error"], 0) << last.dump();
  EXPECT_GT(last["time"].get<double>(), 0.5);
  EXPECT_GT(last["duration"].get<double>(), 5.0);

  evaluate("song.currentTime = 4.5; song.play(); return null;");
  EXPECT_TRUE(iterateUntil(
      [&] {
        last = evaluate(state);
        return last.is_object() && last["time"].get<double>() > 4.6;
      },
      30s))
      << last.dump();
}

// The batch route as the runtime page reads it: the sections asked for, in one response that
// carries the content policy; a batch naming anything but the spine's documents is refused whole.
TEST_F(PublicationSchemeDisplayTest, ABatchOfSectionsComesInOneResponseAndOnlyForTheSpine) {
  ::tomekeeper::testing::PackageDescription package;
  package.withChapters(4);
  package.manifest.emplace_back("photo", "images/photo.png", "image/png");
  ::tomekeeper::testing::EpubBuilder book;
  const auto chapter = [](const std::string& words) {
    return "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>T</title></head><body><p>" +
           words + "</p></body></html>";
  };
  book.withPackageDocument(package)
      .replaceFile("OEBPS/chapter1.xhtml", chapter("The first words"))
      .addFile("OEBPS/chapter2.xhtml", chapter("The second words"))
      .addFile("OEBPS/images/photo.png", portableNetworkGraphic());
  // A byte order mark and a byte that is no UTF-8; UTF-16 with a letter beyond ASCII.
  book.addFile("OEBPS/chapter3.xhtml", "\xEF\xBB\xBF" + chapter("Marked \xC3 bytes"));
  std::string wide = "\xFF\xFE";
  for (const char character : chapter("Wide _")) wide += std::string{character, '\0'};
  wide.replace(wide.find('_'), 2, std::string("\xE9\0", 2));
  book.addFile("OEBPS/chapter4.xhtml", wide);
  const std::string base = registerBook(book);
  std::filesystem::create_directories(directory_ / "Runtime");
  std::ofstream(directory_ / "Runtime/host.html") << "<!DOCTYPE html><title>host</title>";
  handler_->setRuntimeProvider(PublicationResourceProvider(directory_ / "Runtime"));
  load("tomekeeper://publication/runtime/host.html");

  const auto read = [&](const std::string& query) {
    return evaluate(
        "return await new Promise((resolve) => {"
        "  const request = new XMLHttpRequest();"
        "  request.open('GET', " +
        nlohmann::json(base + "?" + query).dump() +
        ");"
        "  request.onload = () => resolve({status: request.status,"
        "    policy: request.getResponseHeader('Content-Security-Policy'),"
        "    body: request.responseText});"
        "  request.onerror = () => resolve({status: -1});"
        "  request.send(); });");
  };
  const std::string second = "section=" + std::string("OEBPS%2Fchapter2.xhtml");
  const std::string first = "section=" + std::string("OEBPS%2Fchapter1.xhtml");
  const struct {
    const char* behaviour;
    std::string query;
    int status;
  } cases[] = {
      {"ServesTheSectionsAsked", second + "&" + first, 200},
      {"RefusesAnImageOfTheManifest", first + "&section=OEBPS%2Fimages%2Fphoto.png", 403},
      {"RefusesTheContainerDocument", "section=META-INF%2Fcontainer.xml", 403},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.behaviour);
    const nlohmann::json answer = read(testCase.query);
    ASSERT_EQ(answer.value("status", 0), testCase.status);
    EXPECT_EQ(answer.value("policy", ""), std::string(kPublicationContentSecurityPolicy));
    if (testCase.status != 200) continue;
    const nlohmann::json texts = nlohmann::json::parse(answer.value("body", "null"));
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_EQ(texts[0].get<std::string>(), chapter("The second words"));
    EXPECT_EQ(texts[1].get<std::string>(), chapter("The first words"));
  }

  // Each text of a batch is the one the page reads of the section alone, however it is encoded.
  const nlohmann::json compared = evaluate(
      "const read = (url, type) => new Promise((resolve) => {"
      "  const request = new XMLHttpRequest();"
      "  request.open('GET', url);"
      "  request.overrideMimeType(type);"
      "  request.onload = () => resolve(request.responseText);"
      "  request.send(); });"
      "const paths = [1, 2, 3, 4].map((n) => `OEBPS/chapter${n}.xhtml`);"
      "const base = " +
      nlohmann::json(base).dump() +
      ";"
      "const batch = JSON.parse(await read(base + '?' + paths.map((path) =>"
      "  'section=' + encodeURIComponent(path)).join('&'), 'application/json; charset=utf-8'));"
      "const alone = await Promise.all(paths.map((path) =>"
      "  read(base + path, 'text/plain; charset=utf-8')));"
      "return {same: paths.map((path, index) => batch[index] === alone[index]),"
      "  wide: alone[3].includes('Wide \u00e9'), marked: alone[2].charCodeAt(0)};");
  EXPECT_EQ(compared.value("same", nlohmann::json()), nlohmann::json({true, true, true, true}));
  EXPECT_TRUE(compared.value("wide", false)) << "the page reads UTF-16 by its byte order mark";
  EXPECT_EQ(compared.value("marked", 0), '<') << "the page drops the byte order mark";
}

}  // namespace
}  // namespace tomekeeper
