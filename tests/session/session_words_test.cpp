// From bytes to words and back, and words without secrets.
#include "session/lines.h"
#include "session/live.h"
#include "session/secrets.h"
#include "session/wire.h"
#include "session/words.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

namespace {

using namespace session;

const std::string session_key = "SESSION-KEY-0123";
const lan_client::aes_key real_key = *lan_client::aes_key::from_text("real local key 1");
const lan_client::aes_key foreign_key = *lan_client::aes_key::from_text("some foreign key");

const key_ring real_keys{.local = real_key};

std::string request(uint32_t type, const std::string &payload) {
    return lan_client::encode_request(3, type, payload);
}

/** The events of a connection over which an app sent these pieces. */
std::vector<event> events_of(const std::vector<std::string> &pieces) {
    std::vector<event> events;
    live_events live([] { return std::vector{real_key}; });
    live.listen([&](const event &one) { events.push_back(one); });
    live.begin();
    live.tell_connected(1, "127.0.0.1:5");
    for (const std::string &piece : pieces) {
        live.tell_bytes(1, side::app, piece);
    }
    live.tell_closed(1, side::app);
    live.end();
    return events;
}

TEST(session_words, keep_every_byte_however_it_is_cut) {
    std::string wrong_crc = request(14, lan_client::encrypt(real_key, "{}"));
    for (std::size_t i = 0; i < 4; ++i) {
        char &byte = wrong_crc[wrong_crc.size() - 8 + i];
        byte = static_cast<char>(~byte);
    }
    std::string wrong_tail = request(241, "{}");
    wrong_tail.back() = 'x';
    const std::string parts[] = {
        request(9, ""),
        request(241, "{\"a\":\"\xC3\xA4\"}"),
        request(231, std::string("\0\0\0\1\xFF\xFE", 6)),
        request(12, lan_client::encrypt(real_key, "{\"x\":1}")),
        request(12, lan_client::encrypt(real_key, std::string("\0\xFF", 2))),
        request(12, lan_client::encrypt(lan_client::unactivated_key(), "{\"x\":2}")),
        request(12, lan_client::encrypt(foreign_key, "{\"x\":3}")),
        request(12, "{\"not\":\"encrypted\"}"),
        wrong_crc,
        wrong_tail,
        "noise",
        std::string("\0\0\x55", 3),
        std::string("\0\0\x55\xAA\0\0\0\1\0\0\0\x0C\xFF\xFF\xFF\xFF", 16),
    };
    std::minstd_rand chance(7);
    const auto below = [&](std::size_t limit) { return chance() % limit; };
    for (int round = 0; round < 200; ++round) {
        std::string sent;
        for (std::size_t count = 1 + below(8); count > 0; --count) {
            sent += parts[below(std::size(parts))];
        }
        sent += request(241, "{}").substr(0, below(26));
        std::vector<std::string> pieces;
        for (std::size_t at = 0; at < sent.size(); at += pieces.back().size()) {
            pieces.push_back(sent.substr(at, 1 + below(40)));
        }
        std::string recorded;
        for (const event &one : events_of(pieces)) {
            // What is read from a file has the same bytes.
            const event read = read_event(line_of(one), "line");
            recorded += wire_bytes(read, real_keys).value_or("");
        }
        EXPECT_EQ(recorded, sent) << "in round " << round;
    }
}

TEST(session_words, say_how_a_payload_travelled_and_when_it_began) {
    const std::vector<event> events =
        events_of({request(12, lan_client::encrypt(real_key, "{}")) +
                   request(12, lan_client::encrypt(lan_client::unactivated_key(), "{}")) +
                   request(12, lan_client::encrypt(foreign_key, "{}")) + request(12, "{}") +
                   request(241, "{}")});
    std::vector<coding> codings;
    for (const event &one : events) {
        if (const auto *whole = std::get_if<frame>(&one.what)) {
            codings.push_back(whole->content.coded);
            EXPECT_FALSE(whole->began_us.has_value());
        }
    }
    EXPECT_EQ(codings, (std::vector{coding::local, coding::built_in, coding::unknown, coding::plain,
                                    coding::plain}));
}

TEST(session_secrets, are_hidden_with_their_length) {
    const struct {
        const char *text;
        const char *shown;
    } cases[] = {
        {R"({"ssid":"a","passwd":"hush","n":1})", R"({"ssid":"a","passwd":"****","n":1})"},
        {R"({"PassWd" : "hu\"sh"})", R"({"PassWd" : "******"})"},
        {R"({"p\u0061sswd":"x"})", R"({"p\u0061sswd":"*"})"},
        {R"({"token":""})", R"({"token":""})"},
        {R"({"token":true,"a":1})", R"({"token":true,"a":1})"},
        {R"({"token":-12.5e3})", R"({"token":-11.1e1})"},
        {R"({"token":["a",{"b":"c"},7],"d":"e"})", R"({"token":["*",{"*":"*"},1],"d":"e"})"},
        {R"({"data":"{\"passwd\":\"hu\\\"sh\"}"})", R"({"data":"{\"passwd\":\"********\"}"})"},
        {R"({"local_key":"real local key 1"})", R"({"local_key":"SESSION-KEY-0123"})"},
        {R"({"local_key":"short"})", R"({"local_key":"*****"})"},
        {R"(cut off "passwd":"hus)", R"(cut off "passwd":"***)"},
        {R"("passwd":)", R"("passwd":)"},
        // Texts that break off before another begins.
        {R"("token":"ab{"passwd":"hush"})", R"("token":"***"passwd":"****"})"},
        {R"("token"passwd":"hush"})", R"("token"passwd":"****"})"},
        {R"("token":[a"b{"passwd":"hush"})", R"("token":[*"**"******"*"****"*)"},
        {R"("passwd": hush,)", R"("passwd": ****,)"},
        {R"(say "token" and "passwords":"x")", R"(say "token" and "passwords":"x")"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(without_secrets(one.text, session_key), one.shown);
    }
}

TEST(session_secrets, are_hidden_in_frames_that_are_not_whole) {
    const known_keys keys{{real_key}, real_keys};
    const std::string text = R"({"ssid":"network","passwd":"hush-hush","more":"of it"})";
    for (const lan_client::aes_key &key : {real_key, lan_client::unactivated_key()}) {
        const std::string sent = "noise" + request(15, lan_client::encrypt(key, text));
        const std::string hidden =
            bytes_without_secrets(side::app, sent.substr(0, sent.size() - 9), keys, session_key);
        ASSERT_EQ(hidden.size(), sent.size() - 9);
        const auto key_after = key == real_key ? *lan_client::aes_key::from_text(session_key) : key;
        const std::string plain = *lan_client::decrypt(
            key_after, hidden.substr(5 + 16, 48) + lan_client::encrypt(key_after, ""));
        EXPECT_EQ(plain, R"({"ssid":"network","passwd":"*********","more":"o)");
    }
}

TEST(session_secrets, are_hidden_in_every_kind_of_event) {
    const std::string text = R"({"passwd":"hush"})";
    const std::vector<happening> told = {
        frame{1, side::app, {}, {1, 12, {}, {}, coding::local, text, true}},
        raw_bytes{1, side::app, {}, text},
        datagram{side::app, 6669, "", frame_content{1, 1, {}, {}, coding::plain, text, true}},
        datagram{side::app, 6669, "", text},
        call{"x", text, text},
        control{{}, {"call", "x", text}, text},
        control{{}, {"set", "wf_passwd", "hush"}, ""},
        control{{}, {"set", "local_key", "hush hush hush k"}, ""},
        log_line{4, text},
        activity{text},
    };
    for (const happening &what : told) {
        std::string line = line_of(without_secrets(event{0, what}, {{}, real_keys}, session_key));
        EXPECT_EQ(line.find("hush"), std::string::npos) << line;
        EXPECT_EQ(line.find("68757368"), std::string::npos) << line;
    }
}

} // namespace
