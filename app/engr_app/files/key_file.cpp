// Reading of key files.
#include "files/key_file.h"

#include "base/failure.h"
#include "files/input_file.h"
#include "lan_client/crypto.h"
#include "support/input_error.h"
#include "support/json_value.h"
#include "terminal/console.h"

#include <algorithm>

#include <fmt/format.h>
#include <sys/stat.h>

namespace engr_app {
namespace {

using key_map = std::map<std::string, std::string>;
constexpr const char *blanks = " \t\r";

failure bad_file(const std::string &path, const std::string &what) {
    return {"key_file", fmt::format("key file {}: {}", path, what)};
}

void add(key_map &keys, const std::string &path, const std::string &place, const std::string &id,
         const std::string &key) {
    if (key.size() != lan_client::key_bytes) {
        throw bad_file(path, fmt::format("{}: a local key has exactly {} characters, this one {}",
                                         place, lan_client::key_bytes, key.size()));
    }
    if (!keys.emplace(id, key).second) {
        throw bad_file(path, fmt::format("{}: gateway {} is listed twice", place, id));
    }
}

key_map keys_of_json(const std::string &path, const std::string &text) {
    try {
        const support::json_document document(text, "key file " + path);
        key_map keys;
        for (const auto &[id, key] : document.root().members()) {
            add(keys, path, "gateway " + id, id, key.text());
        }
        return keys;
    } catch (const support::input_error &error) {
        throw failure("key_file", error.what());
    }
}

key_map keys_of_lines(const std::string &path, const std::string &text) {
    key_map keys;
    std::size_t number = 0;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::string line = text.substr(start, end - start);
        start = end + 1;
        ++number;
        line.erase(line.find_last_not_of(blanks) + 1);
        line.erase(0, line.find_first_not_of(blanks));
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::size_t id_end = std::min(line.find_first_of(blanks), line.size());
        const std::size_t key_start = std::min(line.find_first_not_of(blanks, id_end), line.size());
        add(keys, path, fmt::format("line {}", number), line.substr(0, id_end),
            line.substr(key_start));
    }
    return keys;
}

} // namespace

key_map read_key_file(const std::string &path, console &out) {
    const std::string text = file_text(path);
    struct stat about {};
    if (stat(path.c_str(), &about) == 0 && (about.st_mode & (S_IRGRP | S_IROTH)) != 0) {
        out.notice(fmt::format("key file {} can be read by others: chmod 600 {}", path, path));
    }
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    const bool is_json = first != std::string::npos && text[first] == '{';
    key_map keys = is_json ? keys_of_json(path, text) : keys_of_lines(path, text);
    if (keys.empty()) {
        throw bad_file(path, "there is no key in it");
    }
    return keys;
}

} // namespace engr_app
