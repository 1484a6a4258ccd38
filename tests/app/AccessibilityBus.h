// The accessibility bus of the session as the desktop's assistive tools read it, for the
// application display tests: every element of a process's tree with its role, name and states.
#pragma once

#include <gio/gio.h>
#include <glib.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tomekeeper::testing {

// The one state of the accessibility bus's state set that this test reads: GTK sets it for a
// widget that takes input, and leaves it out for an insensitive one.
constexpr unsigned kStateSensitive = 24;

constexpr const char* kRootPath = "/org/a11y/atspi/accessible/root";
constexpr int kCallTimeoutMilliseconds = 5000;

struct VariantDeleter {
  void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using Variant = std::unique_ptr<GVariant, VariantDeleter>;

struct ObjectDeleter {
  void operator()(gpointer object) const { g_object_unref(object); }
};
using Connection = std::unique_ptr<GDBusConnection, ObjectDeleter>;

// One object of an application's accessible tree: the bus name of its process and its path.
struct AccessibleReference {
  std::string busName;
  std::string path;
};

struct AccessibleElement {
  AccessibleReference reference;
  std::string role;
  std::string name;
  std::uint64_t states = 0;

  bool has(unsigned state) const { return (states >> state & 1U) != 0; }
};

// The accessibility bus of the session, read synchronously with GDBus. GTK puts every widget
// that is presented (shown, not hidden from assistive tools) into its process's tree there,
// with its role, its name (a label's text, a button's label) and its states.
class AccessibilityBus {
 public:
  // Absent when the session bus has no accessibility bus to offer.
  static std::unique_ptr<AccessibilityBus> connect() {
    Connection session(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    if (!session) return nullptr;
    Variant reply(g_dbus_connection_call_sync(
        session.get(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr,
        G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMilliseconds, nullptr, nullptr));
    if (!reply) return nullptr;
    const char* address = nullptr;
    g_variant_get(reply.get(), "(&s)", &address);
    Connection bus(g_dbus_connection_new_for_address_sync(
        address,
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr));
    if (!bus) return nullptr;
    return std::unique_ptr<AccessibilityBus>(new AccessibilityBus(std::move(bus)));
  }

  // Every presented element of process `pid`, depth first from its root; empty while the
  // process has not joined the bus.
  std::vector<AccessibleElement> elementsOf(GPid pid) {
    std::vector<AccessibleElement> elements;
    for (const std::string& busName : busNamesOf(pid)) {
      collect(AccessibleReference{busName, kRootPath}, 0, elements);
    }
    return elements;
  }

  // Performs the first action of `element` (a button's click); false when it has none.
  bool performAction(const AccessibleReference& element) {
    const Variant reply =
        call(element, "org.a11y.atspi.Action", "DoAction", g_variant_new("(i)", 0), "(b)");
    if (!reply) return false;
    gboolean done = FALSE;
    g_variant_get(reply.get(), "(b)", &done);
    return done != FALSE;
  }

 private:
  explicit AccessibilityBus(Connection bus) : bus_(std::move(bus)) {}

  Variant call(const AccessibleReference& target, const char* interface, const char* method,
               GVariant* parameters, const char* replyType) {
    GError* error = nullptr;
    Variant reply(g_dbus_connection_call_sync(bus_.get(), target.busName.c_str(),
                                              target.path.c_str(), interface, method, parameters,
                                              G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NONE,
                                              kCallTimeoutMilliseconds, nullptr, &error));
    if (error != nullptr) g_error_free(error);
    return reply;
  }

  std::vector<std::string> busNamesOf(GPid pid) {
    std::vector<std::string> found;
    const AccessibleReference daemon{"org.freedesktop.DBus", "/org/freedesktop/DBus"};
    const Variant names = call(daemon, "org.freedesktop.DBus", "ListNames", nullptr, "(as)");
    if (!names) return found;
    GVariantIter* iterator = nullptr;
    g_variant_get(names.get(), "(as)", &iterator);
    const char* name = nullptr;
    while (g_variant_iter_loop(iterator, "&s", &name)) {
      if (name[0] != ':') continue;
      const Variant owner = call(daemon, "org.freedesktop.DBus", "GetConnectionUnixProcessID",
                                 g_variant_new("(s)", name), "(u)");
      guint32 ownerPid = 0;
      if (owner) g_variant_get(owner.get(), "(u)", &ownerPid);
      if (owner && static_cast<GPid>(ownerPid) == pid) found.emplace_back(name);
    }
    g_variant_iter_free(iterator);
    return found;
  }

  void collect(const AccessibleReference& reference, int depth,
               std::vector<AccessibleElement>& elements) {
    // Deeper than any window of this application; a guard against a cycle.
    if (depth > 80) return;
    AccessibleElement element{reference, "", "", 0};
    if (const Variant role =
            call(reference, "org.a11y.atspi.Accessible", "GetRoleName", nullptr, "(s)")) {
      const char* text = nullptr;
      g_variant_get(role.get(), "(&s)", &text);
      element.role = text;
    }
    if (const Variant name =
            call(reference, "org.freedesktop.DBus.Properties", "Get",
                 g_variant_new("(ss)", "org.a11y.atspi.Accessible", "Name"), "(v)")) {
      Variant value(nullptr);
      GVariant* inner = nullptr;
      g_variant_get(name.get(), "(v)", &inner);
      value.reset(inner);
      if (g_variant_is_of_type(inner, G_VARIANT_TYPE_STRING)) {
        element.name = g_variant_get_string(inner, nullptr);
      }
    }
    if (const Variant states =
            call(reference, "org.a11y.atspi.Accessible", "GetState", nullptr, "(au)")) {
      GVariantIter* iterator = nullptr;
      g_variant_get(states.get(), "(au)", &iterator);
      guint32 word = 0;
      int index = 0;
      while (g_variant_iter_next(iterator, "u", &word)) {
        if (index < 2) element.states |= static_cast<std::uint64_t>(word) << (32 * index);
        ++index;
      }
      g_variant_iter_free(iterator);
    }
    elements.push_back(element);
    const Variant children =
        call(reference, "org.a11y.atspi.Accessible", "GetChildren", nullptr, "(a(so))");
    if (!children) return;
    GVariantIter* iterator = nullptr;
    g_variant_get(children.get(), "(a(so))", &iterator);
    const char* busName = nullptr;
    const char* path = nullptr;
    std::vector<AccessibleReference> references;
    while (g_variant_iter_loop(iterator, "(&s&o)", &busName, &path)) {
      // The page's own tree lives in the web process; this test reads only the application's.
      if (busName == reference.busName) references.push_back({busName, path});
    }
    g_variant_iter_free(iterator);
    for (const AccessibleReference& child : references) collect(child, depth + 1, elements);
  }

  Connection bus_;
};

// An element is found by its whole name: each control has one name, which says what it does.
inline bool isNamed(const AccessibleElement& element, const std::string& name) {
  return element.name == name;
}

// The first element with this role and name; absent when there is none.
inline std::optional<AccessibleElement> find(const std::vector<AccessibleElement>& elements,
                                      const std::string& role, const std::string& name) {
  for (const AccessibleElement& element : elements) {
    if (element.role == role && isNamed(element, name)) return element;
  }
  return std::nullopt;
}

}  // namespace tomekeeper::testing
