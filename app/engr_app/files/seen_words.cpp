#include "files/seen_words.h"

#include "base/failure.h"
#include "files/user_paths.h"
#include "support/files.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <set>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr const char *typed = ""; // the source of what the user typed
constexpr std::size_t word_bytes_max = 64;

/** Ids come from the network, and the shell puts completions into a command line as they are. */
bool is_harmless(const std::string &word) {
    return !word.empty() && word.size() <= word_bytes_max && word.front() != '-' &&
           std::ranges::all_of(word, [](char one) {
               return (one >= '0' && one <= '9') || (one >= 'a' && one <= 'z') ||
                      (one >= 'A' && one <= 'Z') || one == '.' || one == '_' || one == ':' ||
                      one == '-';
           });
}

/** A file of the cache; discarded when there is none that can be read. */
json read_cache(const std::string &path) {
    if (path.empty()) {
        return json(json::value_t::discarded);
    }
    try {
        return json::parse(support::read_file(path), nullptr, false);
    } catch (const std::exception &) {
        return json(json::value_t::discarded);
    }
}

json read_words() {
    json all = read_cache(seen_words_path());
    return all.is_object() ? all : json::object();
}

/** Adds the harmless texts of a list. */
void add_texts(const json &list, std::set<std::string> &words) {
    for (const json &each : list.is_array() ? list : json::array()) {
        if (each.is_string() && is_harmless(each.get<std::string>())) {
            words.insert(each.get<std::string>());
        }
    }
}

void store(const std::string &kind, const std::string &source, std::vector<std::string> words) {
    static std::mutex one_at_a_time; // with several gateways each has a thread
    const std::lock_guard guard(one_at_a_time);
    std::erase_if(words, [](const std::string &word) { return !is_harmless(word); });
    words.resize(std::min(words.size(), seen_words_max));
    json all = read_words();
    json &of_kind = all[kind];
    if (!of_kind.is_object()) {
        of_kind = json::object();
    }
    if (of_kind.contains(source) && of_kind[source] == json(words)) {
        return;
    }
    of_kind[source] = words;
    try {
        write_user_file(seen_words_path(),
                        all.dump(-1, ' ', false, json::error_handler_t::replace) + "\n");
    } catch (const failure &) {
        return; // the next time, perhaps
    }
}

} // namespace

void remember_words(const std::string &kind, const std::string &source,
                    const std::vector<std::string> &words) {
    store(kind, source, words);
}

void remember_typed_words(const std::string &kind, const std::vector<std::string> &words) {
    const json all = read_words();
    std::vector<std::string> together = words; // the newest come first, the oldest fall off
    const json older = all.value(kind, json::object());
    for (const json &each : older.is_object() ? older.value(typed, json::array()) : json::array()) {
        const std::string word = each.is_string() ? each.get<std::string>() : "";
        if (!word.empty() && std::ranges::find(together, word) == together.end()) {
            together.push_back(word);
        }
    }
    store(kind, typed, std::move(together));
}

std::vector<std::string> seen_words(const std::string &kind) {
    std::set<std::string> words;
    const json all = read_words();
    if (const auto of_kind = all.find(kind); of_kind != all.end() && of_kind->is_object()) {
        for (const json &of_source : *of_kind) {
            add_texts(of_source, words);
        }
    }
    return {words.begin(), words.end()};
}

std::vector<std::string> seen_gateways() {
    std::set<std::string> words;
    const json all = read_cache(known_gateways_path());
    for (const json &each : all.is_array() ? all : json::array()) {
        for (const char *member : {"id", "address"}) {
            if (each.is_object() && each.contains(member)) {
                add_texts(json::array({each[member]}), words);
            }
        }
    }
    return {words.begin(), words.end()};
}

} // namespace engr_app
