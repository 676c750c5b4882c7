/* The dispatcher: registered handlers, decryption, and types without a handler. */
#include "base/json_request.h"
#include "clients/lan_pro_cntl.h"
#include "story_gateway.h"
#include "transport/frame_types.h"
#include "transport/registered_handlers.h"

namespace {

struct dispatcher : agent_test {
    dispatcher() { gateway.start(); }
};

TEST_F(dispatcher, decrypts_unless_the_type_is_exempt_and_refuses_what_it_can_not_decrypt) {
    const std::string noise(32, 'n');
    const auto cipher = [](std::string_view plain) {
        return lan_client::encrypt(lan_client::unactivated_key(), plain);
    };
    const struct {
        const char *what;
        uint32_t fr_type;
        std::string payload;
        const char *answer;
        const char *log;
    } cases[] = {
        {"exempt, answered", FRM_DEV_LIST, noise, nullptr, "tmp_out length is 32"},
        {"exempt, without a handler", FRM_RAW_34, noise, "nothing", "unsupport frame type:34"},
        {"unlisted, undecryptable", 100, noise, "100/7/1/parse data error",
         "aes128_ecb_decode error:-5"},
        {"unlisted, ragged", 100, "short", "100/7/1/parse data error",
         "aes128_ecb_decode error:-4"},
        {"unlisted, decrypted", 100, cipher("{}"), "nothing", "unsupport frame type:100"},
        {"unlisted, empty", 100, "", "nothing", "unsupport frame type:100"},
        {"below the list", 3, cipher("{}"), "nothing", "unsupport frame type:3"},
        {"far above the list", 0x80000000, cipher("{}"), "nothing",
         "unsupport frame type:-2147483648"},
        {"a report's type", FRM_SUB_DEV_BIND_RPT, cipher("{}"), "nothing",
         "unsupport frame type:243"},
        {"a datagram's type", FRM_AP_NW_CFG, noise, "1/7/1/parse data error",
         "Cmd Parse Fails -5.Cannot handle"},
        {"without a brace", FRM_NOP, cipher("[1, 2]"), "251/7/1/parse data error",
         "find last } fails -1 [1, 2]"},
        {"without a brace, too", FRM_NOP, cipher("[]"), "251/7/1/parse data error",
         "Cmd Parse Fails -1.Cannot handle"},
        {"no operation", FRM_NOP, cipher("{}"), "nothing", "tmp_out length is 2"},
        {"a brace alone", FRM_NOP, cipher("}"), "nothing", "tmp_out length is 1"},
        {"no operation, empty", FRM_NOP, "", "nothing", "tmp_out length is 0"},
        {"cut behind the last brace", FRM_NOP, cipher("{\"a\":1}  \n\x01"), "nothing",
         "tmp_out length is 7"},
    };
    story_app app = gateway.connect();
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        world.log().clear();
        app.send(7, one.fr_type, one.payload);
        const std::string answer = app.receive_text(100);
        EXPECT_TRUE(one.answer == nullptr || answer == one.answer)
            << "expected " << one.answer << ", got " << answer;
        EXPECT_TRUE(world.log().has(one.log)) << "expected: " << one.log;
    }
}

TEST_F(dispatcher, uses_the_gateways_own_key_exactly_while_it_is_activated) {
    story_app app = gateway.connect();
    const auto own_key = *lan_client::aes_key::from_text("0123456789abcdef");
    ::gateway::set_gateway_field("local_key", "0123456789abcdef");
    EXPECT_EQ(app.ask(100, "no cipher"), "100/7/1/parse data error")
        << "expected the built-in key while not activated";
    ::gateway::set_gateway_field("active_stat", "2");
    app.key = own_key;
    EXPECT_EQ(app.ask(100, "no cipher"), "100/7/1/parse data error");
    app.send_encrypted(1, FRM_NOP, "{}");
    EXPECT_EQ(app.receive_text(100), "nothing") << "expected a request with the own key to be read";
    ::gateway::set_gateway_field("active_stat", "1");
    app.send_encrypted(1, FRM_NOP, "{}");
    app.key = lan_client::unactivated_key();
    EXPECT_EQ(app.receive_text(100), "251/1/1/parse data error")
        << "expected the own key to be of no use any more";
}

cJSON *taken = nullptr;
int handler_result = 0;
size_t blocks_in_handler = 0;

int record_request(cJSON *root) {
    blocks_in_handler = sim::world::current().in_use().memory_blocks;
    if (handler_result == 0) {
        taken = root;
    }
    return handler_result;
}

int must_not_run(cJSON *) {
    ADD_FAILURE() << "expected only the first handler of a type to run";
    return 1;
}

TEST_F(dispatcher, gives_a_registered_handler_its_frames_before_any_built_in_handling) {
    EXPECT_EQ(engr_lan_protocol_register_cb(241, nullptr), -2);
    ASSERT_EQ(engr_lan_protocol_register_cb(241, record_request), 0);
    EXPECT_TRUE(world.log().has(4, "frame_type: 241, lan_protocol_handler_cnt: 1"));
    ASSERT_EQ(engr_lan_protocol_register_cb(241, must_not_run), 0);
    story_app app = gateway.connect();
    std::string numbers = R"({"a":[0)";
    for (int i = 0; i < 65'533; ++i) {
        numbers += ",0";
    }
    const std::string most_values = numbers + "]}";
    const std::string too_many_values = numbers + ",0]}";
    const auto nested = [](size_t levels) {
        return R"({"a":)" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
    };
    std::string beside_each_other = R"({"a":[{})";
    for (int i = 0; i < 33; ++i) {
        beside_each_other += ",{}";
    }
    beside_each_other += "]}";
    const std::string levels_32 = nested(32);
    const std::string levels_33 = nested(33);
    const struct {
        const char *what;
        const char *plain; // null: not encrypted
        int result;
        const char *answer;
    } cases[] = {
        {"taken", R"({"a":1})", 0, "241/7/0/"},
        {"refused", R"({"a":1})", 5, "241/7/1/Json Cmd handler err"},
        {"not JSON", "{not json}", 0, "241/7/1/data format error"},
        {"text behind the object", R"({"a":1} {"b":2})", 0, "241/7/1/data format error"},
        {"nested too deep",
         R"({"a":[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[0]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]})", 0,
         "241/7/1/data format error"},
        {"objects beside each other", beside_each_other.c_str(), 0, "241/7/0/"},
        {"32 levels", levels_32.c_str(), 0, "241/7/0/"},
        {"33 levels", levels_33.c_str(), 0, "241/7/1/data format error"},
        {"braces in a string", R"({"a":"[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[\"[[["})", 0,
         "241/7/0/"},
        {"as many values as a request may have", most_values.c_str(), 0, "241/7/0/"},
        {"too many values", too_many_values.c_str(), 0, "241/7/1/data format error"},
        {"not encrypted", nullptr, 0, "241/7/1/parse data error"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        handler_result = one.result;
        EXPECT_EQ(one.plain != nullptr ? app.ask(FRM_DEV_LIST, one.plain, true)
                                       : app.ask(FRM_DEV_LIST),
                  one.answer);
        cJSON_Delete(taken);
        taken = nullptr;
    }
    EXPECT_EQ(blocks_in_handler, world.in_use().memory_blocks) << "expected no text beside it";
    EXPECT_TRUE(world.log().has(0, "Json Cmd handler err op_ret = 5"));
    EXPECT_TRUE(world.log().has(0, "Not Json Cmd Parse Fails"));

    // Where the server stands, with the socket of the only client.
    const auto offer = [&](uint32_t fr_type, const std::string &payload) {
        return __lan_protocol_handler_ex({lan_pro_cntl.load()->sockets[0], 7, fr_type},
                                         reinterpret_cast<const uint8_t *>(payload.c_str()),
                                         static_cast<uint32_t>(payload.size()));
    };
    handler_result = 5;
    EXPECT_EQ(offer(FRM_NOP, "{}"), -4) << "expected no handler";
    EXPECT_EQ(offer(FRM_DEV_LIST, "no cipher"), -1);
    EXPECT_EQ(offer(FRM_DEV_LIST, lan_client::encrypt(app.key, "{no}")), -1);
    EXPECT_EQ(offer(FRM_DEV_LIST, lan_client::encrypt(app.key, "{}")), -1);
    handler_result = 0;
    EXPECT_EQ(offer(FRM_DEV_LIST, lan_client::encrypt(app.key, "{}")), 0);
    cJSON_Delete(std::exchange(taken, nullptr));

    gateway.stop();
    gateway.start();
    EXPECT_EQ(gateway.connect().ask(FRM_DEV_LIST), "241/7/1/parse data error")
        << "expected registrations to outlive a stop";
    for (int i = 2; i < 20; ++i) {
        EXPECT_EQ(engr_lan_protocol_register_cb(500 + i, must_not_run), 0);
    }
    EXPECT_EQ(engr_lan_protocol_register_cb(600, must_not_run), -2);
    EXPECT_TRUE(world.log().has(0, "register lan proto err, reach max: 20"));
}

TEST(json_request, releases_what_it_has_parsed) {
    static int blocks = 0;
    cJSON_Hooks hooks{[](size_t size) { return ++blocks, std::malloc(size); },
                      [](void *block) { blocks -= block != nullptr ? 1 : 0, std::free(block); }};
    cJSON_InitHooks(&hooks);
    EXPECT_TRUE(json_request("[1]") && blocks == 2) << "expected a block for each value";
    cJSON_InitHooks(nullptr);
    EXPECT_EQ(blocks, 0);
}

TEST(json_request, reads_nothing_behind_the_end_of_its_text) {
    for (const char *text : {"", "\"\\", "{\"a\":\"\\", "]", "}"}) {
        EXPECT_FALSE(json_request(text)) << text;
    }
    EXPECT_FALSE(json_request(nullptr));
}

} // namespace
