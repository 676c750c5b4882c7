#include "json_parser.h"

#include "support/utf8.h"

#include <nlohmann/json.hpp>
#include <rapidjson/reader.h>

#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace support {
namespace {

/** Hands on what RapidJSON finds. Its functions have the names that the parser calls; false ends
 * the reading. */
class event_reader : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, event_reader> {
  public:
    explicit event_reader(json_events &told) : told_(told) {}

    bool Null() { return told_.null(); }
    bool Bool(bool value) { return told_.boolean(value); }
    bool RawNumber(const char *text, std::size_t size, bool) {
        const std::string_view number(text, size);
        if (number.find_first_of(".eE") != std::string_view::npos) {
            return is_real(number);
        }
        if (int64_t value = 0; number.front() == '-' && is_whole(number, value)) {
            return told_.number_integer(value);
        }
        if (uint64_t value = 0; number.front() != '-' && is_whole(number, value)) {
            return told_.number_unsigned(value);
        }
        return is_real(number);
    }
    bool String(const char *text, std::size_t size, bool) {
        std::string copy(text, size);
        return !has_surrogate(copy) && told_.string(copy);
    }
    bool Key(const char *text, std::size_t size, bool) {
        std::string copy(text, size);
        return !has_surrogate(copy) && told_.key(copy);
    }
    bool StartObject() { return told_.start_object(0); }
    bool StartArray() { return told_.start_array(0); }
    bool EndObject(std::size_t) { return told_.end_object(); }
    bool EndArray(std::size_t) { return told_.end_array(); }

  private:
    template <typename Number>
    static bool is_whole(std::string_view text, Number &value) {
        const char *const end = text.data() + text.size();
        const auto read = std::from_chars(text.data(), end, value);
        return read.ec == std::errc() && read.ptr == end;
    }

    bool is_real(std::string_view text) {
        double value = 0;
        return is_whole(text, value) && told_.number_float(value, {});
    }

    /** Half of a pair, by an escape, which the parser lets through. */
    static bool has_surrogate(std::string_view text) {
        return text.find('\xED') != std::string_view::npos && !is_utf8(text);
    }

    json_events &told_;
};

} // namespace

bool parse_json(std::string text, json_events &told) {
    if (!is_utf8(text)) {
        return false;
    }
    rapidjson::InsituStringStream stream(text.data());
    event_reader reader(told);
    constexpr unsigned how = rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag;
    const bool is_json = rapidjson::Reader().Parse<how>(stream, reader);
    return is_json && stream.Tell() == text.size(); // to the parser a NUL is the end
}

} // namespace support
