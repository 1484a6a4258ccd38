#pragma once

#include <glib-object.h>
#include <gtk/gtk.h>

#include <string>
#include <utility>
#include <vector>

#include <sigc++/connection.h>

#include "platform/GObjectHandle.h"

namespace tomekeeper::views {

// Owns one GObject signal handler and disconnects it on destruction, unless the instance has
// already gone. The instance is held weakly, so a connection never keeps a widget alive.
// Main executor only.
class SignalConnection {
 public:
  SignalConnection() = default;
  SignalConnection(gpointer instance, gulong handlerID);
  SignalConnection(SignalConnection&& other) noexcept;
  SignalConnection& operator=(SignalConnection&& other) noexcept;
  SignalConnection(const SignalConnection&) = delete;
  SignalConnection& operator=(const SignalConnection&) = delete;
  ~SignalConnection() { disconnect(); }

  void disconnect();

 private:
  GWeakRef* instance_ = nullptr;
  gulong handlerID_ = 0;
};

// Connects `callback` to `signal` of `instance` with `data` and returns the owning connection.
SignalConnection connectSignal(gpointer instance, const char* signal, GCallback callback,
                               gpointer data);

// The connections of one view, GObject signals and session signals alike, all disconnected
// when the view goes (or on disconnectAll). Main executor only.
class ViewConnections {
 public:
  ViewConnections() = default;
  ViewConnections(const ViewConnections&) = delete;
  ViewConnections& operator=(const ViewConnections&) = delete;
  ~ViewConnections() { disconnectAll(); }

  void add(SignalConnection connection) { signals_.push_back(std::move(connection)); }
  void add(sigc::connection connection) { sessionSignals_.push_back(std::move(connection)); }
  void add(gpointer instance, const char* signal, GCallback callback, gpointer data) {
    add(connectSignal(instance, signal, callback, data));
  }
  void disconnectAll();

 private:
  std::vector<SignalConnection> signals_;
  std::vector<sigc::connection> sessionSignals_;
};

// A widget reference owned by a view: the view's root is kept by one of these, so the tree lives
// as long as the view even when nobody has parented it yet.
using WidgetHandle = GObjectHandle<GtkWidget>;

// Small builders for the texts and controls every view uses.
GtkWidget* makeLabel(const std::string& text, std::initializer_list<const char*> cssClasses = {});
// A flat button showing `iconName` alone, with `accessibleLabel` as its name and tooltip.
GtkWidget* makeIconButton(const char* iconName, const std::string& accessibleLabel);
// A button with a text label.
GtkWidget* makeTextButton(const std::string& label);
void setAccessibleLabel(GtkWidget* widget, const std::string& label);
void setLabelText(GtkWidget* label, const std::string& text);
// Removes every row of `listBox`.
void removeAllRows(GtkListBox* listBox);

// The response of the confirmation below that deletes.
inline constexpr const char* kDeleteReadingDataResponse = "delete";
// The confirmation, over `parent` (which may be null), before a book's reading position,
// bookmarks, highlights and notes are deleted: "Cancel", the default and the close response, or
// "Delete Reading History" (kDeleteReadingDataResponse), shown as destructive. Not yet presented;
// the caller connects its response and presents it.
GtkWidget* makeDeleteReadingDataDialog(GtkWindow* parent);

}  // namespace tomekeeper::views
