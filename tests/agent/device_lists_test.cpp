/* The device list and the lists of online and offline devices. */
#include "gateway/device.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

#include <atomic>
#include <cstring>

namespace {

/** A site with these device records. */
std::string site_of(const std::string &devices) {
    return R"({"gateway": {"gw_id": "GW0001"}, "devices": [)" + devices + "]}";
}

TEST(device_lists, contain_the_devices_that_are_not_hidden) {
    const struct {
        const char *what;
        const char *devices;
        const char *list;
        const char *line_stat;
        const char *log = nullptr;
    } cases[] = {
        {"no device", "", R"({"products":[]})", "224/7/1/online_dev or offline_dev is null"},
        {"online only", R"({"dev_id":"a","pid":"p","state":1,"online":1})",
         R"({"products":[{"cid":"a","pid":"p"}]})", R"(224/7/0/{"online":["a"]})",
         "on:[\"a\"] off:[]\n"},
        {"offline only", R"({"dev_id":"a","pid":"","state":1,"online":0})",
         R"({"products":[{"cid":"a","pid":""}]})", R"(224/7/0/{"offline":["a"]})"},
        {"both", R"({"dev_id":"a","state":1,"online":1},{"dev_id":"b","state":1,"online":0},
                    {"dev_id":"c","state":1,"online":1})",
         nullptr, R"(224/7/0/{"online":["a","c"],"offline":["b"]})"},
        {"states 0 and 2, excluded", R"({"dev_id":"a","pid":"p","state":0,"online":1},
          {"dev_id":"b","pid":"p","state":2,"online":1},
          {"dev_id":"c","pid":"p","state":1,"excluded":1,"online":1})",
         R"({"products":[{"cid":"b","pid":"p"}]})", "224/7/1/online_dev or offline_dev is null"},
        {"the gateway itself, in another letter case",
         R"({"dev_id":"gw0001","pid":"p","state":1,"online":1},
          {"dev_id":"gw00012","pid":"p","state":1,"online":1})",
         R"({"products":[{"cid":"gw0001","pid":"p"},{"cid":"gw00012","pid":"p"}]})",
         R"(224/7/0/{"online":["gw00012"]})"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        sim::world world;
        {
            story_gateway gateway(world, site_of(one.devices));
            gateway.start();
            story_app app = gateway.connect();
            if (one.list != nullptr) {
                EXPECT_EQ(app.ask(FRM_DEV_LIST), "241/7/0/" + std::string(one.list));
            }
            EXPECT_EQ(app.ask(FRM_DEV_LINE_STAT, "payload that is not looked at"), one.line_stat);
            EXPECT_NE(world.log().text().find(one.log != nullptr ? one.log : ""), std::string::npos)
                << "expected: " << one.log;
        }
        EXPECT_TRUE(world.finish().empty());
    }
}

using device_lists_memory = agent_test;

TEST_F(device_lists_memory, log_which_allocation_failed) {
    gateway.start();
    story_app app = gateway.connect();
    const struct {
        uint32_t fr_type;
        uint64_t n;
        const char *message;
        const char *log;
    } cases[] = {
        {241, 1, "malloc error", nullptr},
        {224, 1, "malloc ol_buf buffer fails", "malloc ol_buf buffer fails"},
        {224, 2, "malloc off_buf buffer fails", "malloc off_buf buffer fails"},
        {224, 3, "malloc send_data buffer fails", "malloc send_data buffer fails"},
    };
    for (const auto &one : cases) {
        world.fail("Malloc", sim::nth(one.n), {.thread = "lpc_task"});
        EXPECT_EQ(app.ask(one.fr_type), std::to_string(one.fr_type) + "/7/1/" + one.message);
        EXPECT_TRUE(one.log == nullptr || world.log().has(0, one.log));
    }
}

/** A list with more devices than dev_count, as one has that grows in between. */
TEST_F(device_lists_memory, stay_inside_their_buffers_when_the_list_grew_meanwhile) {
    gateway.start();
    story_app app = gateway.connect();
    gw_cntl_t &record = *engr_get_gw_cntl();
    std::atomic_ref<uint32_t> count(record.dev_count);
    const uint32_t real = count.exchange(0);
    EXPECT_EQ(app.ask(FRM_DEV_LINE_STAT), "224/7/1/length not enough");
    EXPECT_TRUE(world.log().has(0, "length:30,ol_size:8,off_size:1"));
    EXPECT_EQ(app.ask(FRM_DEV_LIST), R"(241/7/0/{"products":[{"cid":"lamp","p)")
        << "expected the text to be cut at 29 characters";
    count.store(real);
    EXPECT_EQ(app.ask(FRM_DEV_LINE_STAT), R"(224/7/0/{"online":["lamp"],"offline":["door"]})");
    for (const auto &[id, is_sent] : {std::pair{"lamp", 1}, {"door", 1}, {"hidden", 0}}) {
        EXPECT_EQ(engr_get_dev_cntl(id)->line_stat_sent, is_sent) << id;
    }
}

/** With dev_count 1 each line list has 60 bytes. */
TEST(device_lists, end_when_a_list_has_less_than_26_bytes_left_or_an_id_does_not_fit) {
    const struct {
        const char *what;
        std::vector<size_t> ids; // lengths of the ids of the online devices
        size_t last_id;          // of a device that is offline
        bool is_answered;
        char online = '1';
    } cases[] = {
        {"26 left", {13, 14}, 1, true},
        {"25 left", {14, 14}, 1, false},
        {"25 left of the offline list", {14, 14}, 1, false, '0'},
        {"an id that takes all but one", {13, 14, 22}, 0, true},
        {"an id that takes all", {13, 14, 23}, 0, false},
        {"25 left, and nothing more to list", {14, 14}, 0, true},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        std::string devices;
        std::string online;
        for (const size_t length : one.ids) {
            const std::string id(length, static_cast<char>('a' + online.size() % 26));
            online += (online.empty() ? "\"" : ",\"") + id + '"';
            devices += (devices.empty() ? "" : ",") + std::string(R"({"dev_id":")") + id +
                       R"(","state":1,"online":)" + one.online + "}";
        }

        std::string answer = R"(224/7/0/{"online":[)" + online + "]";
        if (one.last_id != 0) {
            devices += R"(,{"dev_id":"z","state":1})";
            answer += R"(,"offline":["z"])";
        }
        sim::world world;
        {
            story_gateway gateway(world, site_of(devices));
            gateway.start();
            story_app app = gateway.connect();
            std::atomic_ref<uint32_t>(engr_get_gw_cntl()->dev_count).store(1);
            EXPECT_EQ(app.ask(FRM_DEV_LINE_STAT),
                      one.is_answered ? answer + "}" : "224/7/1/length not enough");
            EXPECT_LE(app.ask(FRM_DEV_LIST).size(), std::strlen("241/7/0/") + 80 + 30 - 1)
                << "expected the text of a longer list to be cut";
        }
        EXPECT_TRUE(world.finish().empty());
    }
}

/** One entry of the device list that fills its buffer to the last comma, and one more. */
TEST(device_lists, leave_no_comma_before_their_end) {
    const std::string a = R"("a","pid":")" + std::string(32, 'p');
    const std::string b(21, 'b');
    const std::string first = R"({"cid":)" + a + R"("})";
    const std::string second = R"({"cid":")" + b + R"(","pid":"23"})";
    sim::world world;
    {
        story_gateway gateway(world, site_of(R"({"state":1,"dev_id":)" + a +
                                             R"("},{"state":1,"dev_id":")" + b +
                                             R"(","pid":"23"},{"state":1,"dev_id":"c"})"));
        gateway.start();
        std::atomic_ref<uint32_t> count(engr_get_gw_cntl()->dev_count);
        const uint32_t real = count.exchange(1);
        const std::string whole = R"({"products":[)" + first + "," + second;
        EXPECT_EQ(whole.size() + 1, 109U) << "expected room for the second comma and no more";
        EXPECT_EQ(gateway.connect().ask(FRM_DEV_LIST), "241/7/0/" + whole + "]");
        count.store(real);
    }
    EXPECT_TRUE(world.finish().empty());
}

TEST_F(device_lists_memory, answer_10000_devices_whole) {
    std::string devices;
    for (int i = 0; i < 10'000; ++i) {
        devices += (i == 0 ? "" : ",") + std::string(R"({"dev_id":"device-)") + std::to_string(i) +
                   R"(","pid":"product-of-the-usual-length","state":1,"online":)" +
                   (i % 2 == 0 ? "1}" : "0}");
    }
    gateway.stop();
    ::gateway::close();
    ::gateway::open_options options;
    options.initial_site = ::gateway::parse_site(site_of(devices), "site");
    options.address = [] { return "192.168.1.1"; };
    ::gateway::open(options);
    gateway.start();
    story_app app = gateway.connect();
    const std::string list = app.ask(FRM_DEV_LIST);
    EXPECT_GT(list.size(), 500'000U);
    EXPECT_TRUE(list.ends_with(R"({"cid":"device-9999","pid":"product-of-the-usual-length"}]})"));
    const std::string line_stat = app.ask(FRM_DEV_LINE_STAT);
    EXPECT_GT(line_stat.size(), 65'536U);
    EXPECT_TRUE(line_stat.ends_with(R"("device-9999"]})"));
}

} // namespace
