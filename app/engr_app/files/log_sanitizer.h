// Removes secrets and ids from a gateway's log, so that it can be sent to others.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace engr_app {

enum class value_kind : int;

/**
 * Hides the values of names that mean a key, a password, a token or a network, and replaces each id
 * by id-1, id-2 and so on, the same id always by the same. An id is a known id, the value of a name
 * that means an id ("cid", "gwId", "mac", lists such as "online"), and what looks like an id: a MAC
 * address, a long hexadecimal number, a long mix of letters and digits. Where a line ends within a
 * secret, the rest of the line is left out.
 */
class log_sanitizer {
  public:
    explicit log_sanitizer(const std::vector<std::string> &known_ids);

    [[nodiscard]] std::string clean(std::string_view log);

  private:
    std::string pass(std::string_view log);
    std::size_t take_named(std::string_view line, std::size_t at, std::string &out);
    std::size_t take_value(std::string_view line, std::size_t at, value_kind kind, bool in_json,
                           std::string &out);
    std::size_t take_bare_value(std::string_view line, std::size_t at, value_kind kind,
                                bool in_json, std::string &out);
    std::size_t take_list(std::string_view line, std::size_t at, std::string &out);
    std::size_t take_word(std::string_view line, std::size_t at, std::string &out);
    std::string hidden(std::string_view value, value_kind kind, bool everywhere);
    const std::string &alias(std::string_view id);

    std::unordered_set<std::string> ids_; // replaced wherever they occur
    std::unordered_map<std::string, std::string> aliases_;
};

} // namespace engr_app
