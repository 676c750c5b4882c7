// What a verb of the command line is, and the list of them.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace engr_app {

class gateway_session;

/** Does the work of one verb with one gateway; returns the exit code or throws a failure. */
using verb_work = std::function<int(gateway_session &)>;

/** A verb, or a verb of a verb such as "get" in "channel get". */
struct verb {
    const char *name;
    const char *summary; /**< its line in --help */

    /**
     * Declares the verb's options, and the notes and examples below them in --help.
     *
     * @param parser  fills what is declared while it parses the command line
     * @return the work; it owns the variables that the options fill
     */
    verb_work (*declare)(CLI::App &parser);
};

/** @return all verbs, in the order in which --help shows them */
[[nodiscard]] std::span<const verb> verbs();

/**
 * @param given  what the verb's options fill
 * @param work   is called with the session and with what they have filled
 */
template <typename Arguments, typename Work>
[[nodiscard]] verb_work with_arguments(std::shared_ptr<Arguments> given, Work work) {
    return [given = std::move(given), work](gateway_session &session) {
        return work(session, *given);
    };
}

/**
 * Adds a verb to the program or to another verb. Its options are declared when the command line
 * turns out to name it, or by one of the two below.
 */
void add_verb(CLI::App &above, const verb &added);

/** Declares the flag that shows the help of the program, or of a verb. Call it for the program once
 * all verbs are added: they have theirs only when they are declared. */
void declare_help_flag(CLI::App &parser);

/** Declares the options of a verb, so that they can be shown. */
void declare_verb(CLI::App &parser);

/** Declares those of all verbs of the program. */
void declare_all_verbs(CLI::App &above);

/**
 * Declares the verbs of a verb, one of which has to be given.
 *
 * @return no work: that of the one given is done
 */
[[nodiscard]] verb_work add_subverbs(CLI::App &parser, const std::vector<verb> &subverbs);

/**
 * Says that the verb's work is with the network or with files and not with one gateway: --all and
 * several --gateway are refused, and no gateway is chosen by a setting.
 */
void concerns_no_gateway(CLI::App &parser);

/** The verb that a command line names. */
struct named_verb {
    verb_work work;
    bool for_one_gateway = true;
};

/** @return the innermost verb, after the command line was parsed */
[[nodiscard]] named_verb verb_named_in(const CLI::App &whole);

} // namespace engr_app
