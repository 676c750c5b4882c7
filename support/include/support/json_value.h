// Strict reading of JSON that others write, files and requests: whatever is wrong is told with its
// place, as in "site.json: devices[3].dev_id: is number, expected a text".
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace support {

struct json_value;

/** What a JSON text may hold; reading it takes 50 to 100 bytes of memory for a value. */
struct json_bounds {
    std::size_t members_max = SIZE_MAX; /**< of one object */
    std::size_t values_max = SIZE_MAX;  /**< of the text, objects and arrays included */
};

/**
 * A JSON text that has been read. It is refused when it is not valid JSON in UTF-8, has more than
 * 200 levels, or gives a member twice. Members keep their order. The time to read it is
 * proportional to its length.
 */
class json_document {
  public:
    /**
     * Reads a text.
     *
     * @param source  file name, or what else messages shall call it
     * @throws input_error
     */
    json_document(std::string_view text, std::string source, const json_bounds &bounds = {});
    json_document(json_document &&other) noexcept;
    json_document &operator=(json_document &&other) noexcept;
    ~json_document();

    /** The whole. It must not outlive the document. */
    [[nodiscard]] json_value root() const;

    /** Puts a text that is a mere array into an object, as its only member. */
    void name_list(const std::string &name);

  private:
    // Both stay where they are when the document moves: its values refer to them.
    std::unique_ptr<const std::string> source_;
    std::unique_ptr<nlohmann::ordered_json> json_;
};

/**
 * A value inside a document, and the path that leads to it. Names of members are compared as the
 * agent compares them: the letter case of ASCII does not matter. All functions throw input_error
 * when the value is not what they read.
 */
struct json_value {
    const std::string &source; /**< file name, or what else it came from */
    std::string path;          /**< like devices[3].dev_id; empty for the whole */
    const nlohmann::ordered_json &json;

    /** Throws the error for this place. */
    [[noreturn]] void refuse(std::string_view what) const;

    /** The members of an object, in their order. */
    [[nodiscard]] std::vector<std::pair<std::string, json_value>> members() const;
    /** The elements of an array, `least` to `most` of them. */
    [[nodiscard]] std::vector<json_value> elements(std::size_t least = 0,
                                                   std::size_t most = SIZE_MAX) const;
    /** A member that has to be there. */
    [[nodiscard]] json_value required(std::string_view name) const;
    /** Whether this is an object that has the member. */
    [[nodiscard]] bool has(std::string_view name) const;

    [[nodiscard]] bool boolean() const;
    [[nodiscard]] int64_t whole_number(int64_t lowest, int64_t highest) const;
    [[nodiscard]] std::string text() const;
    /** A text of 1 to `bytes_max` bytes. */
    [[nodiscard]] std::string text(std::size_t bytes_max) const;
    /** The same without control character, double quote and backslash, so that it can stand in a
     * JSON text as it is. */
    [[nodiscard]] std::string plain_text(std::size_t bytes_max) const;

    /** @param known  the names there are */
    [[noreturn]] void refuse_unknown(std::string_view known) const;

  private:
    friend class json_document;
    [[nodiscard]] const nlohmann::ordered_json *find(std::string_view name) const;
    [[nodiscard]] json_value member(std::string_view name,
                                    const nlohmann::ordered_json &value) const;
    [[noreturn]] void refuse_kind(std::string_view expected) const;
};

/** A member that an object may have, and what reads it. */
struct known_member {
    const char *name;
    std::function<void(const json_value &value)> read;
};

/**
 * Reads an object that may have these members only, each once, in the object's order.
 *
 * @throws input_error
 */
void read_members(const json_value &object, const std::vector<known_member> &members);

} // namespace support
