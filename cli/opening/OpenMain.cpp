// tomekeeper-open FILE... [--expect FINGERPRINT] [--trace]
//
// Runs the open road as far as its decision, exactly as a launch with these
// files would: identity (through the identity cache or a hash), then the
// extraction cache, against the user's own data and cache directories (the
// XDG variables are honoured). The files are opened concurrently. One JSON
// line per file, in argument order: the decision, or the alert that a failed
// open would show. Reservations are released before the program exits.
// Exit status: 0 when every file opened, 2 when any was refused, 1 on usage.

#include <glib.h>

#include <cstdio>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "async/RunUntilDone.h"
#include "async/SharedTask.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/DocumentOpenErrorPresentation.h"
#include "opening/DocumentOpenRegistry.h"
#include "opening/OpenPublication.h"

namespace {

using nlohmann::json;
using namespace tomekeeper;

struct Arguments {
  std::vector<std::filesystem::path> files;
  std::optional<std::string> expectedFingerprint;
  bool trace = false;
};

std::optional<Arguments> parse(int argc, char** argv) {
  Arguments arguments;
  for (int index = 1; index < argc; ++index) {
    const std::string argument = argv[index];
    if (argument == "--trace") {
      arguments.trace = true;
    } else if (argument == "--expect" && index + 1 < argc) {
      arguments.expectedFingerprint = argv[++index];
    } else if (argument.starts_with("--")) {
      return std::nullopt;
    } else {
      arguments.files.emplace_back(argument);
    }
  }
  if (arguments.files.empty()) return std::nullopt;
  return arguments;
}

json describeTrace(const OpenPerformanceTrace& trace) {
  const OpenPerformanceTrace::State state = trace.state();
  json described = {{"durationsMS", state.durationsMS}};
  if (state.sourceByteCount) described["sourceByteCount"] = *state.sourceByteCount;
  if (state.archiveEntryCount) described["archiveEntryCount"] = *state.archiveEntryCount;
  if (state.extractionCacheHit) described["extractionCacheHit"] = *state.extractionCacheHit;
  if (state.identityCacheHit) described["identityCacheHit"] = *state.identityCacheHit;
  return described;
}

// Opens one file and describes the outcome.
async::Task<json> openOne(OpenPublication& opener, std::filesystem::path file,
                          std::optional<std::string> expectedFingerprint, bool withTrace) {
  auto trace = withTrace ? std::make_shared<OpenPerformanceTrace>() : nullptr;
  json line = {{"file", file.string()}};
  try {
    const OpenPublicationDecision decision = co_await OpenPerformanceTrace::bind(
        trace, opener.prepare(file, std::move(expectedFingerprint)));
    if (const auto* create = std::get_if<CreateWindow>(&decision)) {
      line["decision"] = "createWindow";
      line["fingerprint"] = create->fingerprint;
      line["extractedRoot"] = create->resources.extractedRoot.string();
    } else {
      line["decision"] = "activateExisting";
      line["fingerprint"] = std::get<ActivateExisting>(decision).fingerprint;
    }
  } catch (...) {
    const DocumentOpenErrorPresentation presentation =
        DocumentOpenErrorPresentation::from(std::current_exception());
    line["decision"] = "refused";
    line["title"] = presentation.title;
    line["message"] = presentation.message;
    line["diagnostic"] = presentation.diagnostic;
  }
  if (trace) line["trace"] = describeTrace(*trace);
  co_return line;
}

async::Task<std::vector<json>> openAll(const Arguments& arguments) {
  const std::filesystem::path support = std::filesystem::path(g_get_user_data_dir()) / "tomekeeper";
  auto registry = std::make_shared<DocumentOpenRegistry>(
      std::make_shared<PublicationFingerprintService>(),
      std::make_shared<PublicationIdentityCache>(support / "DocumentAccess/identity-cache.json"),
      std::make_shared<SourceBookmarkStore>(support / "Publications",
                                            std::make_shared<SystemSecurityScopedBookmarkCodec>()),
      std::make_shared<SecurityScopedAccessLedger>());
  OpenPublication opener(
      registry,
      std::make_shared<PublicationExtractionCache>(PublicationExtractionCache::standardCachesRoot()));

  // Started together, as the files of one launch are.
  std::vector<async::SharedTask<json>> running;
  for (const auto& file : arguments.files) {
    running.push_back(async::SharedTask<json>::start(
        openOne(opener, file, arguments.expectedFingerprint, arguments.trace)));
  }
  std::vector<json> lines;
  for (auto& task : running) lines.push_back(co_await task);
  for (const json& line : lines) {
    if (line["decision"] == "createWindow") opener.releaseReservation(line["fingerprint"]);
  }
  co_return lines;
}

}  // namespace

int main(int argc, char** argv) {
  const std::optional<Arguments> arguments = parse(argc, argv);
  if (!arguments) {
    std::cerr << "usage: tomekeeper-open FILE... [--expect FINGERPRINT] [--trace]\n";
    return 1;
  }
  try {
    bool refused = false;
    for (const json& line : async::runUntilDone(openAll(*arguments))) {
      refused = refused || line["decision"] == "refused";
      std::cout << line.dump() << "\n";
    }
    return refused ? 2 : 0;
  } catch (const std::exception& error) {
    std::cerr << "tomekeeper-open: " << error.what() << "\n";
    return 1;
  }
}
