#include "files/seen_words.h"

#include "base/failure.h"
#include "files/user_paths.h"
#include "support/files.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <set>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr std::string_view typed = "-"; // the source of what the user typed; no gateway's name
constexpr std::size_t word_bytes_max = 64;

/** Ids come from the network, and the shell puts completions into a command line as they are. */
bool is_harmless(std::string_view word) {
    return !word.empty() && word.size() <= word_bytes_max && word.front() != '-' &&
           std::ranges::all_of(word, [](char one) {
               return (one >= '0' && one <= '9') || (one >= 'a' && one <= 'z') ||
                      (one >= 'A' && one <= 'Z') || one == '.' || one == '_' || one == ':' ||
                      one == '-';
           });
}

/** A file of the cache; empty when there is none that can be read. */
std::string read_cache(const std::string &path) {
    try {
        return path.empty() ? "" : support::read_file(path);
    } catch (const std::exception &) {
        return "";
    }
}

/** The harmless lines of a text. */
std::vector<std::string> words_in(std::string_view text) {
    std::vector<std::string> words;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (is_harmless(line)) {
            words.emplace_back(line);
        }
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return words;
}

/** The files with words of a kind, one for each source. */
std::vector<fs::path> files_of(const std::string &kind) {
    const fs::path any = seen_words_path(kind, "");
    std::vector<fs::path> files;
    std::error_code unreadable; // ends the list
    for (fs::directory_iterator each(any.parent_path(), unreadable);
         each != fs::directory_iterator(); each.increment(unreadable)) {
        if (each->path().filename().native().starts_with(any.filename().native())) {
            files.push_back(each->path());
        }
    }
    return files;
}

void forget_oldest_sources(const std::string &kind) {
    std::vector<std::pair<fs::file_time_type, fs::path>> by_age;
    std::error_code gone; // by another run, perhaps
    for (const fs::path &each : files_of(kind)) {
        by_age.emplace_back(fs::last_write_time(each, gone), each);
    }
    std::ranges::sort(by_age);
    for (std::size_t at = 0; at + word_sources_max < by_age.size(); ++at) {
        fs::remove(by_age[at].second, gone);
    }
}

void store(const std::string &kind, std::string_view source,
           const std::vector<std::string> &words) {
    const std::string path = seen_words_path(kind, source);
    std::string text;
    std::size_t kept = 0;
    for (const std::string &word : words) {
        if (kept < seen_words_max && is_harmless(word)) {
            text.append(word).push_back('\n');
            ++kept;
        }
    }
    if (text == read_cache(path)) {
        return;
    }
    try {
        write_user_file(path, text);
        forget_oldest_sources(kind);
    } catch (const failure &) {
        return; // the next time, perhaps
    }
}

} // namespace

void remember_words(const std::string &kind, const std::string &source,
                    const std::vector<std::string> &words) {
    if (is_harmless(source)) { // it becomes the name of a file
        store(kind, source, words);
    }
}

void remember_typed_words(const std::string &kind, const std::vector<std::string> &words) {
    std::vector<std::string> together = words; // the newest come first, the oldest fall off
    for (const std::string &word : words_in(read_cache(seen_words_path(kind, typed)))) {
        if (std::ranges::find(together, word) == together.end()) {
            together.push_back(word);
        }
    }
    store(kind, typed, together);
}

std::vector<std::string> seen_words(const std::string &kind) {
    std::set<std::string> words;
    for (const fs::path &each : files_of(kind)) {
        for (std::string &word : words_in(read_cache(each))) {
            words.insert(std::move(word));
        }
    }
    return {words.begin(), words.end()};
}

std::vector<std::string> seen_gateways() {
    std::set<std::string> words;
    const json all = json::parse(read_cache(known_gateways_path()), nullptr, false);
    for (const json &each : all.is_array() ? all : json::array()) {
        for (const char *member : {"id", "address"}) {
            const auto found = each.is_object() ? each.find(member) : each.end();
            if (found != each.end() && found->is_string() &&
                is_harmless(found->get_ref<const std::string &>())) {
                words.insert(found->get<std::string>());
            }
        }
    }
    return {words.begin(), words.end()};
}

} // namespace engr_app
