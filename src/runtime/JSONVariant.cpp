#include "runtime/JSONVariant.h"

namespace tomekeeper {

GVariant* variantFromJSON(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::object: {
      GVariantBuilder builder;
      g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
      for (const auto& [key, member] : value.items()) {
        g_variant_builder_add(&builder, "{sv}", key.c_str(), variantFromJSON(member));
      }
      return g_variant_builder_end(&builder);
    }
    case nlohmann::json::value_t::array: {
      GVariantBuilder builder;
      g_variant_builder_init(&builder, G_VARIANT_TYPE("av"));
      for (const nlohmann::json& element : value) {
        g_variant_builder_add(&builder, "v", variantFromJSON(element));
      }
      return g_variant_builder_end(&builder);
    }
    case nlohmann::json::value_t::string:
      return g_variant_new_string(value.get_ref<const std::string&>().c_str());
    case nlohmann::json::value_t::boolean:
      return g_variant_new_boolean(value.get<bool>());
    case nlohmann::json::value_t::number_integer:
      return g_variant_new_int64(value.get<std::int64_t>());
    case nlohmann::json::value_t::number_unsigned:
      return g_variant_new_uint64(value.get<std::uint64_t>());
    case nlohmann::json::value_t::number_float:
      return g_variant_new_double(value.get<double>());
    case nlohmann::json::value_t::null:
    case nlohmann::json::value_t::binary:
    case nlohmann::json::value_t::discarded:
      break;
  }
  return g_variant_new_maybe(G_VARIANT_TYPE_VARIANT, nullptr);
}

}  // namespace tomekeeper
