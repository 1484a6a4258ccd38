// What the display tests share below their fixtures: a script run in a web view's page, and a
// song made at test time.
#pragma once

#include <gtest/gtest.h>
#include <webkit/webkit.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <nlohmann/json.hpp>

#include "FakeReaderBridgeTransport.h"

namespace tomekeeper::testing {

// Runs `body` as an async function in the page of `webView` and gives its JSON-able result;
// a failure of the script, or no answer within `limit`, fails the test and gives null.
inline nlohmann::json evaluateInPage(WebKitWebView* webView, const std::string& body,
                                     std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  struct Outcome {
    bool finished = false;
    std::string text;
    std::string error;
  } outcome;
  const std::string wrapped = "return JSON.stringify(await (async () => {" + body + "})());";
  webkit_web_view_call_async_javascript_function(
      webView, wrapped.c_str(), -1, nullptr, nullptr, nullptr, nullptr,
      [](GObject* source, GAsyncResult* result, gpointer data) {
        auto* outcome = static_cast<Outcome*>(data);
        GError* error = nullptr;
        JSCValue* value = webkit_web_view_call_async_javascript_function_finish(
            WEBKIT_WEB_VIEW(source), result, &error);
        if (value == nullptr) {
          outcome->error = error != nullptr ? error->message : "no value";
          g_clear_error(&error);
        } else {
          char* text = jsc_value_is_undefined(value) ? nullptr : jsc_value_to_string(value);
          outcome->text = text != nullptr ? text : "null";
          g_free(text);
          g_object_unref(value);
        }
        outcome->finished = true;
      },
      &outcome);
  if (!iterateUntil([&] { return outcome.finished; }, limit)) {
    ADD_FAILURE() << "the script did not finish: " << body;
    // The callback still holds the outcome; wait for it before it goes away.
    iterateUntil([&] { return outcome.finished; }, std::chrono::seconds(60));
    return nullptr;
  }
  if (!outcome.error.empty()) {
    ADD_FAILURE() << "the script failed: " << outcome.error << "\n" << body;
    return nullptr;
  }
  return nlohmann::json::parse(outcome.text);
}

// Six seconds of a tone as Ogg Vorbis, made by gst-launch-1.0 at `path`; empty when the tools
// are missing (tools/dependencies.txt lists them).
inline std::string generatedSong(const std::filesystem::path& path) {
  const std::string command =
      "gst-launch-1.0 -q audiotestsrc num-buffers=260 samplesperbuffer=1024 ! "
      "audio/x-raw,rate=44100,channels=1 ! audioconvert ! vorbisenc ! oggmux ! filesink "
      "location='" +
      path.string() + "' > /dev/null 2>&1";
  if (std::system(command.c_str()) != 0) return {};
  std::ifstream input(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

}  // namespace tomekeeper::testing
