// JSON files of an installer, checked member by member before anything is sent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

inline constexpr std::size_t max_device_id_bytes = 25;

/// 1 to 25 printable ASCII characters without blank, double quote and backslash.
[[nodiscard]] bool is_device_id(std::string_view text);

/// A value in a file, with its place. What is not as asked for throws a failure of wrong usage
/// that names the file, the place and what is expected there:
/// "scenes.json: scenes[1].actions[0].cid: expected a text of 1 to 25 characters".
class json_place {
  public:
    /// Reads a file, or standard input for "-". With `list_name` a file that is a mere array is
    /// taken for {"list_name": [...]}.
    static json_place read(const std::string &path, const char *list_name = nullptr);

    [[nodiscard]] const nlohmann::json &value() const { return *value_; }

    [[nodiscard]] bool has(const char *name) const;
    [[nodiscard]] json_place member(const char *name) const;               ///< must be there
    [[nodiscard]] std::vector<json_place> entries(const char *name) const; ///< of an array

    /// A text of 1 to `max_bytes` bytes, or a whole number within bounds.
    [[nodiscard]] std::string text(const char *name, std::size_t max_bytes) const;
    [[nodiscard]] std::int64_t number(const char *name, std::int64_t least,
                                      std::int64_t greatest) const;

    /// A device id: 1 to 25 printable ASCII characters without double quote and backslash.
    [[nodiscard]] std::string id(const char *name) const;

    /// {"cid", "dps"} each, in an array that is not empty.
    void check_actions(const char *name) const;

    /// Throws the failure for this place.
    [[noreturn]] void refuse(std::string_view what_is_wrong) const;

  private:
    json_place(std::shared_ptr<const nlohmann::json> root, const nlohmann::json &value,
               std::string file, std::string path);
    [[nodiscard]] json_place at(const nlohmann::json &value, const std::string &step) const;

    std::shared_ptr<const nlohmann::json> root_; // owns the value
    const nlohmann::json *value_;
    std::string file_;
    std::string path_; // empty: the whole file
};

/// The member's text of each entry; the same text twice is refused.
std::vector<std::string> distinct_ids(const std::vector<json_place> &entries, const char *name);

} // namespace engr_app
