/* The frame to the byte, keys, and the segmented transfer. */
#include "base/byte_cursor.h"
#include "clients/lan_pro_cntl.h"
#include "platform/owners.h"
#include "story_gateway.h"
#include "transport/frame.h"
#include "transport/frame_types.h"
#include "transport/keys.h"
#include "transport/payload_crypto.h"
#include "transport/tcp_send.h"

#include <zlib.h>

namespace {

using transport = agent_test;
using platform::heap_block;

/** Bytes written as hexadecimal digits. */
std::string hex(const uint8_t *bytes, uint32_t size) {
    std::string text;
    for (uint32_t i = 0; i < size; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

TEST_F(transport, frames_have_the_documented_bytes) {
    const uint8_t payload[] = {'{', '}'};
    const struct {
        const char *what;
        uint8_t *(*build)(const uint8_t *payload, uint32_t *size);
        const char *bytes; // up to the CRC
    } cases[] = {
        {"empty reply",
         [](const uint8_t *, uint32_t *size) {
             return __mlp_gw_send_da(0, 9, 0, nullptr, 0, size);
         },
         "000055aa00000000000000090000000c00000000"},
        {"reply with payload",
         [](const uint8_t *data, uint32_t *size) {
             return __mlp_gw_send_da(0x01020304, 20, 1, data, 2, size);
         },
         "000055aa01020304000000140000000e000000017b7d"},
        {"empty last segment",
         [](const uint8_t *, uint32_t *size) {
             return __mlp_gw_send_large_da(7, 254, 0, nullptr, 0, 3, 3, size);
         },
         "000055aa00000007000000fe00000014000000000000000300000003"},
        {"segment",
         [](const uint8_t *data, uint32_t *size) {
             return __mlp_gw_send_large_da(7, 254, 0, data, 2, 3, 1, size);
         },
         "000055aa00000007000000fe000000160000000000000003000000017b7d"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        uint32_t size = 0;
        const heap_block<uint8_t> frame(one.build(payload, &size));
        ASSERT_TRUE(frame);
        const std::string bytes = hex(frame.get(), size);
        const size_t crc_at = bytes.size() - 16;
        EXPECT_EQ(bytes.substr(0, crc_at), one.bytes);
        char crc[9];
        std::snprintf(crc, sizeof crc, "%08lx", crc32(0, frame.get(), size - 8));
        EXPECT_EQ(bytes.substr(crc_at), std::string(crc) + "0000aa55");
    }
}

TEST_F(transport, the_crc_of_a_long_frame_covers_its_length_modulo_65536) {
    const std::string payload(65'516 + 100, 'x');
    uint32_t size = 0;
    const heap_block<uint8_t> frame(
        __mlp_gw_send_da(1, 241, 0, reinterpret_cast<const uint8_t *>(payload.data()),
                         static_cast<uint32_t>(payload.size()), &size));
    ASSERT_TRUE(frame);
    char crc[9];
    std::snprintf(crc, sizeof crc, "%08lx", crc32(0, frame.get(), 100));
    EXPECT_EQ(hex(frame.get() + size - 8, 4), crc);
}

TEST_F(transport, a_frame_too_long_for_its_length_word_is_not_built) {
    uint32_t size = 0;
    EXPECT_EQ(__mlp_gw_send_da(1, FRM_DEV_LIST, 0, nullptr, UINT32_MAX, &size), nullptr);
    EXPECT_EQ(__mlp_gw_send_da(1, FRM_DEV_LIST, 0, nullptr, UINT32_MAX - 27, &size), nullptr);
    EXPECT_EQ(world.calls("Malloc"), 0U) << "expected no attempt at a cut one";
}

TEST_F(transport, cursors_stay_at_the_end_after_an_overrun) {
    const uint8_t bytes[] = {1, 2, 3, 4, 5, 6, 7};
    byte_reader reader(bytes, sizeof bytes);
    EXPECT_EQ(reader.u32(), 0x01020304U);
    EXPECT_EQ(reader.left(), 3U);
    EXPECT_EQ(reader.u32(), 0U);
    EXPECT_FALSE(reader.ok());
    reader.skip(1);
    EXPECT_EQ(reader.left(), 3U) << "expected an overrun reader to stand still";
    byte_reader exact(bytes, 4);
    exact.skip(4);
    EXPECT_TRUE(exact.ok());
    EXPECT_EQ(exact.left(), 0U);

    uint8_t written[8] = {};
    byte_writer writer(written, 7);
    writer.u32(0x0A0B0C0D);
    writer.bytes(bytes, 3);
    EXPECT_TRUE(writer.ok());
    writer.bytes(bytes, 0);
    EXPECT_TRUE(writer.ok());
    EXPECT_EQ(writer.written(), 7U);
    writer.bytes(bytes, 1);
    EXPECT_FALSE(writer.ok());
    writer.bytes(bytes, 0);
    EXPECT_FALSE(writer.ok()) << "expected an overrun to stay";
    EXPECT_EQ(hex(written, 8), "0a0b0c0d01020300");
}

TEST_F(transport, keys_are_the_same_when_built_again_and_decrypt_what_they_encrypted) {
    for (const auto &[build, key] : {std::pair{&make_key1_encode, &app_key1[0]},
                                     {&make_key2_encode, &app_key2[0]},
                                     {&make_key3_encode, &app_key3[0]}}) {
        build();
        const std::string first = hex(key, AES128_KEY_SIZE);
        build();
        EXPECT_EQ(hex(key, AES128_KEY_SIZE), first);
    }
    EXPECT_EQ(hex(app_key1, 16), hex(lan_client::configuration_key().data(), 16));
    heap_block<uint8_t> cipher;
    uint32_t size = 0;
    ASSERT_EQ(encrpt_lan_msg(reinterpret_cast<const uint8_t *>("{} tail"), 7, cipher.out(), &size,
                             app_key1),
              0);
    heap_block<char> text;
    ASSERT_EQ(__lan_parse_data(cipher.get(), size, app_key1, text), 0);
    EXPECT_STREQ(text.get(), "{}");
}

TEST_F(transport, exports_the_current_tcp_key_even_before_the_agent_starts) {
    gateway.stop();
    std::memset(app_key3, 0, sizeof app_key3);
    uint8_t key[AES128_KEY_SIZE] = {};
    EXPECT_EQ(engr_lan_get_tcp_key(nullptr), -2);
    EXPECT_EQ(engr_lan_get_tcp_key(key), 0);
    EXPECT_EQ(hex(key, 16), hex(lan_client::unactivated_key().data(), 16));
    ::gateway::set_gateway_field("local_key", "0123456789abcdef");
    ::gateway::set_gateway_field("active_stat", "1");
    EXPECT_EQ(engr_lan_get_tcp_key(key), 0);
    EXPECT_EQ(hex(key, 16), hex(lan_client::unactivated_key().data(), 16))
        << "expected a deactivated gateway to use the built-in key";
    ::gateway::set_gateway_field("active_stat", "2");
    EXPECT_EQ(engr_lan_get_tcp_key(key), 0);
    EXPECT_EQ(std::string(std::begin(key), std::end(key)), "0123456789abcdef");
}

/** Sends to the first client of the table. */
int32_t send_large(const std::string &data) {
    return __mlp_gw_tcp_large_send(lan_pro_cntl.load()->sockets[0], 7, 254, 0, data.data(),
                                   static_cast<uint32_t>(data.size()));
}

TEST_F(transport, a_large_payload_goes_out_in_segments_of_1024_bytes_each_300_ms) {
    gateway.start();
    story_app app = gateway.connect();
    const struct {
        size_t size;
        std::vector<size_t> segments;
    } cases[] = {{0, {0}}, {1024, {1024, 0}}, {1500, {1024, 476}}, {2048, {1024, 1024, 0}}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.size);
        std::string data;
        for (size_t i = 0; i < one.size; ++i) {
            data += static_cast<char>(i * 7);
        }
        const uint64_t before = world.now_ms();
        EXPECT_EQ(send_large(data), 0);
        EXPECT_EQ(world.now_ms() - before, 300 * one.segments.size());
        std::string received;
        for (size_t i = 0; i < one.segments.size(); ++i) {
            const auto frame = app.receive();
            ASSERT_TRUE(frame && frame->segment) << "expected segment " << i + 1;
            EXPECT_EQ(frame->number, 7U);
            EXPECT_EQ(frame->segment->count, static_cast<int32_t>(one.segments.size()));
            EXPECT_EQ(frame->segment->number, static_cast<int32_t>(i + 1));
            EXPECT_EQ(frame->payload.size(), one.segments[i]);
            received += frame->payload;
        }
        EXPECT_EQ(received, data);
    }
}

TEST_F(transport, a_segment_that_fails_ends_the_transfer_and_marks_the_client) {
    gateway.start();
    story_app app = gateway.connect();
    world.fail("kelo_hal_net_send", sim::nth(3), {.result = -1, .partial_bytes = 10});
    EXPECT_EQ(send_large(std::string(4500, 'x')), -909);
    EXPECT_TRUE(world.log().has(0, "ret:10 count:5 seq:3 send_len:1060"));
    world.fail("Malloc", sim::nth(1), {.thread = "main"});
    EXPECT_EQ(send_large("x"), -925) << "expected nothing to be written to a faulty client";
    world.clear_faults();
    world.run_for(11'000);
    story_app next = gateway.connect();
    world.fail("Malloc", sim::nth(1), {.thread = "main"});
    EXPECT_EQ(send_large("x"), -1);
    EXPECT_TRUE(world.log().has(0, "Create Send Buf Fails"));
    EXPECT_EQ(next.ask(FRM_KEEPALIVE), "9/0/0/") << "expected the client not to be marked";
}

} // namespace
