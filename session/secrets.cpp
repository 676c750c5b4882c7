#include "session/secrets.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <utility>

#include <strings.h>
namespace session {
namespace {

constexpr std::array<std::string_view, 12> secret_members = {
    "passwd", "password", "token",   "local_key", "localkey", "sec_key",
    "seckey", "auth_key", "authkey", "wf_passwd", "pwd",      "psk"};
constexpr std::size_t longest_member = 9;
constexpr std::array<std::string_view, 2> local_key_members = {"local_key", "localkey"};
constexpr std::string_view blanks = " \t\r\n";
constexpr std::string_view constants[] = {"true", "false", "null"};

template <typename Names>
bool is_among(const Names &names, std::string_view name) {
    return std::any_of(names.begin(), names.end(), [name](std::string_view one) {
        return one.size() == name.size() && strncasecmp(one.data(), name.data(), name.size()) == 0;
    });
}

std::size_t backslashes_at(std::string_view text, std::size_t at) {
    return std::min(text.find_first_not_of('\\', at), text.size()) - at;
}

/** A quote, with the backslashes before it: JSON in a string has one, JSON in that three. */
struct quote {
    std::size_t backslashes = 0;
    std::size_t end = 0; /**< behind the quote */
};

/** Finds the end of a string that was opened by a quote, from the byte behind that on; the end of
 * the text when it is not closed. `limit` bounds the search. */
std::size_t string_end(std::string_view text, const quote &opened, std::size_t limit) {
    const std::size_t cycle = 2 * (opened.backslashes + 1);
    for (std::size_t at = opened.end; at < std::min(text.size(), limit);) {
        const std::size_t count = backslashes_at(text, at);
        at += count;
        if (at < text.size() && text[at] == '"' && count % cycle == opened.backslashes) {
            return at + 1;
        }
        ++at;
    }
    return std::min(text.size(), limit);
}

int hex_value(std::string_view digits) {
    int value = -1;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    return digits.size() == 4 && end == digits.data() + 4 && error == std::errc() ? value : -1;
}

/** What a member's name says, its escapes \uXXXX resolved; empty when it is longer than any secret
 * member's. */
std::string plain_name(std::string_view written) {
    std::string name;
    for (std::size_t at = 0; at < written.size(); ++at) {
        if (name.size() == longest_member) {
            return "";
        }
        char character = written[at];
        const std::size_t letter = at + backslashes_at(written, at);
        if (character == '\\' && letter < written.size() && written[letter] == 'u') {
            const int code = hex_value(written.substr(letter + 1, 4));
            character = code > 0 && code < 0x80 ? static_cast<char>(code) : '?';
            at = letter + 4;
        }
        name += character;
    }
    return name;
}

/** A pass over a text that is changed in place. */
class secret_hider {
  public:
    secret_hider(std::string &text, std::string_view key) : text_(text), key_(key) {}

    void hide() {
        std::size_t at = 0;
        while ((at = text_.find('"', at)) != std::string::npos) {
            const std::size_t before = backslashes_before(at);
            at = hide_member({before, at + 1});
        }
    }

  private:
    [[nodiscard]] std::size_t backslashes_before(std::size_t at) const {
        constexpr std::size_t deepest = 7; // JSON in JSON in JSON
        std::size_t count = 0;
        while (count < deepest && count < at && text_[at - count - 1] == '\\') {
            ++count;
        }
        return count;
    }

    /** Looks at what a quote opens. Returns where to go on. */
    std::size_t hide_member(const quote &opened) {
        // No longer than a name of which each letter is an escape.
        const std::size_t limit = opened.end + 14 * longest_member + opened.backslashes + 1;
        const std::size_t end = string_end(text_, opened, limit);
        const std::size_t quote_bytes = opened.backslashes + 1;
        if (end < opened.end + quote_bytes) {
            return opened.end;
        }
        const std::string name =
            plain_name(std::string_view(text_).substr(opened.end, end - quote_bytes - opened.end));
        if (!is_among(secret_members, name)) {
            return opened.end;
        }
        const std::size_t colon = text_.find_first_not_of(blanks, end);
        if (colon == std::string::npos || text_[colon] != ':') {
            return opened.end;
        }
        is_local_key_ = is_among(local_key_members, name);
        return hide_value(std::min(text_.find_first_not_of(blanks, colon + 1), text_.size()));
    }

    std::size_t hide_value(std::size_t at) {
        const std::size_t opening = at + backslashes_at(text_, at);
        if (opening < text_.size() && text_[opening] == '"') {
            return hide_string({opening - at, opening + 1});
        }
        if (at < text_.size() && (text_[at] == '{' || text_[at] == '[')) {
            return hide_nested(at);
        }
        const std::size_t end = std::min(text_.find_first_of(",}] \t\r\n", at), text_.size());
        const std::string_view word = std::string_view(text_).substr(at, end - at);
        if (std::find(std::begin(constants), std::end(constants), word) == std::end(constants)) {
            hide_word(at, end);
        }
        return end;
    }

    void hide_word(std::size_t at, std::size_t end) {
        const std::string_view word = std::string_view(text_).substr(at, end - at);
        const bool is_number = word.find_first_not_of("0123456789+-.eE") == std::string::npos;
        for (; at < end; ++at) {
            if (!is_number) {
                text_[at] = '*';
            } else if (text_[at] >= '0' && text_[at] <= '9') {
                text_[at] = '1';
            }
        }
    }

    /** Length of true, false or null at a place; 0 when none is there. */
    [[nodiscard]] std::size_t constant_bytes(std::size_t at) const {
        for (const std::string_view one : constants) {
            if (text_.compare(at, one.size(), one) == 0) {
                return one.size();
            }
        }
        return 0;
    }

    std::size_t hide_string(const quote &opened) {
        const std::size_t end = string_end(text_, opened, text_.size());
        std::size_t last = end; // of the value; a text may break off before its quote
        if (end > opened.end && text_[end - 1] == '"') {
            last = end - 1 - opened.backslashes;
        }
        last = std::max(last, opened.end);
        const std::size_t size = last - opened.end;
        if (is_local_key_ && size == key_.size()) {
            text_.replace(opened.end, size, key_);
        } else {
            text_.replace(opened.end, size, size, '*');
        }
        // The quote that ends it may begin the next name, in what is no whole JSON.
        return last < end ? end - 1 : end;
    }

    /** Hides what stands outside of strings as well, since these need not be whole. */
    std::size_t hide_nested(std::size_t at) {
        std::size_t depth = 0;
        while (at < text_.size()) {
            const char character = text_[at];
            if (character == '"') {
                at = hide_string({backslashes_before(at), at + 1}) + 1;
                continue;
            }
            if (const std::size_t bytes = constant_bytes(at); bytes != 0) {
                at += bytes;
                continue;
            }
            if (character == '{' || character == '[') {
                ++depth;
            } else if ((character == '}' || character == ']') && --depth == 0) {
                return at + 1;
            } else if (character >= '0' && character <= '9') {
                text_[at] = '1';
            } else if (std::string_view(",:\\+-.{}[]").find(character) == std::string_view::npos &&
                       blanks.find(character) == std::string_view::npos) {
                text_[at] = '*';
            }
            ++at;
        }
        return at;
    }

    std::string &text_;
    std::string_view key_;
    bool is_local_key_ = false;
};

constexpr std::string_view head_bytes("\x00\x00\x55\xAA", 4);
constexpr std::size_t head_to_length_bytes = 16;
constexpr std::size_t ret_bytes = 4;

/** Hides the secrets in whole blocks that a key decrypts. */
void hide_in_blocks(std::string &bytes, std::size_t begin, std::size_t end,
                    const lan_client::aes_key &key, const lan_client::aes_key &key_after,
                    std::string_view session_key) {
    const std::size_t count = (end - begin) / lan_client::key_bytes * lan_client::key_bytes;
    // Each block is encrypted by itself, so that one of mere padding makes the others readable.
    const auto plain =
        lan_client::decrypt(key, bytes.substr(begin, count) + lan_client::encrypt(key, ""));
    if (count == 0 || !plain) {
        return;
    }
    const std::string hidden = without_secrets(*plain, session_key);
    if (hidden != *plain) {
        bytes.replace(begin, count, lan_client::encrypt(key_after, hidden), 0, count);
    }
}

/** The same for a payload that may be under any of the keys. */
void hide_in_cipher(std::string &bytes, std::size_t begin, std::size_t end, const known_keys &keys,
                    std::string_view session_key) {
    const auto local_after = lan_client::aes_key::from_text(session_key);
    for (const lan_client::aes_key &key : keys.local) {
        hide_in_blocks(bytes, begin, end, key, local_after.value_or(key), session_key);
    }
    for (const lan_client::aes_key *key :
         {&keys.built_in.unactivated, &keys.built_in.configuration}) {
        hide_in_blocks(bytes, begin, end, *key, *key, session_key);
    }
}

struct event_hider {
    const known_keys &keys;
    std::string_view key;

    void operator()(frame &of) const { hide(of.content); }
    void operator()(raw_bytes &of) const {
        of.bytes = bytes_without_secrets(of.from, std::move(of.bytes), keys, key);
    }
    void operator()(datagram &of) const {
        if (auto *content = std::get_if<frame_content>(&of.content)) {
            hide(*content);
        } else {
            auto &bytes = std::get<std::string>(of.content);
            bytes = bytes_without_secrets(of.from, std::move(bytes), keys, key);
        }
    }
    void operator()(call &of) const {
        of.arguments = without_secrets(of.arguments, key);
        of.result = without_secrets(of.result, key);
    }
    void operator()(control &of) const {
        hide_words(of.line);
        for (std::string &word : of.line) {
            word = without_secrets(word, key);
        }
        of.answer = without_secrets(of.answer, key);
    }
    void operator()(log_line &of) const { of.text = without_secrets(of.text, key); }
    void operator()(activity &of) const { of.text = without_secrets(of.text, key); }
    template <typename Other>
    void operator()(Other &) const {}

  private:
    void hide(frame_content &content) const {
        if (content.coded == coding::unknown) {
            hide_in_cipher(content.payload, 0, content.payload.size(), keys, key);
        } else {
            content.payload = without_secrets(content.payload, key);
        }
    }

    /** As in: set local_key VALUE. */
    void hide_words(std::vector<std::string> &line) const {
        for (std::size_t i = 1; i + 1 < line.size(); ++i) {
            std::string &value = line[i + 1];
            if (is_among(local_key_members, line[i]) && value.size() == key.size()) {
                value = key;
            } else if (is_among(secret_members, line[i])) {
                value.assign(value.size(), '*');
            }
        }
    }
};

} // namespace

std::string without_secrets(std::string_view text, std::string_view key) {
    std::string shown(text);
    secret_hider(shown, key).hide();
    return shown;
}

std::string bytes_without_secrets(side from, std::string bytes, const known_keys &keys,
                                  std::string_view session_key) {
    const std::size_t before_payload =
        head_to_length_bytes + (from == side::gateway ? ret_bytes : 0);
    for (std::size_t at = bytes.find(head_bytes); at != std::string::npos;) {
        const std::size_t next = bytes.find(head_bytes, at + 1);
        const std::size_t begin = at + before_payload;
        const std::size_t end = std::min(next, bytes.size());
        if (begin < end) {
            hide_in_cipher(bytes, begin, end, keys, session_key);
        }
        at = next;
    }
    return without_secrets(bytes, session_key);
}

event without_secrets(event from, const known_keys &keys, std::string_view session_key) {
    std::visit(event_hider{keys, session_key}, from.what);
    return from;
}

header without_secrets(header from) {
    from.options = without_secrets(from.options, from.key);
    from.site = without_secrets(from.site, from.key);
    from.scenario = without_secrets(from.scenario, from.key);
    return from;
}

} // namespace session
