// A long list as JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace engr_app {

/**
 * Writes a list of objects, each with one member at least, the way many_lines writes it. To build a
 * tree of values for thousands of objects first takes as long as to read what they are made of.
 */
class json_list {
  public:
    void begin_object();
    /** A member of the object; names need no escape. */
    void add(std::string_view name, const std::string &text);
    void add(std::string_view name, std::optional<bool> flag);      /**< null when there is none */
    void add_known(std::string_view name, const std::string &text); /**< null for an empty text */

    /** @return the whole list */
    [[nodiscard]] std::string take() &&;

  private:
    void begin_member(std::string_view name);

    std::string text_;
    bool is_first_member_ = true;
};

} // namespace engr_app
