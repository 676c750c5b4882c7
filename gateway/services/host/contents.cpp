#include "gateway_services/contents.h"

#include "calls/call_table.h"
#include "store/arrangement.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"

#include <nlohmann/json.hpp>

namespace gateway {
namespace {

using nlohmann::ordered_json;

const char *returned_type(call_kind kind) {
    switch (kind) {
    case call_kind::byte:
        return "byte";
    case call_kind::pointer:
        return "pointer";
    case call_kind::nothing:
        return "nothing";
    default:
        return "number";
    }
}

} // namespace

ordered_json contents() {
    const platform::held_mutex change(change_mutex());
    return stored_arrangement(the_store());
}

ordered_json products() {
    const platform::held_mutex change(change_mutex());
    const std::string stored = the_store().setting(products_setting);
    return stored.empty() ? ordered_json::object() : ordered_json::parse(stored);
}

ordered_json changeable_calls() {
    ordered_json all{{"services", ordered_json::array()}, {"callbacks", ordered_json::array()}};
    for (const call_info &info : call_table) {
        if (info.kind != call_kind::certain) {
            all[info.is_callback ? "callbacks" : "services"].push_back(
                {{"name", info.name}, {"returns", returned_type(info.kind)}});
        }
    }
    return all;
}

} // namespace gateway
