// The command line of engr_replay.
#pragma once

#include <cstdint>
#include <string>

namespace replay {

/** Exit statuses. */
constexpr int exit_same = 0;
constexpr int exit_differs = 1; /**< or the work failed */
constexpr int exit_usage = 2;   /**< wrong usage, or a file that can't be read */

/** The options of the command line. */
struct options {
    std::string session;      /**< file */
    bool writes_json = false; /**< the report is JSON */
    bool shows_all = false;   /**< all differences, not the first alone */
    bool shows_answers = false;
    bool shrinks = false;
    std::string form;     /**< "fuzz-seed", "test", "scenario", or empty */
    std::string out;      /**< file, "-" or empty */
    std::string other;    /**< engr_replay of another build, or empty */
    std::string site;     /**< file, or empty */
    std::string scenario; /**< file, or empty */
    uint32_t client = 0;  /**< of a fuzz seed; 0: the busiest one */
    uint64_t seed = 1;
};

/** Result of parsing: the options, or the exit status of a program that ends at once. */
struct parsed_options {
    options chosen;
    bool ends = false;
    int status = 0;
};

/** Reads the command line and checks it. Help, version and complaints are printed. */
[[nodiscard]] parsed_options parse_options(int count, char **arguments);

} // namespace replay
