#include "recording.h"

#include "gateway_services/host.h"
#include "happenings.h"
#include "session/start.h"

#include <nlohmann/json.hpp>

namespace gatewayd {

void listen_for_recording(const std::shared_ptr<session::file> &record) {
    listen_to_happenings(
        [record](const session::event &what) { record->add(what, happenings_keys()); },
        [record] { record->flush(); });
}

void begin_recording(session::file &record, const options &chosen, const std::string &scenario) {
    const std::string local_key = gateway::local_key();
    session::header start =
        session::start_now("engr_gatewayd", ENGR_VERSION, session::side::gateway);
    start.has_secrets = chosen.records_secrets;
    if (chosen.records_secrets && !local_key.empty()) {
        start.key = local_key;
    }
    start.options = nlohmann::ordered_json{{"mode", chosen.mode},
                                           {"ap", chosen.access_point},
                                           {"interface", chosen.interface},
                                           {"address", served_address(chosen)},
                                           {"new", gateway::used_initial_site()}}
                        .dump();
    start.scenario = scenario;
    start.site = gateway::stored_site();
    record.begin(start);
}

} // namespace gatewayd
