#include "console_events.h"

#include "session/lines.h"
#include "session/secrets.h"
#include "session/wire.h"
#include "support/numbers.h"
#include "support/utf8.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstddef>
#include <string_view>
#include <variant>

namespace gatewayd {
namespace {

constexpr std::size_t shown_text_bytes_max = 16 << 10;
constexpr std::size_t shown_wire_bytes_max = 2 << 10;

/** Members that a line of a session file does not have. */
class more_members {
  public:
    void number(std::string_view name, std::size_t value) {
        members_ += fmt::format(R"(,"{}":{})", name, value);
    }
    void text(std::string_view name, std::string_view value) {
        members_ += fmt::format(R"(,"{}":"{}")", name, value);
    }
    /** The line with them. */
    [[nodiscard]] std::string added_to(std::string line) const {
        line.insert(line.size() - 1, members_);
        return line;
    }

  private:
    std::string members_;
};

/** Cuts a text after its last whole character that is to be shown. */
void cut_text(std::string &text) {
    std::size_t end = shown_text_bytes_max;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) {
        --end;
    }
    text.resize(end);
}

/** Cuts a text that is long, and says how long it was. */
void shorten(std::string &text, std::string_view length_name, more_members &more) {
    if (text.size() > shown_text_bytes_max) {
        more.number(length_name, text.size());
        cut_text(text);
    }
}

/** The same for JSON, of which the beginning is shown as a text. */
void shorten_json(std::string &json, std::string_view length_name, more_members &more) {
    if (json.size() > shown_text_bytes_max) {
        shorten(json, length_name, more);
        json = nlohmann::json(json).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
}

/** The bytes on the wire, and the payload when it is a text. */
void shorten_content(session::frame_content &content, more_members &more) {
    if (content.coded == session::coding::unknown || !support::is_utf8(content.payload)) {
        content.payload.clear(); // it is among the bytes
    }
    shorten(content.payload, "text_bytes", more);
}

/** Shortens what happened by its kind. */
struct shortener {
    more_members &more;

    void operator()(session::frame &of) const { shorten_content(of.content, more); }
    void operator()(session::datagram &of) const {
        if (auto *const content = std::get_if<session::frame_content>(&of.content)) {
            shorten_content(*content, more);
        } else {
            std::get<std::string>(of.content).clear();
        }
    }
    void operator()(session::raw_bytes &of) const { of.bytes.clear(); }
    void operator()(session::call &of) const {
        shorten_json(of.arguments, "arguments_bytes", more);
        shorten_json(of.result, "result_bytes", more);
    }
    void operator()(session::control &of) const {
        for (std::string &word : of.line) {
            if (word.size() > shown_text_bytes_max) {
                cut_text(word);
            }
        }
        shorten_json(of.answer, "answer_bytes", more);
    }
    void operator()(session::log_line &of) const { shorten(of.text, "text_bytes", more); }
    void operator()(session::activity &of) const { shorten(of.text, "text_bytes", more); }
    template <typename Other>
    void operator()(Other &) const {}
};

} // namespace

std::string shown_event(const session::event &what, const session::known_keys &keys,
                        const session::header &start) {
    session::event shown = session::without_secrets(what, keys, start.key);
    more_members more;
    if (const auto wire = session::wire_bytes(shown, session::keys_of(start))) {
        more.text("hex", support::to_hex(std::string_view(*wire).substr(0, shown_wire_bytes_max)));
        if (wire->size() > shown_wire_bytes_max) {
            more.number("bytes", wire->size());
        }
    }
    std::visit(shortener{more}, shown.what);
    return more.added_to(session::line_of(shown));
}

} // namespace gatewayd
