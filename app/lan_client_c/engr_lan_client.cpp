// The functions of the C interface: they check arguments, open handles, and turn what is heard into
// events. Requests go to requests.cpp.
#include "engr_lan_client.h"

#include "handle.h"
#include "lan_client/crypto.h"
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
#include <vector>

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

/** The options as this version of the library knows them; what the caller's lacks is 0. */
struct known_options : engr_client_options {
    explicit known_options(const engr_client_options &given) : engr_client_options{} {
        std::memcpy(static_cast<engr_client_options *>(this), &given,
                    std::min(given.size, sizeof(engr_client_options)));
    }

    // The key of a seed; that of the build when there is none.
    [[nodiscard]] static std::optional<aes_key> key(const char *seed, aes_key (*built_in)()) {
        return seed == nullptr ? built_in() : aes_key::from_seed(seed);
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
        event->id_text = got.content.id;
        event->product_key_text = got.content.product_key;
        event->version_text = got.content.version;
        event->set_announcement({.id = nullptr,
                                 .address = nullptr,
                                 .product_key = nullptr,
                                 .version = nullptr,
                                 .ability = got.content.ability,
                                 .activated = got.content.activated,
                                 .needs_wifi_setup = got.content.needs_wifi_setup});
    }
    return event;
}

std::unique_ptr<owned_event> event_of(const std::optional<lan_client::wifi_failure> &failed) {
    auto event =
        std::make_unique<owned_event>(failed ? ENGR_CLIENT_WIFI_FAILURE : ENGR_CLIENT_UNREADABLE);
    if (failed) {
        event->set_address(failed->address);
        event->set_payload(failed->description);
        event->result = failed->result.value_or(0);
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
    made.gateway.emplace(made.loop, std::move(wanted),
                         lan_client::client_events{
                             .on_report =
                                 [&made](const lan_client::report &told) {
                                     if (!made.image || !made.image->take(told)) {
                                         made.add(event_of(told));
                                     }
                                 },
                             .on_link =
                                 [&made](const lan_client::link_change &change) {
                                     if (made.image &&
                                         change.state == lan_client::link_state::lost) {
                                         made.image->end(code_of(change.why), change.why.detail);
                                     }
                                     made.add(event_of(change));
                                 },
                             .on_traffic = {}});
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
    const auto key = known_options::key(given.key1_seed, lan_client::configuration_key);
    if (!key) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    made.provisioning.emplace(
        made.loop, [&made](const auto &failed) { made.add(event_of(failed)); },
        lan_client::traffic_observer(), *key);
    return code_of(made.provisioning->open(text_of(given.interface_name)));
}

// Makes an id, and posts the work that `make` makes for it to the loop.
template <typename Make>
engr_client_error begin(engr_client *client, uint32_t *request, const Make &make) {
    if (client == nullptr || !client->gateway) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
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
    if (payload == nullptr && payload_bytes > 0) {
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
    return begin(client, request, [=](uint32_t id) {
        return [=] { lan_client_c::ask_devices(*client, id, milliseconds(timeout_ms)); };
    });
}

engr_client_error engr_client_log(engr_client *client, uint32_t *request) {
    return begin(client, request,
                 [=](uint32_t id) { return [=] { lan_client_c::ask_log(*client, id); }; });
}

engr_client_error engr_client_serve_image(engr_client *client, const char *path,
                                          const char *device_id, const char *gateway_id,
                                          uint32_t *request) {
    if (path == nullptr || device_id == nullptr || gateway_id == nullptr) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    return guarded([=] {
        // Shared, since what is posted has to be copyable.
        auto image = std::make_shared<std::unique_ptr<lan_client_c::served_image>>(
            std::make_unique<lan_client_c::served_image>(path));
        if (!(*image)->is_usable()) {
            return ENGR_CLIENT_BAD_ARGUMENT;
        }
        const std::vector<std::string> ids{device_id, gateway_id};
        return begin(client, request, [=](uint32_t id) {
            return [=] {
                if (client->image) {
                    client->image->end(ENGR_CLIENT_CANCELLED, "another image is served");
                }
                client->image = std::move(*image);
                client->image->start(*client, id, ids);
            };
        });
    });
}

engr_client_error engr_client_send_network(engr_client *client, const char *network,
                                           const char *password, const char *token,
                                           const char *address, bool encrypted) {
    if (client == nullptr || !client->provisioning || network == nullptr || token == nullptr) {
        return ENGR_CLIENT_BAD_ARGUMENT;
    }
    return guarded([=] {
        const lan_client::wifi_configuration chosen{network, text_of(password), token};
        if (!lan_client::is_valid(chosen)) {
            return ENGR_CLIENT_BAD_ARGUMENT;
        }
        // It opens a socket of its own and touches nothing of the loop's thread.
        return code_of(client->provisioning->send(
            lan_client::configuration_text(chosen),
            encrypted ? lan_client::payload_coding::encrypted : lan_client::payload_coding::plain,
            address == nullptr ? lan_client::broadcast_address : address));
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
