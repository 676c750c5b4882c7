// The scanner reads each line once, without going back, so that its time is proportional to the
// length of the log.
#include "files/log_sanitizer.h"

#include <algorithm>
#include <array>
#include <cctype>

#include <fmt/format.h>

namespace engr_app {

/** What the name of a value says about it. */
enum class value_kind : int { nothing, secret, id, id_list };

namespace {

using enum value_kind;

// No id is longer; also a bound on what is scanned repeatedly.
constexpr std::size_t max_id_bytes = 64;

constexpr std::array<std::string_view, 9> secret_endings = {
    "passwd", "password", "passphrase", "pwd", "psk", "token", "key", "secret", "ssid"};
constexpr std::array<std::string_view, 19> id_names = {
    "cid",  "devid",  "deviceid", "gwid", "altgwid", "gid",  "sid",    "sceneid", "groupid", "id",
    "uuid", "nodeid", "mac",      "eui",  "eui64",   "ieee", "serial", "sn",      "uid"};
constexpr std::array<std::string_view, 5> list_names = {"cids", "online", "offline", "on", "off"};

bool is_word_part(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

bool is_hex(char character) {
    return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}

bool is_digit(char character) {
    return std::isdigit(static_cast<unsigned char>(character)) != 0;
}

bool is_id_part(char character) {
    return is_word_part(character) || character == '-' || character == '.' || character == '@';
}

std::size_t end_of_run(std::string_view text, std::size_t at, bool (*belongs)(char)) {
    const auto *end =
        std::find_if_not(text.begin() + static_cast<std::ptrdiff_t>(at), text.end(), belongs);
    return static_cast<std::size_t>(end - text.begin());
}

value_kind kind_of(std::string_view word) {
    std::string name;
    for (const char character : word) {
        if (character != '_') {
            name += static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        }
    }
    const auto ends_so = [&name](std::string_view ending) { return name.ends_with(ending); };
    if (std::ranges::any_of(secret_endings, ends_so)) {
        return secret;
    }
    if (std::ranges::find(id_names, name) != id_names.end()) {
        return id;
    }
    return std::ranges::find(list_names, name) != list_names.end() ? id_list : nothing;
}

// The end of "a4:c1:38:00:00:01" or of the groups of a UUID; `at` when there is none.
std::size_t end_of_hex_groups(std::string_view text, std::size_t at) {
    constexpr std::size_t least_groups = 5;
    constexpr std::size_t least_digits = 12;
    text = text.substr(0, at + max_id_bytes);
    std::size_t groups = 0;
    std::size_t digits = 0;
    std::size_t end = at;
    for (std::size_t next = at; next < text.size() && is_hex(text[next]);) {
        const std::size_t stop = end_of_run(text, next, is_hex);
        ++groups;
        digits += stop - next;
        end = stop;
        const bool goes_on = end < text.size() && (text[end] == ':' || text[end] == '-');
        next = goes_on ? end + 1 : text.size();
    }
    const bool whole = end == text.size() || !is_word_part(text[end]);
    return whole && groups >= least_groups && digits >= least_digits ? end : at;
}

bool looks_like_id(std::string_view word) {
    constexpr std::size_t least_hex = 12;
    constexpr std::size_t least_mixed = 16;
    const bool digit = std::ranges::any_of(word, is_digit);
    if (word.size() >= least_hex && digit && std::ranges::all_of(word, is_hex)) {
        return true;
    }
    return word.size() >= least_mixed && digit && word.find('_') == std::string_view::npos;
}

// Short numbers and words are too common to be replaced wherever they occur.
bool may_stand_anywhere(std::string_view value) {
    constexpr std::size_t long_enough = 6;
    const bool digit = std::ranges::any_of(value, is_digit);
    return value.size() >= long_enough ||
           (value.size() >= 2 && digit && !std::ranges::all_of(value, is_digit));
}

// The end of an id without quotes.
std::size_t end_of_bare_id(std::string_view line, std::size_t at) {
    if (const std::size_t end = end_of_hex_groups(line, at); end > at) {
        return end;
    }
    std::size_t end = end_of_run(line.substr(0, at + max_id_bytes), at, is_id_part);
    while (end > at && line[end - 1] == '.') {
        --end;
    }
    return end;
}

// The end of a text in quotes; the quotes of a text within a text are escaped with backslashes.
std::size_t end_of_quoted(std::string_view line, std::size_t at, std::size_t backslashes) {
    std::size_t run = 0;
    for (; at < line.size(); ++at) {
        if (line[at] == '"' && (backslashes == 0 ? run % 2 == 0 : run == backslashes)) {
            return at - backslashes;
        }
        run = line[at] == '\\' ? run + 1 : 0;
    }
    return line.size();
}

std::size_t skip(std::string_view line, std::size_t at, char character) {
    const std::size_t end = line.find_first_not_of(character, at);
    return std::min(end, line.size());
}

} // namespace

log_sanitizer::log_sanitizer(const std::vector<std::string> &known_ids)
    : ids_(known_ids.begin(), known_ids.end()) {
    ids_.erase("");
}

std::string log_sanitizer::clean(std::string_view log) {
    pass(log); // collects the ids, so that the second pass replaces earlier occurrences, too
    return pass(log);
}

std::string log_sanitizer::pass(std::string_view log) {
    std::string out;
    out.reserve(log.size());
    for (std::size_t start = 0; start < log.size();) {
        const std::size_t end = std::min(log.find('\n', start), log.size());
        const std::string_view line = log.substr(start, end - start);
        for (std::size_t at = 0; at < line.size();) {
            if (is_word_part(line[at])) {
                at = take_named(line, at, out);
            } else {
                out += line[at++];
            }
        }
        out.append(end < log.size() ? 1 : 0, '\n');
        start = end + 1;
    }
    return out;
}

// Copies a word, and hides its value if its name says so.
std::size_t log_sanitizer::take_named(std::string_view line, std::size_t at, std::string &out) {
    const std::size_t end = end_of_run(line, at, is_word_part);
    const value_kind kind = kind_of(line.substr(at, end - at));
    if (kind == nothing) {
        return take_word(line, at, out);
    }
    const std::size_t escapes = skip(line, end, '\\');
    const bool in_json = escapes < line.size() && line[escapes] == '"';
    const std::size_t separator = skip(line, in_json ? escapes + 1 : end, ' ');
    if (separator < line.size() && (line[separator] == ':' || line[separator] == '=')) {
        const std::size_t value = skip(line, separator + 1, ' ');
        out += line.substr(at, value - at);
        return take_value(line, value, kind, in_json, out);
    }
    // "dev id a1 can't be found", "token abc": one word.
    const std::size_t stop = kind == id ? end_of_bare_id(line, separator)
                                        : std::min(line.find(' ', separator), line.size());
    if (in_json || kind == id_list || separator == end || stop == separator) {
        return take_word(line, at, out);
    }
    out += line.substr(at, separator - at);
    out += hidden(line.substr(separator, stop - separator), kind, false);
    return stop;
}

std::size_t log_sanitizer::take_value(std::string_view line, std::size_t at, value_kind kind,
                                      bool in_json, std::string &out) {
    if (kind != secret && at < line.size() && line[at] == '[') {
        return take_list(line, at, out);
    }
    if (kind == id_list) {
        return at;
    }
    const std::size_t quote = skip(line, at, '\\');
    if (quote == line.size() || line[quote] != '"') {
        return take_bare_value(line, at, kind, in_json, out);
    }
    const std::size_t end = end_of_quoted(line, quote + 1, quote - at);
    out += line.substr(at, quote + 1 - at);
    out += hidden(line.substr(quote + 1, end - quote - 1), kind, true);
    return end;
}

// Outside of JSON the end of a secret is not known, so the rest of the line is hidden.
std::size_t log_sanitizer::take_bare_value(std::string_view line, std::size_t at, value_kind kind,
                                           bool in_json, std::string &out) {
    const bool simple = in_json && at < line.size() && line[at] != '[' && line[at] != '{';
    const std::size_t end = kind == id ? end_of_bare_id(line, at)
                            : simple   ? std::min(line.find_first_of(" ,;}])", at), line.size())
                                       : line.size();
    const std::string_view value = line.substr(at, end - at);
    const bool literal = in_json && (value == "true" || value == "false" || value == "null");
    out += literal ? std::string(value) : hidden(value, kind, true);
    return end;
}

// ["a1","b2"]; a word without quotes is none of its elements, and may be the name of a secret.
std::size_t log_sanitizer::take_list(std::string_view line, std::size_t at, std::string &out) {
    while (at < line.size() && line[at] != ']' && !is_word_part(line[at])) {
        const std::size_t quote = skip(line, at, '\\');
        if (quote == line.size() || line[quote] != '"') {
            out += line[at++];
            continue;
        }
        const std::size_t end = end_of_quoted(line, quote + 1, quote - at);
        out += line.substr(at, quote + 1 - at);
        out += hidden(line.substr(quote + 1, end - quote - 1), id, true);
        const std::size_t closed = std::min(end + (quote - at) + 1, line.size());
        out += line.substr(end, closed - end);
        at = closed;
    }
    return at;
}

std::size_t log_sanitizer::take_word(std::string_view line, std::size_t at, std::string &out) {
    if (const std::size_t end = end_of_hex_groups(line, at); end > at) {
        out += alias(line.substr(at, end - at));
        return end;
    }
    for (const std::size_t end :
         {end_of_bare_id(line, at),
          end_of_run(line.substr(0, at + max_id_bytes), at, is_word_part)}) {
        if (ids_.contains(std::string(line.substr(at, end - at)))) {
            out += alias(line.substr(at, end - at));
            return end;
        }
    }
    const std::size_t end = end_of_run(line, at, is_word_part);
    const std::string_view word = line.substr(at, end - at);
    out += looks_like_id(word) ? alias(word) : std::string(word);
    return end;
}

std::string log_sanitizer::hidden(std::string_view value, value_kind kind, bool everywhere) {
    if (value.empty()) {
        return "";
    }
    if (kind == secret) {
        return "***";
    }
    if (everywhere && may_stand_anywhere(value)) {
        ids_.emplace(value);
    }
    return alias(value);
}

const std::string &log_sanitizer::alias(std::string_view id) {
    const auto [entry, added] = aliases_.try_emplace(std::string(id));
    if (added) {
        entry->second = fmt::format("id-{}", aliases_.size());
    }
    return entry->second;
}

} // namespace engr_app
