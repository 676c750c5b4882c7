// A scenario: how the services and callbacks of the gateway misbehave.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/** One service or callback that does something else than its work. */
struct scenario_entry {
    std::string name;
    std::optional<int32_t>
        result; /**< what it returns; without one it is a callback that is absent */
};

/** How the upgrade service works. */
struct upgrade_scenario {
    uint32_t chunk_size = 524'288;    /**< most bytes asked for at once; 0: the agent's default */
    bool rpt_percent = true;          /**< apps are told the progress */
    uint32_t remain_len = 0;          /**< bytes handed back of every chunk but the last */
    std::optional<uint32_t> fail_at;  /**< the byte of the image that cannot be taken */
    uint32_t install_ms = 500;        /**< how long it takes to install a complete image */
    bool never_start = false;         /**< the transfer of an accepted image is never started */
    bool refuse_same_version = false; /**< a version that is installed is not taken again */
};

/** The entries of a scenario, all of them valid. */
struct scenario {
    std::vector<scenario_entry> services;
    std::vector<scenario_entry> callbacks;
    upgrade_scenario upgrade;
};

/**
 * Reads a scenario file.
 *
 * @throws usage_error that names the file, the member and what is wrong
 */
scenario parse_scenario(std::string_view text, const std::string &file_name);

/**
 * Sets or clears the fault of a service, and resets its count. Any thread.
 *
 * @param name    a service
 * @param result  returned instead of doing the work; none clears the fault
 * @throws usage_error  unknown name, or a result that the service cannot return
 */
void set_service_fault(std::string_view name, std::optional<int32_t> result);

/** Behaviour of a callback of the gateway. */
enum class callback_mode : uint8_t { present, absent, fixed_result };
/**
 * As set_service_fault, for a callback.
 *
 * @param result  used with fixed_result only
 */
void set_callback(std::string_view name, callback_mode mode, int32_t result = 0);

} // namespace gateway
