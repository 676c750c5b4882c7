#include "session/lines.h"

#include "support/input_error.h"
#include "support/json_text.h"
#include "support/json_value.h"
#include "support/numbers.h"
#include "support/utf8.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace session {
namespace {

using support::json_value;

constexpr std::size_t key_characters = 16;
constexpr int highest_log_level = 5;
constexpr std::array<const char *, 4> coding_names = {"plain", "local", "built-in", "unknown"};

std::string json_string(std::string_view text) {
    using nlohmann::json;
    return support::visible_json(json(text).dump(-1, ' ', false, json::error_handler_t::replace));
}

/** JSON that can stand in a line as it is: the text itself, or a JSON text that holds it when a
 * reader of the line would refuse it. */
std::string embedded(std::string_view text) {
    try {
        const support::json_document checked(fmt::format("{{\"embedded\":{}}}", text), "");
    } catch (const support::input_error &) {
        return json_string(text);
    }
    std::string line(text);
    std::replace(line.begin(), line.end(), '\n', ' '); // only between values
    std::replace(line.begin(), line.end(), '\r', ' ');
    return support::visible_json(line);
}

/** An object on one line. */
class line_writer {
  public:
    line_writer &json(const char *name, std::string_view value) {
        line_ += fmt::format("{}\"{}\":{}", line_.empty() ? "{" : ",", name, value);
        return *this;
    }
    line_writer &text(const char *name, std::string_view value) {
        return json(name, json_string(value));
    }
    line_writer &number(const char *name, uint64_t value) {
        return json(name, std::to_string(value));
    }
    line_writer &embed(const char *name, std::string_view value) {
        return value.empty() ? *this : json(name, embedded(value));
    }
    line_writer &payload(std::string_view bytes, bool is_text) {
        if (!bytes.empty()) {
            json(is_text ? "text" : "hex",
                 is_text ? json_string(bytes) : fmt::format("\"{}\"", support::to_hex(bytes)));
        }
        return *this;
    }
    std::string take() { return std::move(line_) + "}"; }

  private:
    std::string line_;
};

void put_content(line_writer &line, const frame_content &content, const std::string &name,
                 coding usual) {
    line.number("type", content.type).text("name", name).number("number", content.number);
    if (content.ret) {
        line.number("ret", *content.ret);
    }
    if (content.segment) {
        line.json("segment",
                  fmt::format("[{},{}]", content.segment->count, content.segment->number));
    }
    if (content.coded != usual) {
        line.text("coding", coding_names[static_cast<std::size_t>(content.coded)]);
    }
    if (!content.crc_matches) {
        line.json("crc", "false");
    }
    line.payload(content.payload,
                 content.coded != coding::unknown && support::is_utf8(content.payload));
}

struct event_writer {
    line_writer &line;

    void operator()(const connected &of) const { client(of.client).text("peer", of.peer); }
    void operator()(const closed &of) const {
        client(of.client);
        if (of.by) {
            line.text("by", side_name(*of.by));
        }
    }
    void operator()(const frame &of) const {
        client(of.client).text("from", side_name(of.from));
        began(of.began_us);
        if (of.first_bytes != 0) {
            line.number("first", of.first_bytes);
        }
        put_content(line, of.content, type_name(of.content.type),
                    usual_coding(of.from, of.content));
    }
    void operator()(const raw_bytes &of) const {
        client(of.client).text("from", side_name(of.from));
        began(of.began_us);
        line.payload(of.bytes, false);
    }
    void operator()(const datagram &of) const {
        line.text("from", side_name(of.from)).number("port", of.port).text("peer", of.peer);
        if (const auto *content = std::get_if<frame_content>(&of.content)) {
            put_content(line, *content, datagram_type_name(content->type),
                        usual_datagram_coding(*content));
        } else {
            line.payload(std::get<std::string>(of.content), false);
        }
    }
    void operator()(const call &of) const {
        line.text("name", of.name).embed("arguments", of.arguments).embed("result", of.result);
    }
    void operator()(const control &of) const {
        began(of.began_us);
        std::string words;
        for (const std::string &word : of.line) {
            words += (words.empty() ? "" : ",") + json_string(word);
        }
        line.json("line", "[" + words + "]").embed("answer", of.answer);
    }
    void operator()(const log_line &of) const {
        line.number("level", static_cast<uint64_t>(std::max(of.level, 0))).text("text", of.text);
    }
    void operator()(const activity &of) const { line.text("text", of.text); }
    void operator()(const lost &of) const { line.number("events", of.events); }
    void operator()(const ended &) const {}

  private:
    line_writer &client(uint32_t number) const { return line.number("client", number); }
    void began(const std::optional<uint64_t> &at_us) const {
        if (at_us) {
            line.number("began", *at_us);
        }
    }
};

/** The names of the events, in the order of the alternatives of a happening. */
constexpr std::array<const char *, std::variant_size_v<happening>> event_names = {
    "connected", "closed", "frame",    "bytes", "datagram", "call",
    "control",   "log",    "activity", "lost",  "ended"};

/** The members of an object; those that nobody has asked for are an error. */
class members {
  public:
    explicit members(const json_value &object) : object_(object) {}

    json_value need(const char *name) {
        known_.emplace_back(name);
        return object_.required(name);
    }
    std::optional<json_value> find(const char *name) {
        known_.emplace_back(name);
        return object_.has(name) ? std::optional<json_value>(object_.required(name)) : std::nullopt;
    }
    uint64_t number(const char *name, int64_t highest = std::numeric_limits<int64_t>::max()) {
        return static_cast<uint64_t>(need(name).whole_number(0, highest));
    }
    uint32_t word(const char *name) {
        return static_cast<uint32_t>(number(name, std::numeric_limits<uint32_t>::max()));
    }
    uint32_t client() {
        return static_cast<uint32_t>(
            need("client").whole_number(1, std::numeric_limits<uint32_t>::max()));
    }
    std::string text(const char *name) { return need(name).text(); }
    /** A JSON value as its text; empty when it is not there. */
    std::string json(const char *name) {
        const std::optional<json_value> value = find(name);
        return value ? value->json.dump() : "";
    }
    /** Throws when there are other members. */
    void finish() const {
        for (const auto &[name, value] : object_.members()) {
            if (std::find(known_.begin(), known_.end(), name) == known_.end()) {
                value.refuse_unknown(fmt::format("{}", fmt::join(known_, ", ")));
            }
        }
    }

  private:
    const json_value &object_;
    std::vector<std::string> known_;
};

template <typename Names>
std::size_t index_of(const json_value &value, const Names &names) {
    const std::string text = value.text();
    const auto found = std::find(names.begin(), names.end(), text);
    if (found == names.end()) {
        value.refuse(fmt::format("'{}' is unknown; there are: {}", text, fmt::join(names, ", ")));
    }
    return static_cast<std::size_t>(found - names.begin());
}

side side_of(const json_value &value) {
    static constexpr std::array names = {"app", "gateway"};
    return index_of(value, names) == 0 ? side::app : side::gateway;
}

/** The bytes of "text" or "hex"; none when there is neither. */
std::string read_payload(members &from) {
    const auto text = from.find("text");
    const auto hex = from.find("hex");
    if (text && hex) {
        hex->refuse("a payload is either text or hex");
    }
    if (hex) {
        try {
            return support::from_hex("hex", hex->text());
        } catch (const support::input_error &error) {
            hex->refuse(error.what());
        }
    }
    return text ? text->text() : "";
}

std::optional<uint64_t> read_began(members &from, uint64_t at_us) {
    const auto value = from.find("began");
    return value ? std::optional(
                       static_cast<uint64_t>(value->whole_number(0, static_cast<int64_t>(at_us))))
                 : std::nullopt;
}

lan_client::segment_position read_segment(const json_value &value) {
    constexpr int64_t lowest = std::numeric_limits<int32_t>::min();
    constexpr int64_t highest = std::numeric_limits<int32_t>::max();
    const std::vector<json_value> numbers = value.elements(2, 2);
    return {static_cast<int32_t>(numbers[0].whole_number(lowest, highest)),
            static_cast<int32_t>(numbers[1].whole_number(lowest, highest))};
}

template <typename Usual>
frame_content read_content(members &from, const Usual &usual) {
    frame_content content;
    content.type = from.word("type");
    from.find("name"); // for people
    content.number = from.word("number");
    if (from.find("ret")) {
        content.ret = from.word("ret");
    }
    if (const auto segment = from.find("segment")) {
        content.segment = read_segment(*segment);
    }
    if (const auto crc = from.find("crc")) {
        content.crc_matches = crc->boolean();
    }
    content.payload = read_payload(from);
    const auto coded = from.find("coding");
    content.coded = coded ? static_cast<coding>(index_of(*coded, coding_names)) : usual(content);
    return content;
}

frame read_frame(members &from, uint64_t at_us) {
    frame read;
    read.client = from.client();
    read.from = side_of(from.need("from"));
    read.began_us = read_began(from, at_us);
    if (from.find("first")) {
        read.first_bytes = from.word("first");
    }
    read.content = read_content(
        from, [&](const frame_content &content) { return usual_coding(read.from, content); });
    return read;
}

datagram read_datagram(members &from, const json_value &object) {
    datagram read;
    read.from = side_of(from.need("from"));
    read.port = static_cast<uint16_t>(from.number("port", std::numeric_limits<uint16_t>::max()));
    read.peer = from.text("peer");
    if (object.has("type")) {
        read.content = read_content(from, usual_datagram_coding);
    } else {
        read.content = read_payload(from);
    }
    return read;
}

closed read_closed(members &from) {
    closed read{from.client(), {}};
    if (const auto by = from.find("by")) {
        read.by = side_of(*by);
    }
    return read;
}

control read_control(members &from, uint64_t at_us) {
    control read;
    read.began_us = read_began(from, at_us);
    for (const json_value &word : from.need("line").elements(1)) {
        read.line.push_back(word.text());
    }
    read.answer = from.json("answer");
    return read;
}

happening read_happening(std::size_t kind, members &from, const json_value &object,
                         uint64_t at_us) {
    switch (kind) {
    case 0:
        return connected{from.client(), from.text("peer")};
    case 1:
        return read_closed(from);
    case 2:
        return read_frame(from, at_us);
    case 3:
        return raw_bytes{from.client(), side_of(from.need("from")), read_began(from, at_us),
                         read_payload(from)};
    case 4:
        return read_datagram(from, object);
    case 5:
        return call{from.text("name"), from.json("arguments"), from.json("result")};
    case 6:
        return read_control(from, at_us);
    case 7:
        return log_line{static_cast<int>(from.number("level", highest_log_level)),
                        from.text("text")};
    case 8:
        return activity{from.text("text")};
    case 9:
        return lost{from.number("events")};
    default:
        return ended{};
    }
}

std::map<std::string, std::string> read_seeds(const json_value &object) {
    std::map<std::string, std::string> seeds;
    for (const auto &[name, value] : object.members()) {
        seeds[name] = value.text();
    }
    return seeds;
}

void put_seeds(line_writer &line, const std::map<std::string, std::string> &seeds) {
    line_writer object;
    for (const auto &[name, value] : seeds) {
        object.text(name.c_str(), value);
    }
    if (!seeds.empty()) {
        line.json("seeds", object.take());
    }
}

} // namespace

std::string line_of(const header &from) {
    line_writer line;
    line.number("session", format_version)
        .text("program", from.program)
        .text("version", from.version)
        .text("started", from.started)
        .text("side", side_name(from.recorded_by))
        .json("secrets", from.has_secrets ? "true" : "false")
        .text("key", from.key);
    put_seeds(line, from.seeds);
    return line.embed("options", from.options)
        .embed("scenario", from.scenario)
        .embed("site", from.site)
        .take();
}

std::string line_of(const event &from) {
    line_writer line;
    line.number("at", from.at_us).text("event", event_names[from.what.index()]);
    std::visit(event_writer{line}, from.what);
    return line.take();
}

header read_header(std::string_view line, const std::string &place) {
    const support::json_document document(line, place);
    const json_value object = document.root();
    members from(object);
    header read;
    if (from.number("session") != format_version) {
        object.required("session").refuse(
            fmt::format("this program reads version {} of session files", format_version));
    }
    read.program = from.text("program");
    read.version = from.text("version");
    read.started = from.text("started");
    read.recorded_by = side_of(from.need("side"));
    read.has_secrets = from.need("secrets").boolean();
    read.key = from.text("key");
    if (read.key.size() != key_characters) {
        object.required("key").refuse(
            fmt::format("has {} bytes; a key has {}", read.key.size(), key_characters));
    }
    if (const auto seeds = from.find("seeds")) {
        read.seeds = read_seeds(*seeds);
    }
    read.options = from.json("options");
    read.scenario = from.json("scenario");
    read.site = from.json("site");
    from.finish();
    return read;
}

event read_event(std::string_view line, const std::string &place) {
    const support::json_document document(line, place);
    const json_value object = document.root();
    members from(object);
    event read;
    read.at_us = from.number("at");
    const std::size_t kind = index_of(from.need("event"), event_names);
    read.what = read_happening(kind, from, object, read.at_us);
    from.finish();
    return read;
}

} // namespace session
