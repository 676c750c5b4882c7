// A gateway's announcement for scripts.
#include "gateway/announcement_json.h"

#include <nlohmann/json.hpp>

namespace engr_app {

nlohmann::json announcement_json(const lan_client::announcement &said) {
    return {{"id", said.id},
            {"address", said.address},
            {"told_address", said.told_address},
            {"activated", said.activated},
            {"ability", said.ability},
            {"needs_wifi_setup", said.needs_wifi_setup},
            {"version", said.version},
            {"product_key", said.product_key}};
}

} // namespace engr_app
