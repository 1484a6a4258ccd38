#include "app/SidebarVisibilitySetting.h"

#include "app/GtkShellPlatform.h"
#include "platform/GVariantHandle.h"

namespace tomekeeper {

namespace {

constexpr const char* kSidebarVisibilityKey = "reader-sidebar-visibility";

}  // namespace

SidebarVisibility storedSidebarVisibility(const std::string& fingerprint) {
  const GObjectHandle<GSettings> settings = applicationSettings();
  if (!settings) return SidebarVisibility::hidden;
  gboolean visible = FALSE;
  const auto stored =
      GVariantHandle::adopt(g_settings_get_value(settings.get(), kSidebarVisibilityKey));
  const bool found = g_variant_lookup(stored.get(), fingerprint.c_str(), "b", &visible);
  return found && visible ? SidebarVisibility::visible : SidebarVisibility::hidden;
}

void storeSidebarVisibility(const std::string& fingerprint, SidebarVisibility visibility) {
  const GObjectHandle<GSettings> settings = applicationSettings();
  if (!settings) return;
  const auto stored =
      GVariantHandle::adopt(g_settings_get_value(settings.get(), kSidebarVisibilityKey));
  GVariantBuilder builder;
  g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sb}"));
  GVariantIter entries;
  g_variant_iter_init(&entries, stored.get());
  const char* storedFingerprint = nullptr;
  gboolean visible = FALSE;
  while (g_variant_iter_next(&entries, "{&sb}", &storedFingerprint, &visible)) {
    if (fingerprint != storedFingerprint) {
      g_variant_builder_add(&builder, "{sb}", storedFingerprint, visible);
    }
  }
  g_variant_builder_add(&builder, "{sb}", fingerprint.c_str(),
                        visibility == SidebarVisibility::visible ? TRUE : FALSE);
  g_settings_set_value(settings.get(), kSidebarVisibilityKey, g_variant_builder_end(&builder));
}

}  // namespace tomekeeper
