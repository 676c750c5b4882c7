// Life cycle and status of the reference gateway's services; operate.h has the operator's side.
//
// Configuration files, log snapshots and firmware images are files of the working directory, so
// that no directory's name is part of a path that the agent cuts.
//
// There is one gateway in a process, like the contracts in gateway/ and platform/ that it
// implements. All functions may be called on any thread between open and close.
#pragma once

#include "gateway_services/scenario.h"
#include "gateway_services/site.h"

#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace gateway {

/** Options of open. */
struct open_options {
    std::string store_path = ":memory:"; /**< SQLite file, or ":memory:", then images too are kept
                                            in memory, else in files of the working directory */
    site initial_site;                   /**< used when the store is new */
    scenario faults;                     /**< how the services misbehave from the start */
    /** Takes each trace line, without line feed; it has kept the line when it returns. May be
     * called on several threads at once. Empty: no trace. */
    std::function<void(std::string_view)> trace;
    /** Takes the lines of calls that must not wait: it keeps them before any line that trace takes
     * later, but must not wait for a file. Empty: trace takes these lines, too. */
    std::function<void(std::string_view)> trace_soon = {};
    /** Takes each call that a trace would have, once it is done: its name, its arguments (an
     * object) and its result in JSON, without secrets. Must not wait; may be called on several
     * threads at once. Empty: nobody is told. */
    std::function<void(std::string_view name, std::string_view arguments, std::string_view result)>
        call = {};
    /**
     * Tells the newest bytes of the log, at most so many, cut anywhere. Empty: there is no log to
     * upload.
     *
     * @throws refused  it cannot be read
     */
    std::function<std::string(std::size_t bytes_max)> newest_log = {};
    /** Takes a line, without line feed, about what an app did or what happened. It may hold any
     * characters that an app gave; mutexes are held, so it must not call the gateway. May be called
     * on several threads at once. Empty: nobody is told. */
    std::function<void(std::string_view)> activity = {};
    /** Names the app whose request the calling thread serves; an empty name: it is not known. */
    std::function<std::string()> asking_app = {};
    /** How long the installation of an image takes that begins now, in ms, where the scenario says
     * so long. Called on the thread that installs. Empty: as the scenario says. */
    std::function<uint32_t(uint32_t scenario_ms)> installing_ms = {};
    /** Returns the gateway's address in dotted decimal, empty when it has none. */
    std::function<std::string()> address;
};

/**
 * Opens the gateway. The agent may be started when it returns.
 *
 * @throws refused  the store cannot be opened, read or written
 */
void open(open_options options);

/** Closes it; the agent has been stopped and no timer or thread of it runs. */
void close();

/** @return whether the store was new, so that the site was used */
bool used_initial_site();

/** What the store holds of gateway, products, devices and devices that may join: the text of a site
 * file, secrets included. */
std::string stored_site();

/** The local key, 16 bytes; empty while there is none. */
std::string local_key();

/** What the gateway is and does: the record without its keys, extended state, devices, network, and
 * so on; faults and callbacks with how often they were reached. */
nlohmann::ordered_json status();

/** The devices in list order: their fields, and "dps". */
nlohmann::ordered_json devices();

} // namespace gateway
