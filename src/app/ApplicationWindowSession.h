#pragma once

#include <gtk/gtk.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <sigc++/signal.h>

#include "app/WindowSession.h"
#include "persistence/JSONPreferenceValueRepository.h"
#include "persistence/JSONTypographyPreferencesRepository.h"
#include "persistence/PublicationStateRepositoryFactory.h"
#include "persistence/StoreDirectoryMonitor.h"
#include "session/ReaderSession.h"
#include "session/ReadingDataMaintenance.h"

namespace tomekeeper {

// The reading session of one reader window: a ReaderSession over a web view host whose view the
// window shows. Main executor only; owned by the window's entry in the coordinator.
class ApplicationWindowSession final : public WindowSession {
 public:
  // `webView` is the widget of the host inside `dependencies.host`.
  // `publicationsRoot` holds the books' store directories (Publications/).
  ApplicationWindowSession(std::shared_ptr<ReaderSession> session, GtkWidget* webView,
                           std::filesystem::path publicationsRoot);

  async::Task<void> open(PreparedPublicationResources resources, std::filesystem::path runtimeRoot,
                         std::string fingerprint) override;
  void close() override;
  std::optional<PublicationTitle> publicationTitle() const override;
  bool handlePaginationKey(ReaderNavigationDirection direction) override;
  // Space, Left and Right in the web view: a page that way while the book is ready.
  void handleNavigationKey(ReaderNavigationDirection direction);

  const std::shared_ptr<ReaderSession>& session() const { return session_; }
  // The web view; owned by the session's host and alive as long as this object.
  GtkWidget* webView() const { return webView_; }
  // Export and restore for the open book; null until open() has succeeded.
  const std::shared_ptr<const ReadingDataMaintenance>& readingDataMaintenance() const {
    return maintenance_;
  }
  // Fires once open() has succeeded, with readingDataMaintenance() set: the window then offers
  // what an open book is offered (the highlights of an earlier edition).
  sigc::signal<void()>& bookOpened() noexcept { return bookOpened_; }

 private:
  std::shared_ptr<ReaderSession> session_;
  GtkWidget* webView_;
  std::filesystem::path publicationsRoot_;
  std::shared_ptr<const ReadingDataMaintenance> maintenance_;
  // Rereads the stores when a file-sync engine or a restore changes them under the open book.
  std::unique_ptr<StoreDirectoryMonitor> storeMonitor_;
  sigc::signal<void()> bookOpened_;
};

// Makes each window's session with the book's own position, bookmark and annotation stores and
// the five global preference stores, all under the application support directory. The global
// stores are made at first use and shared by every session. Main executor only.
class ApplicationWindowSessionFactory final : public WindowSessionFactory {
 public:
  explicit ApplicationWindowSessionFactory(std::filesystem::path supportDirectory);

  std::shared_ptr<WindowSession> makeSession(const std::string& fingerprint) override;

 private:
  std::filesystem::path supportDirectory_;
  PublicationStateRepositoryFactory stateRepositories_;
  std::shared_ptr<JSONTypographyPreferencesRepository> typographyRepository_;
  std::shared_ptr<JSONReadingThemeRepository> themeRepository_;
  std::shared_ptr<JSONReadingModeRepository> readingModeRepository_;
  std::shared_ptr<JSONPageLayoutRepository> pageLayoutRepository_;
  std::shared_ptr<JSONScrolledContentWidthRepository> scrolledContentWidthRepository_;
};

}  // namespace tomekeeper
