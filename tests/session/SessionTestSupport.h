#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "../runtime/FakeReaderBridgeTransport.h"
#include "async/MainContext.h"
#include "async/SerialExecutor.h"
#include "model/SystemFontCataloging.h"
#include "persistence/AnnotationRepository.h"
#include "persistence/BookmarkRepository.h"
#include "persistence/PageLayoutRepository.h"
#include "persistence/PersistenceFailures.h"
#include "persistence/ReadingModeRepository.h"
#include "persistence/ReadingPositionRepository.h"
#include "persistence/ReadingThemeRepository.h"
#include "persistence/ScrolledContentWidthRepository.h"
#include "persistence/TypographyPreferencesRepository.h"
#include "session/LocationDiagnostics.h"
#include "session/ReaderHosting.h"

namespace tomekeeper::testing {

using json = nlohmann::json;

// How the scripted runtime answers one request.
struct RuntimeAnswer {
  enum class Kind { result, failure, silence, timeout };
  Kind kind = Kind::result;
  json value = json::object();

  static RuntimeAnswer result(json value) { return {Kind::result, std::move(value)}; }
  // An `ok` false reply with the runtime's error code.
  static RuntimeAnswer failure(std::string code) {
    return {Kind::failure, json{{"code", std::move(code)}, {"message", "refused by the script"}}};
  }
  // No reply at all: the request waits for its ten-second timeout or for the host to close.
  static RuntimeAnswer silence() { return {Kind::silence, json()}; }
  // No reply, and the request's timer runs out at once: the bridge finishes it with `timedOut`
  // exactly as its own timer would, without the test waiting ten seconds.
  static RuntimeAnswer timeout() { return {Kind::timeout, json()}; }
};

inline json locatorJSON(const Locator& locator) {
  return json(locator);
}

inline Locator locatorAt(std::int64_t spineIndex, std::string cfi, double progression = 0.25) {
  Locator locator;
  locator.spineHref = "OEBPS/chapter" + std::to_string(spineIndex) + ".xhtml";
  locator.spineIndex = spineIndex;
  locator.cfi = std::move(cfi);
  locator.sectionProgression = progression;
  locator.totalProgression = progression / 2;
  return locator;
}

// A reader runtime without a page: it answers every bridge method through the real bridge and
// the fake transport, keeps a current locator that goTo and page turns move, and records each
// request in order. A test replaces the answer of any method.
class ScriptedReaderRuntime {
 public:
  struct Call {
    std::string method;
    json payload;
  };

  ScriptedReaderRuntime(std::shared_ptr<FakeReaderBridgeTransport> transport,
                        std::weak_ptr<ReaderBridge> bridge)
      : transport_(std::move(transport)), bridge_(std::move(bridge)) {
    transport_->onDeliver = [this](const json& envelope) { receive(envelope); };
    installDefaults();
  }

  std::vector<Call> calls;
  std::map<std::string, std::function<RuntimeAnswer(const json& payload)>> handlers;
  Locator current = locatorAt(0, "/6/2!/4/2/1:0", 0.0);
  std::int64_t page = 1;
  std::int64_t revision = 0;

  std::vector<std::string> methods() const {
    std::vector<std::string> names;
    for (const Call& call : calls) names.push_back(call.method);
    return names;
  }
  std::size_t count(const std::string& method) const {
    std::size_t found = 0;
    for (const Call& call : calls) found += call.method == method ? 1 : 0;
    return found;
  }
  std::vector<json> payloads(const std::string& method) const {
    std::vector<json> found;
    for (const Call& call : calls) {
      if (call.method == method) found.push_back(call.payload);
    }
    return found;
  }
  // Index of the last call of `method` in `calls`, or -1.
  long lastIndexOf(const std::string& method) const {
    for (long index = static_cast<long>(calls.size()) - 1; index >= 0; --index) {
      if (calls[static_cast<std::size_t>(index)].method == method) return index;
    }
    return -1;
  }

  // Sends an event up, as the page's forwarder would.
  void sendEvent(const std::string& name, json payload) {
    const auto bridge = bridge_.lock();
    if (!bridge) return;
    bridge->receiveMessage(json{{"kind", "event"},
                                {"version", 1},
                                {"generation", bridge->generation()},
                                {"event", name},
                                {"payload", std::move(payload)}});
  }

 private:
  json position() const {
    return json{{"spineIndex", current.spineIndex},
                {"page", page},
                {"pageCount", 12},
                {"atStart", page <= 1},
                {"atEnd", page >= 12},
                {"locatorResolution", "exact"}};
  }

  void installDefaults() {
    // A method that always gives the same result.
    const auto constant = [](json value) {
      return [value](const json&) { return RuntimeAnswer::result(value); };
    };
    handlers["open"] = constant({{"title", "A Book"},
                                 {"authors", json::array({"An Author"})},
                                 {"spineItemCount", 3},
                                 {"initialResourceURL", "tomekeeper://publication/x/c0.xhtml"}});
    handlers["tableOfContents"] = constant(
        {{"items", json::array({json{
                       {"title", "One"}, {"href", "c1.xhtml"}, {"children", json::array()}}})}});
    const auto turn = [this](std::int64_t step) {
      return [this, step](const json&) {
        page += step;
        current.sectionProgression = static_cast<double>(page) / 12.0;
        current.cfi = "/6/2!/4/" + std::to_string(2 * page) + "/1:0";
        return RuntimeAnswer::result(position());
      };
    };
    handlers["next"] = turn(1);
    handlers["previous"] = turn(-1);
    handlers["nextSection"] = [this](const json&) {
      current = locatorAt(current.spineIndex + 1, "/6/4!/4/2/1:0", 0.0);
      page = 1;
      return RuntimeAnswer::result(position());
    };
    handlers["previousSection"] = [this](const json&) {
      current = locatorAt(std::max<std::int64_t>(0, current.spineIndex - 1), "/6/2!/4/2/1:0", 0.0);
      page = 1;
      return RuntimeAnswer::result(position());
    };
    handlers["goTo"] = [this](const json& payload) {
      if (payload.contains("locator")) current = payload["locator"].get<Locator>();
      return RuntimeAnswer::result(position());
    };
    handlers["currentLocator"] = [this](const json&) {
      return RuntimeAnswer::result(locatorJSON(current));
    };
    handlers["currentSelection"] = constant({{"selection", nullptr}});
    handlers["configureTypography"] = [this](const json&) {
      return RuntimeAnswer::result({{"applied", true},
                                    {"configurationRevision", ++revision},
                                    {"computedRootFontSize", 16.0},
                                    {"computedBodyFontFamily", "serif"}});
    };
    handlers["configureTheme"] = [this](const json&) {
      return RuntimeAnswer::result({{"configurationRevision", ++revision},
                                    {"computedBodyColor", "rgb(0, 0, 0)"},
                                    {"computedBodyBackgroundColor", "rgb(255, 255, 255)"}});
    };
    handlers["configureReadingMode"] = [this](const json& payload) {
      return RuntimeAnswer::result({{"requestedMode", payload["mode"]},
                                    {"effectiveMode", payload["mode"]},
                                    {"computedContainerOverflow", "hidden"},
                                    {"configurationRevision", ++revision}});
    };
    handlers["configurePageLayout"] = [this](const json& payload) {
      return RuntimeAnswer::result(
          {{"requestedLayout", payload["layout"]},
           {"effectiveColumnCount", payload["layout"] == "doublePage" ? 2 : 1},
           {"computedContainerOverflow", "hidden"},
           {"configurationRevision", ++revision}});
    };
    handlers["configureScrolledContentWidth"] = [this](const json& payload) {
      return RuntimeAnswer::result({{"preset", payload["preset"]},
                                    {"computedBodyMaxInlineSize", payload["maxInlineSize"]},
                                    {"configurationRevision", ++revision}});
    };
    handlers["configureBookmarkVisibility"] = constant({{"visibleBookmarkIDs", json::array()}});
    for (const char* method : {"addAnnotation", "removeAnnotation", "pulseAnnotation"}) {
      handlers[method] = constant({{"rendered", true}, {"resolution", "exact"}});
    }
    handlers["startSearch"] = [](const json& payload) {
      return RuntimeAnswer::result({{"searchID", payload["searchID"]}});
    };
    handlers["cancelSearch"] = constant(json::object());
  }

  void receive(const json& envelope) {
    const std::string method = envelope["method"].get<std::string>();
    const json payload = envelope.contains("payload") ? envelope["payload"] : json::object();
    calls.push_back({method, payload});
    const auto handler = handlers.find(method);
    RuntimeAnswer answer = handler == handlers.end() ? RuntimeAnswer::failure("unknown-method")
                                                     : handler->second(payload);
    if (answer.kind == RuntimeAnswer::Kind::silence) return;
    if (answer.kind == RuntimeAnswer::Kind::timeout) {
      const std::optional<Uuid> id = Uuid::fromString(envelope["id"].get<std::string>());
      async::postToMain([bridge = bridge_, id] {
        if (auto alive = bridge.lock(); alive && id) {
          alive->completeRequest(*id, ReaderBridgeFailure(ReaderBridgeFailure::Case::timedOut));
        }
      });
      return;
    }
    json reply = {{"kind", "response"},
                  {"version", 1},
                  {"id", envelope["id"]},
                  {"generation", envelope["generation"]}};
    if (answer.kind == RuntimeAnswer::Kind::result) {
      reply["ok"] = true;
      reply["result"] = std::move(answer.value);
    } else {
      reply["ok"] = false;
      reply["error"] = std::move(answer.value);
    }
    async::postToMain([bridge = bridge_, reply = std::move(reply)] {
      if (auto alive = bridge.lock()) alive->receiveMessage(reply);
    });
  }

  std::shared_ptr<FakeReaderBridgeTransport> transport_;
  std::weak_ptr<ReaderBridge> bridge_;
};

// A host without a display: a real bridge over the fake transport, driven by the scripted
// runtime.
class FakeReaderHost final : public ReaderHosting {
 public:
  FakeReaderHost()
      : transport(std::make_shared<FakeReaderBridgeTransport>()),
        bridge_(ReaderBridge::create(transport)),
        runtime(transport, bridge_) {}

  std::shared_ptr<FakeReaderBridgeTransport> transport;

 private:
  std::shared_ptr<ReaderBridge> bridge_;

 public:
  ScriptedReaderRuntime runtime;
  std::vector<std::pair<Uuid, std::filesystem::path>> registrations;
  std::exception_ptr registrationFailure;
  std::exception_ptr runtimeFailure;
  int closeCount = 0;
  struct MenuPresentation {
    ReaderAnnotationContextMenuRequest request;
    AnnotationNotePresence notePresence;
  };
  std::vector<MenuPresentation> menus;

  const std::shared_ptr<ReaderBridge>& bridge() const override { return bridge_; }
  void registerPublication(const Uuid& publicationID, const std::filesystem::path& root) override {
    if (registrationFailure) std::rethrow_exception(registrationFailure);
    registrations.emplace_back(publicationID, root);
  }
  async::Task<void> prepareRuntime(std::filesystem::path,
                                   std::chrono::steady_clock::duration) override {
    if (runtimeFailure) std::rethrow_exception(runtimeFailure);
    co_return;
  }
  void close() override {
    ++closeCount;
    bridge_->failAllPending(ReaderBridgeFailure(ReaderBridgeFailure::Case::readerClosed));
  }
  ReaderViewportSize viewportSize() const override { return {800, 600}; }
  void presentAnnotationMenu(const ReaderAnnotationContextMenuRequest& request,
                             AnnotationNotePresence notePresence) override {
    menus.push_back({request, notePresence});
  }
};

// ---- Stores in memory, on a serial executor like the real ones ------------------------------

// Each operation passes through the store's own serial executor, as on the JSON stores, and
// throws the failure a test set for reads or for writes.
template <typename Failure>
class MemoryStore {
 public:
  std::optional<Failure> readFailure;
  std::optional<Failure> writeFailure;

 protected:
  async::Task<void> reading() {
    co_await executor_.run([] {});
    if (readFailure) throwFailure(*readFailure);
  }
  async::Task<void> writing() {
    co_await executor_.run([] {});
    if (writeFailure) throwFailure(*writeFailure);
  }

 private:
  async::SerialExecutor executor_;
};

class MemoryPositionRepository final : public ReadingPositionRepository,
                                       public MemoryStore<ReadingPositionPersistenceFailure> {
 public:
  std::map<std::string, Locator> locators;
  std::vector<Locator> saves;
  int deleteCount = 0;

  async::Task<std::optional<Locator>> locator(std::string fingerprint) override {
    co_await reading();
    const auto found = locators.find(fingerprint);
    if (found == locators.end()) co_return std::nullopt;
    co_return found->second;
  }
  async::Task<void> save(Locator value, std::string fingerprint) override {
    co_await writing();
    saves.push_back(value);
    locators[fingerprint] = std::move(value);
  }
  async::Task<void> deleteLocator(std::string fingerprint) override {
    co_await writing();
    ++deleteCount;
    locators.erase(fingerprint);
  }
};

// The records of every book in one list; a save replaces the record of the same id.
template <typename Record, typename Failure>
class MemoryRecordStore : public MemoryStore<Failure> {
 public:
  std::vector<Record> stored;

 protected:
  async::Task<std::vector<Record>> list(std::string fingerprint) {
    co_await this->reading();
    std::vector<Record> found;
    for (const Record& record : stored) {
      if (record.bookFingerprint == fingerprint) found.push_back(record);
    }
    co_return found;
  }
  async::Task<void> put(Record record) {
    co_await this->writing();
    for (Record& entry : stored) {
      if (entry.id == record.id) {
        entry = std::move(record);
        co_return;
      }
    }
    stored.push_back(std::move(record));
  }
  async::Task<void> erase(Uuid id) {
    co_await this->writing();
    std::erase_if(stored, [&](const Record& record) { return record.id == id; });
  }
  async::Task<void> eraseAll(std::string fingerprint) {
    co_await this->writing();
    std::erase_if(stored,
                  [&](const Record& record) { return record.bookFingerprint == fingerprint; });
  }
};

class MemoryBookmarkRepository final
    : public BookmarkRepository,
      public MemoryRecordStore<Bookmark, BookmarkPersistenceFailure> {
 public:
  async::Task<std::vector<Bookmark>> bookmarks(std::string fingerprint) override {
    return list(std::move(fingerprint));
  }
  async::Task<void> save(Bookmark bookmark) override { return put(std::move(bookmark)); }
  async::Task<void> deleteBookmark(Uuid id, std::string) override { return erase(id); }
  async::Task<void> deleteAll(std::string fingerprint) override {
    return eraseAll(std::move(fingerprint));
  }
};

class MemoryAnnotationRepository final
    : public AnnotationRepository,
      public MemoryRecordStore<Annotation, AnnotationPersistenceFailure> {
 public:
  async::Task<std::vector<Annotation>> annotations(std::string fingerprint) override {
    return list(std::move(fingerprint));
  }
  async::Task<void> save(Annotation annotation) override { return put(std::move(annotation)); }
  async::Task<void> deleteAnnotation(Uuid id, std::string) override { return erase(id); }
  async::Task<void> deleteAll(std::string fingerprint) override {
    return eraseAll(std::move(fingerprint));
  }
};

// One of the four simple global stores.
template <typename Interface, typename Value, typename Failure>
class MemoryValueRepository final : public Interface, public MemoryStore<Failure> {
 public:
  explicit MemoryValueRepository(Value initial) : value(initial) {}
  Value value;
  std::vector<Value> saves;

  async::Task<Value> load() override {
    co_await this->reading();
    co_return value;
  }
  async::Task<void> save(Value newValue) override {
    co_await this->writing();
    saves.push_back(newValue);
    value = newValue;
  }
};

using MemoryThemeRepository = MemoryValueRepository<ReadingThemeRepository, ReadingThemeSelection,
                                                    ReadingThemePersistenceFailure>;
using MemoryReadingModeRepository =
    MemoryValueRepository<ReadingModeRepository, ReadingMode, ReadingModePersistenceFailure>;
using MemoryPageLayoutRepository =
    MemoryValueRepository<PageLayoutRepository, PageLayout, PageLayoutPersistenceFailure>;
using MemoryScrolledWidthRepository =
    MemoryValueRepository<ScrolledContentWidthRepository, ScrolledContentWidth,
                          ScrolledContentWidthPersistenceFailure>;

class MemoryTypographyRepository final
    : public TypographyPreferencesRepository,
      public MemoryStore<TypographyPreferencesPersistenceFailure> {
 public:
  TypographyPreferences value;
  int writeCount = 0;

  async::Task<TypographyPreferences> load() override {
    co_await reading();
    co_return value;
  }
  async::Task<void> saveFont(TypographyFontSelection selection) override {
    return write(&TypographyPreferences::font, selection);
  }
  async::Task<void> saveFontScale(TypographyFontScaleSelection selection) override {
    return write(&TypographyPreferences::fontScale, selection);
  }
  async::Task<void> saveLineHeight(TypographyLineHeightSelection selection) override {
    return write(&TypographyPreferences::lineHeight, selection);
  }
  async::Task<void> saveLetterSpacing(TypographyLetterSpacingSelection selection) override {
    return write(&TypographyPreferences::letterSpacing, selection);
  }
  async::Task<void> savePageMargins(TypographyPageMarginsSelection selection) override {
    return write(&TypographyPreferences::pageMargins, selection);
  }
  async::Task<void> restoreDefaults() override {
    co_await writing();
    ++writeCount;
    value = TypographyPreferences{};
  }

 private:
  template <typename Selection>
  async::Task<void> write(Selection TypographyPreferences::*field, Selection selection) {
    co_await writing();
    ++writeCount;
    value.*field = std::move(selection);
  }
};

// ---- Fonts, location log ----------------------------------------------------------------------

class FakeFontCatalog final : public SystemFontCataloging {
 public:
  std::set<std::string> installed;
  sigc::signal<void()>& fontSetChanged() override { return changed_; }
  std::vector<SystemFontRecord> availableFonts() const override {
    std::vector<SystemFontRecord> records;
    for (const std::string& name : installed) records.push_back({name, name + " Regular", name});
    return records;
  }
  TypographyFontResolution resolve(const TypographyFontSelection& selection) const override {
    if (selection.kind() == TypographyFontSelection::Kind::bookDefault) return {};
    const std::string& name = *selection.stableName();
    if (!installed.contains(name)) return TypographyFontResolution::fallback(name);
    return TypographyFontResolution::available({name, name + " Regular", name});
  }

 private:
  sigc::signal<void()> changed_;
};

class SwitchableDiagnosticsSetting final : public LocationDiagnosticsSetting {
 public:
  bool enabled = true;
  int reads = 0;
  bool isEnabled() override {
    ++reads;
    return enabled;
  }
};

class RecordingLocationLog final : public LocationLog {
 public:
  std::vector<std::string> lines;
  void write(const std::string& line) override { lines.push_back(line); }
  // The stages written, in order.
  std::vector<std::string> stages() const {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
      const auto start = line.find(" stage=") + 7;
      found.push_back(line.substr(start, line.find(' ', start) - start));
    }
    return found;
  }
  std::optional<std::string> lineOf(const std::string& stage) const {
    for (const std::string& line : lines) {
      if (line.find(" stage=" + stage + " ") != std::string::npos) return line;
    }
    return std::nullopt;
  }
};

}  // namespace tomekeeper::testing
