// The two configuration texts that a gateway takes.
#pragma once

#include "lan_client/client.h"

#include <chrono>
#include <functional>
#include <string>

namespace engr_app {

/**
 * Checks that a gateway would keep the whole text. Blanks at its end are dropped.
 *
 * @param name  what messages call it
 * @throws failure of wrong usage
 */
[[nodiscard]] std::string checked_configuration(std::string text, const std::string &name);

enum class configuration_kind {
    app,
    cloud, /**< ends engineering */
};

/** @param answer_time  the usual time for an answer; a long text gets more */
[[nodiscard]] lan_client::request configuration_request(configuration_kind kind, std::string text,
                                                        std::chrono::milliseconds answer_time);

} // namespace engr_app
