// Times a no-op bridge request through a real web view: envelope, script evaluation in the
// page, DOM event, forwarder, message handler, validation and decoding. Prints the median and
// 95th percentile of 1000 round trips. Needs a display: xvfb-run -a dbus-run-session -- ...
#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "async/RunUntilDone.h"
#include "runtime/ReaderWebViewHost.h"

namespace {

using namespace tomekeeper;
using Clock = std::chrono::steady_clock;

async::Task<std::vector<double>> measure(std::shared_ptr<ReaderWebViewHost> host, int count) {
  co_await host->prepareRuntime(TOMEKEEPER_BENCH_RUNTIME_DIRECTORY, std::chrono::seconds(10));
  std::vector<double> milliseconds;
  milliseconds.reserve(static_cast<std::size_t>(count));
  for (int warmUp = 0; warmUp < 50; ++warmUp) {
    co_await host->bridge()->cancelSearch(CancelSearchRequest{Uuid::random()});
  }
  for (int index = 0; index < count; ++index) {
    const auto started = Clock::now();
    co_await host->bridge()->cancelSearch(CancelSearchRequest{Uuid::random()});
    milliseconds.push_back(
        std::chrono::duration<double, std::milli>(Clock::now() - started).count());
  }
  co_return milliseconds;
}

double percentile(std::vector<double> values, double fraction) {
  std::sort(values.begin(), values.end());
  const auto index = static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1));
  return values[index];
}

}  // namespace

int main() {
  gtk_init();
  auto host = ReaderWebViewHost::create();
  GtkWidget* window = gtk_window_new();
  gtk_window_set_child(GTK_WINDOW(window), GTK_WIDGET(host->webView()));
  gtk_window_present(GTK_WINDOW(window));
  constexpr int kRequests = 1000;
  const std::vector<double> times =
      async::runUntilDone(measure(host, kRequests), std::chrono::minutes(5));
  std::printf("no-op bridge round trip over %d requests: median %.3f ms, p95 %.3f ms\n", kRequests,
              percentile(times, 0.5), percentile(times, 0.95));
  host.reset();
  gtk_window_destroy(GTK_WINDOW(window));
  return 0;
}
