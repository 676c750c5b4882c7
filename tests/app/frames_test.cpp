// Frames, their cutting out of a stream, and payload encryption.
#include "fake_gateway.h"
#include "lan_client/crypto.h"
#include "lan_client/discovery.h"
#include "lan_client/frame.h"
#include "lan_client/limits.h"
#include "lan_client/stream_cutter.h"

#include <optional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace lan_client;

std::string from_hex(std::string_view digits) {
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16));
    }
    return bytes;
}

aes_key key_of(std::string_view sixteen) {
    return *aes_key::from_text(sixteen);
}

TEST(request_frame, has_exactly_these_bytes) {
    EXPECT_EQ(encode_request(1, 241, ""),
              from_hex("000055aa00000001000000f1000000080aac03fd0000aa55"));
    EXPECT_EQ(encode_request(0x01020304, 251, "ping"),
              from_hex("000055aa01020304000000fb0000000c70696e67b6f6cdb30000aa55"));
    EXPECT_EQ(encode_request(1, 241, std::string(max_request_payload_bytes, 'x')).size(),
              2'098'175u)
        << "expected the longest request to be the longest frame that a gateway takes";
}

TEST(received_frame, is_decoded_from_exactly_these_bytes) {
    const auto refusal =
        decode_frame(from_hex("000055aa00000007000000f10000000e000000016e6f33df43c00000aa55"));
    ASSERT_EQ(refusal.status, decode_status::whole);
    EXPECT_EQ(refusal.consumed_bytes, 30u);
    EXPECT_EQ(refusal.decoded.number, 7u);
    EXPECT_EQ(refusal.decoded.type, 241u);
    EXPECT_EQ(refusal.decoded.ret, 1u);
    EXPECT_EQ(refusal.decoded.payload, "no");
    EXPECT_TRUE(refusal.decoded.crc_matches);
    EXPECT_FALSE(refusal.decoded.segment);

    const auto segment = decode_frame(
        from_hex("000055aa00000007000000fe000000170000000000000002000000016c6f675276eb450000aa55"));
    ASSERT_EQ(segment.status, decode_status::whole);
    ASSERT_TRUE(segment.decoded.segment) << "a log travels in segments";
    EXPECT_EQ(segment.decoded.segment->count, 2);
    EXPECT_EQ(segment.decoded.segment->number, 1);
    EXPECT_EQ(segment.decoded.payload, "log");
}

TEST(received_frame, a_log_without_room_for_a_position_is_an_ordinary_reply) {
    for (const std::size_t bytes : {7U, 8U}) {
        const auto got = decode_frame(gateway_frame(7, 254, {0}, std::string(bytes, '\2')));
        ASSERT_EQ(got.status, decode_status::whole);
        EXPECT_EQ(got.decoded.segment.has_value(), bytes == 8) << bytes;
        EXPECT_EQ(got.decoded.payload.size(), bytes == 8 ? 0U : bytes);
    }
    EXPECT_FALSE(decode_frame(gateway_frame(7, 254, {1}, std::string(8, '\2'))).decoded.segment);
    EXPECT_FALSE(decode_frame(gateway_frame(7, 247, {0}, std::string(8, '\2'))).decoded.segment);
}

TEST(request_frame, is_decoded_up_to_the_length_that_a_gateway_takes) {
    const std::string longest = encode_request(1, 241, std::string(max_request_payload_bytes, 'x'));
    EXPECT_EQ(decode_request(longest).decoded.payload.size(), max_request_payload_bytes);
    EXPECT_EQ(
        decode_request(encode_request(1, 241, std::string(max_request_payload_bytes + 1, 'x')))
            .status,
        decode_status::no_frame);
    const auto shortest = decode_request(encode_request(7, 241, ""));
    EXPECT_EQ(shortest.status, decode_status::whole);
    EXPECT_EQ(shortest.consumed_bytes, 24U);
    EXPECT_TRUE(shortest.decoded.crc_matches);
    for (const std::size_t size : {0U, 3U, 4U, 15U, 16U, 23U}) {
        EXPECT_EQ(decode_request(encode_request(7, 241, "").substr(0, size)).status,
                  decode_status::incomplete)
            << size;
    }
    EXPECT_EQ(decode_request("none").status, decode_status::no_frame);
    EXPECT_EQ(
        encode_reply({.number = 7, .type = 254, .ret = 0, .segment = {{2, 1}}, .payload = "log"}),
        gateway_frame(7, 254, {0, 2, 1}, "log"));
    EXPECT_EQ(encode_reply({.number = 7, .type = 241, .ret = 3, .segment = {}, .payload = "no"}),
              gateway_frame(7, 241, {3}, "no"));
}

TEST(received_frame, crc_of_a_long_one_covers_its_length_modulo_65536) {
    std::string bytes = gateway_frame(7, 247, {0}, std::string(70000, 'x'));
    ASSERT_EQ(bytes.substr(bytes.size() - 8, 4), from_hex("7894cf05"));
    EXPECT_TRUE(decode_frame(bytes).decoded.crc_matches);
    bytes[100] = 'y';
    EXPECT_FALSE(decode_frame(bytes).decoded.crc_matches) << "a changed covered byte must show";
}

TEST(received_frame, false_lengths_and_tails_are_no_frames) {
    const std::string good = gateway_frame(1, 9, {0}, "");
    for (const std::uint32_t length : {0u, 8u, 11u, 0x01000000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        std::string bytes = good;
        for (int index = 0; index < 4; ++index) {
            bytes[static_cast<std::size_t>(12 + index)] =
                static_cast<char>(length >> (24 - 8 * index));
        }
        EXPECT_EQ(decode_frame(bytes).status, decode_status::no_frame) << "length " << length;
    }
    const std::size_t most = max_received_frame_bytes;
    const std::string longest = gateway_frame(1, 8, {0}, std::string(most - 28, 'x'));
    EXPECT_EQ(decode_frame(longest).consumed_bytes, most) << "the longest frame must be taken";
    EXPECT_EQ(decode_frame(gateway_frame(1, 8, {0}, std::string(most - 27, 'x'))).status,
              decode_status::no_frame);
    std::string no_tail = good;
    no_tail.back() = 'x';
    EXPECT_EQ(decode_frame(no_tail).status, decode_status::no_frame);
    for (std::size_t size = 0; size < good.size(); ++size) {
        EXPECT_EQ(decode_frame(good.substr(0, size)).status, decode_status::incomplete)
            << size << " of " << good.size() << " bytes";
    }
}

TEST(stream_cutter, finds_every_frame_between_garbage_however_the_stream_is_cut) {
    const std::string cut_short = gateway_frame(5, 8, {0}, "never finished").substr(0, 30);
    std::string stream = "noise";
    stream += gateway_frame(1, 241, {0}, std::string(100000, 'a'));
    stream += from_hex("0000aa5500000000005500aa");
    stream += gateway_frame(2, 224, {1}, from_hex("000055aa")) + gateway_frame(3, 9, {0}, "");
    stream += cut_short + gateway_frame(4, 254, {0, 1, 1}, "log");
    for (const unsigned seed : {1u, 2u, 3u, 4u}) {
        std::minstd_rand random(seed);
        stream_cutter cutter;
        std::string numbers;
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t size = 1 + random() % (seed * 40);
            cutter.feed(std::string_view(stream).substr(at, size));
            at += size;
            while (const auto got = cutter.next()) {
                EXPECT_TRUE(got->crc_matches);
                numbers += std::to_string(got->number);
            }
        }
        EXPECT_EQ(numbers, "1234") << "seed " << seed;
        EXPECT_EQ(cutter.skipped_bytes(), 5 + 12 + cut_short.size()) << "seed " << seed;
    }
}

TEST(encryption, is_aes_128_ecb_with_pkcs7_padding) {
    const aes_key key = key_of(from_hex("2b7e151628aed2a6abf7158809cf4f3c"));
    const std::string plain = from_hex("6bc1bee22e409f96e93d7e117393172a");
    const std::string cipher =
        from_hex("3ad77bb40d7a3660a89ecaf32466ef97a254be88e037ddd9d79fb6411c3f9df8");
    EXPECT_EQ(encrypt(key, plain), cipher);
    EXPECT_EQ(decrypt(key, cipher), plain);
    EXPECT_EQ(encrypt(key, "").size(), 16u);
}

TEST(decryption, refuses_what_no_right_key_made) {
    const aes_key key = key_of("0123456789abcdef");
    EXPECT_FALSE(decrypt(key, ""));
    EXPECT_FALSE(decrypt(key, std::string(17, 'x')));
    EXPECT_FALSE(decrypt_text(key, encrypt(key, std::string("a\0b", 3)))) << "no text has zeros";
    EXPECT_FALSE(decrypt_text(key, encrypt(key, "\xff\xfe"))) << "neither UTF-8 nor in braces";
    EXPECT_TRUE(decrypt_text(key, encrypt(key, "{\"name\":\"\xff\"}")));
    EXPECT_FALSE(decrypt_text(key, encrypt(key, "{\"name\":\"\xff\"")));
    EXPECT_FALSE(decrypt_text(key, encrypt(key, "\"name\":\"\xff\"}")));
    EXPECT_TRUE(decrypt_text(key, encrypt(key, "")));
    const std::string answer = encrypt(key, R"({"products":[{"cid":"a1","pid":"p1"}]})");
    int accepted = 0;
    for (int number = 0; number < 1000; ++number) {
        const std::string digits = std::to_string(number);
        accepted +=
            decrypt_text(key_of(std::string(16 - digits.size(), 'k') + digits), answer).has_value();
    }
    EXPECT_EQ(accepted, 0) << "a wrong key must show, also when its padding looks right";
}

TEST(decryption, takes_padding_of_1_to_16_equal_bytes) {
    const aes_key key = key_of("0123456789abcdef");
    const struct {
        std::string block;
        std::optional<std::string> text;
    } cases[] = {
        {"fifteen letters\x01", "fifteen letters"},
        {"fourteen chars\x02\x02", "fourteen chars"},
        {std::string(16, '\x10'), ""},
        {"fourteen chars\x01\x02", std::nullopt},
        {std::string(16, '\x11'), std::nullopt},
        {std::string(16, '\0'), std::nullopt},
    };
    for (const auto &one : cases) {
        // The first of two blocks, without the padding that follows.
        EXPECT_EQ(decrypt(key, encrypt(key, one.block).substr(0, 16)), one.text) << one.block;
    }
}

TEST(digests, are_md5_and_sha256_in_hexadecimal) {
    md5_sum sum;
    for (const char *piece : {"me", "ssage digest", ""}) {
        sum.add(piece);
    }
    EXPECT_EQ(sum.text(), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(sha256_text("abc"),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_FALSE(aes_key::from_text("fifteen letters"));
    EXPECT_FALSE(aes_key::from_seed("seventeen letters"));
}

TEST(discovery_datagram, is_read_whole_or_told_apart) {
    const std::string text =
        R"({"ip":"10.0.0.9","gwId":"gw\u00e9","active":2,"ablilty":3,"encrypt":true,)"
        R"("productKey":"pk","version":"3.3","token":true,"wf_cfg":true})";
    const std::string good = gateway_frame(0, 19, {0}, encrypt(discovery_key(), text));
    const parsed_datagram parsed = parse_datagram(good, "127.0.0.2");
    ASSERT_EQ(parsed.kind, datagram_kind::announcement);
    EXPECT_EQ(parsed.content.address, "127.0.0.2") << "where it came from, not what it says";
    EXPECT_EQ(parsed.content.announced_address, "10.0.0.9");
    EXPECT_EQ(parsed.content.id, "gwé");
    EXPECT_EQ(parsed.content.ability, 3);
    EXPECT_TRUE(parsed.content.activated);
    EXPECT_TRUE(parsed.content.needs_wifi_setup);
    EXPECT_EQ(parsed.content.product_key, "pk");
    EXPECT_EQ(parsed.content.version, "3.3");

    const auto kind = [](const std::string &bytes) { return parse_datagram(bytes, "").kind; };
    EXPECT_EQ(kind(good + "x"), datagram_kind::foreign);
    EXPECT_EQ(kind("hello"), datagram_kind::foreign);
    EXPECT_EQ(kind(gateway_frame(0, 8, {0}, encrypt(discovery_key(), text))),
              datagram_kind::foreign);
    const auto padded = [](std::size_t bytes) {
        return gateway_frame(
            0, 19, {0}, encrypt(discovery_key(), R"({"gwId":"g"})" + std::string(bytes - 13, ' ')));
    };
    EXPECT_EQ(kind(padded(1440)), datagram_kind::announcement) << "as long as one may be";
    EXPECT_EQ(kind(padded(1456)), datagram_kind::foreign);
    const parsed_datagram poor =
        parse_datagram(gateway_frame(0, 19, {0},
                                     encrypt(discovery_key(),
                                             R"({"gwId":7,"active":1,"ablilty":"1","wf_cfg":1})")),
                       "");
    EXPECT_EQ(poor.kind, datagram_kind::announcement);
    EXPECT_EQ(poor.content.id, "");
    EXPECT_EQ(poor.content.ability, 0);
    EXPECT_FALSE(poor.content.activated);
    EXPECT_FALSE(poor.content.needs_wifi_setup);
    EXPECT_EQ(kind(gateway_frame(0, 19, {0}, encrypt(unactivated_key(), text))),
              datagram_kind::unreadable);
    for (const char *other : {"[]", "{}", "no JSON"}) {
        EXPECT_EQ(kind(gateway_frame(0, 19, {0}, encrypt(discovery_key(), other))),
                  datagram_kind::unreadable)
            << other;
    }
}

TEST(discovery_datagram, is_shown_to_observers_also_when_it_is_damaged) {
    std::string shown;
    const auto observer = [&shown](const traffic &seen) {
        shown = (seen.sent ? "sent " : "received ") + std::to_string(seen.number) + " " +
                std::to_string(seen.type) + " " + std::to_string(seen.ret.value_or(99)) +
                (seen.discovery ? " discovery " : " ") +
                (seen.crc_matches ? "whole " : "damaged ") +
                std::to_string(static_cast<int>(seen.state)) + " " + std::string(seen.text) + " " +
                std::to_string(seen.wire_payload.size()) + " " + std::string(seen.peer);
    };
    const std::string good = gateway_frame(5, 19, {3}, encrypt(discovery_key(), R"({"gwId":"g"})"));
    EXPECT_EQ(parse_datagram(good, "192.0.2.1", observer).kind, datagram_kind::announcement);
    EXPECT_EQ(shown, R"(received 5 19 3 discovery whole 1 {"gwId":"g"} 16 192.0.2.1)");
    std::string damaged = good;
    damaged[19] ^= 1; // ret
    EXPECT_EQ(parse_datagram(damaged, "192.0.2.1", observer).kind, datagram_kind::unreadable);
    EXPECT_EQ(shown, R"(received 5 19 2 discovery damaged 1 {"gwId":"g"} 16 192.0.2.1)");
    const aes_key other = key_of("0123456789abcdef");
    EXPECT_EQ(parse_datagram(good, "192.0.2.1", observer, other).kind, datagram_kind::unreadable);
    EXPECT_EQ(shown, "received 5 19 3 discovery whole 2  16 192.0.2.1");
    shown.clear();
    EXPECT_EQ(parse_datagram(gateway_frame(5, 20, {3}, ""), "192.0.2.1", observer).kind,
              datagram_kind::foreign);
    EXPECT_EQ(shown, "");
}

} // namespace
