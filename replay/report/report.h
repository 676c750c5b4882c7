// The report of a play: for people, and as JSON.
#pragma once

#include "compare/comparison.h"
#include "compare/recording.h"

#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace replay {

/** One side of a comparison. */
struct compared_side {
    std::string name;          /**< "recorded", "this agent" */
    const recording *happened; /**< where its answers are events of */
};

/** What is reported. */
struct findings {
    std::string session; /**< name of the file */
    const recording *recorded = nullptr;
    compared_side expected;
    compared_side got;
    std::vector<difference> differences;
};

/** How it is shown. */
struct report_style {
    std::size_t columns = 100; /**< of a line */
    std::size_t rows = 0;      /**< of a table of the differences; 0: there is none */
};

/** The report in lines, the last one with its line feed. */
[[nodiscard]] std::string report_text(const findings &of, const report_style &style);

/** The same as one JSON object. */
[[nodiscard]] nlohmann::ordered_json report_json(const findings &of);

/** "the reply to request 14 FRM_SET_CHANNEL of client 2": what an answer is. */
[[nodiscard]] std::string description_of(const answer &of);

} // namespace replay
