// Values of a plan's settings, with their variables filled in.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class plan_document;

/** A value of the plan, its place, and the variables that hold there. */
struct setting {
    const plan_document &document;
    const nlohmann::json &value;
    std::string place;
    const std::map<std::string, std::string> &variables;

    [[noreturn]] void refuse(const std::string &what) const;

    [[nodiscard]] bool has(const char *name) const;
    [[nodiscard]] setting member(const std::string &name) const; /**< which is there */
    [[nodiscard]] std::vector<setting> elements() const;

    /** The members in the order of their names. */
    void each_member(
        const std::function<void(const std::string &name, const setting &member)> &work) const;

    /**
     * A text in which ${NAME} is replaced by the variable, and $${ by ${.
     *
     * @throws failure of wrong usage for an unknown variable, and unless the text then has 1 to
     *         `max_bytes` bytes without control character, double quote and backslash
     */
    [[nodiscard]] std::string text(std::size_t max_bytes) const;

    /** The same for any text. */
    [[nodiscard]] std::string any_text() const;

    /** The value with the variables in all its texts filled in. */
    [[nodiscard]] nlohmann::json filled() const;

  private:
    [[nodiscard]] std::string filled_text(const std::string &text, int depth = 0) const;
};

} // namespace engr_app
