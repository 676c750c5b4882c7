// The functions of the C interface: they check arguments, open handles, and turn what is heard into
// events. Requests go to requests.cpp.
#include "engr_lan_client.h"

#include "handle.h"
#include "lan_client/crypto.h"
#include "lan_client/devices.h"
#include "lan_client/frame_types.h"
#include "requests.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

using lan_client::aes_key;
using lan_client::error_kind;
using lan_client_c::code_of;
using lan_client_c::owned_event;
using std::chrono::milliseconds;

// The numbers of the C interface are for ever, so each is compared.
#define SAME(c_name, kind)                                                                         \
    static_assert(static_cast<int>(c_name) == static_cast<int>(error_kind::kind))
SAME(ENGR_CLIENT_OK, none);
SAME(ENGR_CLIENT_NO_INTERFACE, no_interface);
SAME(ENGR_CLIENT_BAD_ADDRESS, bad_address);
SAME(ENGR_CLIENT_REFUSED, refused);
SAME(ENGR_CLIENT_UNREACHABLE, unreachable);
SAME(ENGR_CLIENT_TABLE_FULL, table_full);
SAME(ENGR_CLIENT_CONNECTION_LOST, connection_lost);
SAME(ENGR_CLIENT_TIMED_OUT, timed_out);
SAME(ENGR_CLIENT_WRONG_KEY, wrong_key);
SAME(ENGR_CLIENT_DEACTIVATED, deactivated);
SAME(ENGR_CLIENT_DAMAGED, damaged);
SAME(ENGR_CLIENT_ANSWER_TOO_LONG, answer_too_long);
SAME(ENGR_CLIENT_TOO_LARGE, too_large);
SAME(ENGR_CLIENT_QUEUE_FULL, queue_full);
SAME(ENGR_CLIENT_CANCELLED, cancelled);
#undef SAME

std::string text_of(const char *given) {
    return given == nullptr ? "" : given;
}

// No exception may reach a caller in C.
template <typename Work>
engr_client_error guarded(Work work) {
    try {
        return work();
    } catch (const std::bad_alloc &) {
        return ENGR_CLIENT_NO_RESOURCES;
    } catch (const std::system_error &) {
        return ENGR_CLIENT_NO_RESOURCES;
    }
}

/** A structure with a `size` as this version of the library knows it; what the caller's lacks is 0.
 */
template <typename Given>
Given as_known(const Given &given) {
    Given known{};
    std::memcpy(&known, &given, std::min(given.size, sizeof known));
    return known;
}

struct known_options : engr_client_options {
    explicit known_options(const engr_client_options &given)
        : engr_client_options(as_known(given)) {}

    // The key of a seed; that of the build when there is none.
    [[nodiscard]] static std::optional<aes_key> key(const char *seed, aes_key (*built_in)()) {
        return seed == nullptr ? built_in() : aes_key::from_seed(seed);
    }
};

struct known_network : engr_client_network {
    explicit known_network(const engr_client_network &given)
        : engr_client_network(as_known(given)) {}

    // Nothing when a text is missing or can't be right.
    [[nodiscard]] std::optional<lan_client::wifi_setup_order>
    order(const lan_client_c::provisioning_options &opened) const {
        if (network == nullptr || token == nullptr) {
            return std::nullopt;
        }
        lan_client::wifi_setup_order wanted{.network = {network, text_of(password), token},
                                            .coding = plain ? lan_client::payload_coding::plain
                                                            : lan_client::payload_coding::encrypted,
                                            .interface_name = opened.interface_name,
                                            .new_interface_name = new_interface_name == nullptr
                                                                      ? opened.interface_name
                                                                      : new_interface_name,
                                            .configuration = opened.configuration,
                                            .discovery = opened.discovery};
        wanted.address = address == nullptr ? wanted.address : address;
        wanted.times = times == 0 ? wanted.times : times;
        wanted.limit = timeout_ms == 0 ? wanted.limit : milliseconds(timeout_ms);
        return lan_client::is_valid(wanted.network) ? std::optional(wanted) : std::nullopt;
    }
};

/** Makes a handle, has `open` make its part, and starts it. */
template <typename Open>
engr_client_error open_handle(const engr_client_options *given, engr_client **client, Open open) {
    if (client != nullptr) {
        *client = nullptr;
    }
    if (given == nullptr || client == nullptr || given->size == 0) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    return guarded([&] {
        auto made = std::make_unique<engr_client>();
        const engr_client_error problem = open(*made, known_options(*given));
        if (problem == ENGR_CLIENT_OK) {
            made->start();
            *client = made.release();
        }
        return problem;
    });
}

std::unique_ptr<owned_event> event_of(const lan_client::report &told) {
    auto event = std::make_unique<owned_event>(ENGR_CLIENT_REPORT);
    event->type = told.type;
    event->ret = told.ret;
    event->set_payload(told.payload);
    if (!told.readable) {
        event->set_error(told.damaged              ? ENGR_CLIENT_DAMAGED
                         : told.under_built_in_key ? ENGR_CLIENT_DEACTIVATED
                                                   : ENGR_CLIENT_WRONG_KEY,
                         "");
    }
    return event;
}

std::unique_ptr<owned_event> event_of(const lan_client::link_change &change) {
    const bool connected = change.state == lan_client::link_state::connected;
    auto event =
        std::make_unique<owned_event>(connected ? ENGR_CLIENT_CONNECTED : ENGR_CLIENT_DISCONNECTED);
    event->set_error(code_of(change.why), change.why.detail);
    event->pause_ms = static_cast<uint32_t>(change.pause.count());
    return event;
}

std::unique_ptr<owned_event> event_of(const lan_client::parsed_datagram &got) {
    const bool readable = got.kind == lan_client::datagram_kind::announcement;
    auto event =
        std::make_unique<owned_event>(readable ? ENGR_CLIENT_ANNOUNCEMENT : ENGR_CLIENT_UNREADABLE);
    event->set_address(got.content.address);
    if (readable) {
        lan_client_c::set_announcement(*event, got.content);
    }
    return event;
}

engr_client_error open_gateway(engr_client &made, const known_options &given) {
    const auto built_in = known_options::key(given.key3_seed, lan_client::unactivated_key);
    const auto key = given.local_key == nullptr ? built_in : aes_key::from_text(given.local_key);
    if (given.address == nullptr || !built_in || !key) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    lan_client::client_options wanted;
    wanted.address = given.address;
    wanted.interface_name = text_of(given.interface_name);
    wanted.keys = {*key};
    wanted.built_in_key = *built_in;
    wanted.reconnect = given.reconnect;
    wanted.port = given.port == 0 ? wanted.port : given.port;
    if (given.connect_timeout_ms > 0) {
        wanted.connect_timeout = milliseconds(given.connect_timeout_ms);
    }
    if (given.request_timeout_ms > 0) {
        wanted.request_timeout = milliseconds(given.request_timeout_ms);
    }
    made.request_timeout = wanted.request_timeout;
    const auto on_report = [&made](const lan_client::report &told) {
        if (!made.upgrade || !made.upgrade->take(told)) {
            made.add(event_of(told));
        }
    };
    const auto on_link = [&made](const lan_client::link_change &change) {
        if (made.upgrade) {
            made.upgrade->take(change);
        }
        made.add(event_of(change));
    };
    made.gateway.emplace(
        made.loop, std::move(wanted),
        lan_client::client_events{.on_report = on_report, .on_link = on_link, .on_traffic = {}});
    made.gateway->open();
    return ENGR_CLIENT_OK;
}

engr_client_error open_discovery(engr_client &made, const known_options &given) {
    const auto key = known_options::key(given.key2_seed, lan_client::discovery_key);
    if (!key) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    made.discovery.emplace(
        made.loop,
        [&made](const lan_client::parsed_datagram &got) {
            if (got.kind != lan_client::datagram_kind::foreign) {
                made.add(event_of(got));
            }
        },
        lan_client::traffic_observer(), *key);
    return code_of(made.discovery->open(text_of(given.interface_name)));
}

engr_client_error open_provisioning(engr_client &made, const known_options &given) {
    const auto configuration = known_options::key(given.key1_seed, lan_client::configuration_key);
    const auto discovery = known_options::key(given.key2_seed, lan_client::discovery_key);
    if (!configuration || !discovery) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    made.provisioning = {text_of(given.interface_name), *configuration, *discovery};
    return ENGR_CLIENT_OK;
}

bool is_of_gateway(const engr_client *client) {
    return client != nullptr && client->gateway;
}

// Makes an id, and posts the work that `make` makes for it to the loop.
template <typename Make>
engr_client_error begin(engr_client *client, uint32_t *request, const Make &make) {
    return guarded([&] {
        if (!client->events.reserve_answer()) {
            return ENGR_CLIENT_QUEUE_FULL;
        }
        client->last_request += client->last_request == UINT32_MAX ? 2 : 1;
        const uint32_t id = client->last_request;
        try {
            client->loop.post(make(id));
        } catch (...) { // no memory
            client->events.give_back_answer();
            throw;
        }
        if (request != nullptr) {
            *request = id;
        }
        return ENGR_CLIENT_OK;
    });
}

} // namespace

engr_client_error engr_client_open_gateway(const engr_client_options *options,
                                           engr_client **client) {
    return open_handle(options, client, open_gateway);
}

engr_client_error engr_client_open_discovery(const engr_client_options *options,
                                             engr_client **client) {
    return open_handle(options, client, open_discovery);
}

engr_client_error engr_client_open_provisioning(const engr_client_options *options,
                                                engr_client **client) {
    return open_handle(options, client, open_provisioning);
}

void engr_client_close(engr_client *client) {
    const std::unique_ptr<engr_client> gone(client);
}

int engr_client_descriptor(const engr_client *client) {
    return client->events.descriptor();
}

engr_client_event *engr_client_next_event(engr_client *client) {
    return client->events.take().release();
}

void engr_client_free_event(engr_client_event *event) {
    const std::unique_ptr<owned_event> gone(static_cast<owned_event *>(event));
}

engr_client_error engr_client_request(engr_client *client, uint32_t type, const char *payload,
                                      size_t payload_bytes, uint32_t timeout_ms,
                                      uint32_t *request) {
    if (!is_of_gateway(client) || (payload == nullptr && payload_bytes > 0)) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    return begin(client, request, [=](uint32_t id) {
        lan_client::request wanted{
            .type = type,
            .payload = payload_bytes == 0 ? "" : std::string(payload, payload_bytes),
            .coding = lan_client::request_coding(type),
            .timeout = milliseconds(timeout_ms)};
        return [client, id, wanted = std::move(wanted)]() mutable {
            lan_client_c::ask(*client, id, std::move(wanted));
        };
    });
}

engr_client_error engr_client_devices(engr_client *client, uint32_t timeout_ms, uint32_t *request) {
    if (!is_of_gateway(client)) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    return begin(client, request, [=](uint32_t id) {
        return [=] { lan_client_c::ask_devices(*client, id, milliseconds(timeout_ms)); };
    });
}

engr_client_error engr_client_log(engr_client *client, uint32_t *request) {
    if (!is_of_gateway(client)) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    return begin(client, request,
                 [=](uint32_t id) { return [=] { lan_client_c::ask_log(*client, id); }; });
}

engr_client_error engr_client_upgrade(engr_client *client, const char *path, const char *version,
                                      const char *device_id, bool again, uint32_t *request) {
    // Longer ones are cut by the gateway, which then may mean another device.
    const std::size_t version_bytes = version == nullptr ? 0 : std::strlen(version);
    const std::size_t id_bytes = device_id == nullptr ? 0 : std::strlen(device_id);
    if (!is_of_gateway(client) || path == nullptr || version_bytes == 0 ||
        version_bytes > lan_client::max_version_bytes ||
        id_bytes > lan_client::max_device_id_bytes) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    return guarded([=] {
        const auto run =
            std::make_shared<lan_client_c::upgrade_run>(path, version, text_of(device_id), again);
        if (!run->is_usable()) {
            return ENGR_CLIENT_BAD_ARGUMENT;
        }
        return begin(client, request, [=](uint32_t id) {
            return [=] {
                if (client->upgrade && !client->upgrade->has_ended()) {
                    return lan_client_c::add_failure(
                        *client, id, lan_client::frame_type::dev_upgrade, ENGR_CLIENT_BUSY,
                        "this client has an upgrade under way");
                }
                client->upgrade = run;
                run->start(*client, id);
            };
        });
    });
}

engr_client_error engr_client_provision(engr_client *client, const engr_client_network *wanted,
                                        uint32_t *request) {
    if (client == nullptr || !client->provisioning || wanted == nullptr || wanted->size == 0) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    return guarded([=] {
        const known_network given(*wanted);
        const auto order = given.order(*client->provisioning);
        if (!order) {
            return ENGR_CLIENT_BAD_ARGUMENT;
        }
        const std::string text = lan_client::configuration_text(order->network);
        if (lan_client::configuration_bytes(text, order->coding) >
            lan_client::max_configuration_bytes) {
            return ENGR_CLIENT_TOO_LARGE;
        }
        const std::string gateway_id = text_of(given.gateway_id);
        const milliseconds listen(given.listen_ms == 0 ? 6000 : given.listen_ms);
        const bool force = given.force;
        return begin(client, request, [=](uint32_t id) {
            return [=] {
                if (client->wifi && !client->wifi->has_ended()) {
                    return lan_client_c::add_failure(*client, id, lan_client::frame_type::ap_nw_cfg,
                                                     ENGR_CLIENT_BUSY,
                                                     "this client is at it already");
                }
                client->wifi = std::make_unique<lan_client_c::wifi_run>(*client, id, *order,
                                                                        gateway_id, listen, force);
                client->wifi->start();
            };
        });
    });
}

const char *engr_client_error_name(engr_client_error error) {
    switch (error) {
    case ENGR_CLIENT_BAD_ARGUMENT:
        return "bad_argument";
    case ENGR_CLIENT_NO_RESOURCES:
        return "no_resources";
    case ENGR_CLIENT_BAD_ANSWER:
        return "bad_answer";
    case ENGR_CLIENT_BUSY:
        return "busy";
    case ENGR_CLIENT_UNKNOWN_DEVICE:
        return "unknown_device";
    case ENGR_CLIENT_UPGRADE_FAILED:
        return "upgrade_failed";
    case ENGR_CLIENT_OUTCOME_UNKNOWN:
        return "outcome_unknown";
    case ENGR_CLIENT_NOT_WAITING:
        return "not_waiting";
    case ENGR_CLIENT_WIFI_FAILURE:
        return "wifi_failure";
    case ENGR_CLIENT_UNCONFIRMED:
        return "unconfirmed";
    default:
        return lan_client::error_name(static_cast<error_kind>(error));
    }
}

uint32_t engr_client_frame_type(const char *name) {
    const auto *info = name == nullptr ? nullptr : lan_client::find_frame_type(name);
    return info == nullptr ? 0 : info->number;
}

const char *engr_client_frame_type_name(uint32_t type) {
    const auto *info = lan_client::find_frame_type(type);
    return info == nullptr ? nullptr : info->name.data(); // a literal, so it ends with a zero byte
}

engr_client_answer_rule engr_client_answer_rule_of(uint32_t type) {
    const auto *info = lan_client::find_frame_type(type);
    if (info == nullptr) {
        return ENGR_CLIENT_ANSWER_UNKNOWN;
    }
    switch (info->answer) {
    case lan_client::answer_rule::always:
        return ENGR_CLIENT_ANSWER_ALWAYS;
    case lan_client::answer_rule::on_failure_only:
        return ENGR_CLIENT_ANSWER_ON_FAILURE;
    case lan_client::answer_rule::on_success_only:
        return ENGR_CLIENT_ANSWER_ON_SUCCESS;
    case lan_client::answer_rule::never:
        return ENGR_CLIENT_ANSWER_NEVER;
    case lan_client::answer_rule::not_a_request:
        return ENGR_CLIENT_NOT_A_REQUEST;
    }
    return ENGR_CLIENT_ANSWER_UNKNOWN;
}
