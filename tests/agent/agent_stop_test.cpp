/* Stop of the agent: at any moment, whatever clients and reporters do, from inside its own
 * callbacks too. */
#include "sim/explore.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

namespace {

/** A report block: two words, then the text with its NUL. */
const std::string one_device_report =
    std::string(8, '\0') + R"({"cid":"lamp","dps":{"1":true}})" + '\0';

/** Queues a data-point report as a gateway application does. */
int32_t queue_report() {
    return engr_lan_dp_sata_report(
        reinterpret_cast<const lan_dp_report_t *>(one_device_report.data()),
        static_cast<uint32_t>(one_device_report.size()));
}

/** Ends a story whose stop took longer than a person notices. */
void expect_quick_stop(sim::world &world, uint64_t ms_max = 20) {
    const uint64_t before = world.now_ms();
    EXPECT_EQ(engr_lan_pro_cntl_exit(), 0);
    EXPECT_LE(world.now_ms() - before, ms_max)
        << "expected every wait to end at once, but for a send under way";
}

TEST(agent_stop, is_quick_whatever_the_clients_are_doing) {
    const struct {
        const char *what;
        void (*act)(story_gateway &gateway, sim::world &world, std::vector<story_app> &apps);
        uint64_t ms_max = 20;
    } cases[] = {
        {"idle", [](auto &, auto &, auto &apps) { apps[0].ask(FRM_KEEPALIVE); }, 1},
        {"waiting for the network",
         [](auto &, auto &world, auto &) {
             ::gateway::set_network_up(false);
             lpc_close_all_socket();
             world.run_for(2'000);
         }},
        {"a frame that comes in drips",
         [](auto &, auto &, auto &apps) {
             apps[0].peer.link().segment_bytes_max = 1;
             apps[0].peer.link().delay_ms_min = 1;
             apps[0].peer.link().delay_ms_max = 1;
             apps[0].peer.send(
                 lan_client::encode_request(1, FRM_DEV_LIST, std::string(20'000, 'x')));
         }},
        {"half a frame",
         [](auto &, auto &, auto &apps) {
             apps[0].peer.send(
                 lan_client::encode_request(1, FRM_DEV_LIST, std::string(1'000'000, 'x'))
                     .substr(0, 70'000));
         }},
        {"an answer to a client that does not read",
         [](auto &, auto &, auto &apps) {
             apps[0].peer.link().to_peer_bytes_max = 50;
             apps[0].peer.stop_reading();
             apps[0].send(1, FRM_DEV_LIST);
         }},
        {"reports to a last client that does not read",
         [](auto &, auto &, auto &apps) {
             apps.back().peer.link().to_peer_bytes_max = 50;
             apps.back().peer.stop_reading();
             queue_report();
             queue_report();
         }},
        {"reports to clients that do not read",
         [](auto &, auto &, auto &apps) {
             for (story_app &app : apps) {
                 app.peer.link().to_peer_bytes_max = 50;
                 app.peer.stop_reading();
             }
             queue_report();
             queue_report();
         }},
        {"eleven clients",
         [](auto &, auto &world, auto &apps) {
             while (apps.size() < 11) {
                 apps.emplace_back(world.connect(lan_port));
             }
         }},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        sim::expect_all_seeds(20, [&](sim::world &world) {
            story_gateway gateway(world);
            gateway.start();
            std::vector<story_app> apps;
            for (int i = 0; i < 3; ++i) {
                apps.push_back(gateway.connect());
            }
            one.act(gateway, world, apps);
            world.run_for(variants(world).below(300));
            expect_quick_stop(world, one.ms_max);
        });
    }
}

TEST(agent_stop, waits_for_every_user_of_the_record_under_any_interleaving) {
    sim::expect_all_seeds(400, [](sim::world &world) {
        story_gateway gateway(world);
        gateway.start();
        story_app first = gateway.connect();
        story_app second = gateway.connect();
        const auto report = [] {
            for (int i = 0; i < 3; ++i) {
                queue_report();
                engr_lan_sub_dev_bind_report("lamp", "p1");
                engr_lan_pro_cntl_get_valid_connect_cnt();
            }
        };
        sim::test_thread reporter = world.spawn("reporter", report);
        sim::test_thread other = world.spawn("other", report);
        sim::test_thread closer = world.spawn("closer", [] { lpc_close_all_socket(); });
        first.send(1, FRM_DEV_LIST);
        second.peer.close();
        world.run_for(variants(world).below(3) * 1'000);
        sim::test_thread stopper = world.spawn("stopper", [] { engr_lan_pro_cntl_exit(); });
        expect_quick_stop(world);
        EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0)
            << "expected a start right after a stop to work";
    });
}

/** What the handler below does when a frame of its type comes. */
int (*act_in_handler)() = nullptr;

int run_act(cJSON *root) {
    const int result = act_in_handler();
    if (result == 0) {
        cJSON_Delete(root);
    }
    return result;
}

TEST(agent_stop, works_from_inside_a_callback_of_the_server_task) {
    act_in_handler = [] {
        EXPECT_EQ(engr_lan_pro_cntl_exit(), 0);
        EXPECT_EQ(engr_lan_pro_cntl_exit(), 0) << "expected a second stop to do nothing";
        EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), -1)
            << "expected no start before the callback is over";
        EXPECT_EQ(engr_lan_pro_cntl_get_valid_connect_cnt(), 0);
        EXPECT_EQ(engr_lan_data_report_cb(FRM_DP_REPORT, 0, "x", 1), -940);
        return 0;
    };
    sim::expect_all_seeds(200, [](sim::world &world) {
        story_gateway gateway(world);
        static const int32_t registered = engr_lan_protocol_register_cb(100, run_act);
        ASSERT_EQ(registered, 0);
        gateway.start();
        story_app app = gateway.connect();
        sim::test_thread reporter = world.spawn("reporter", [] { queue_report(); });
        sim::test_thread stopper = world.spawn("stopper", [&world] {
            world.run_for(variants(world).below(2));
            engr_lan_pro_cntl_exit();
        });
        app.send_encrypted(1, 100, "{}");
        EXPECT_TRUE(app.peer.wait_for_end(1'000)) << "expected the connection to be closed";
        stopper.join();
        EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0) << "expected the agent to start again";
        EXPECT_TRUE(world.run_until_listening(lan_port));
    });
}

TEST(agent_stop, survives_the_failure_of_any_single_call) {
    const auto story = [](sim::world &world) {
        story_gateway gateway(world);
        sim::arm_failure();
        if (engr_lan_pro_cntl_init(ENGR_MODE_LAN) == 0) {
            world.run_for(6'000);
            if (sim::peer peer = world.connect(lan_port)) {
                story_app app(peer);
                for (const uint32_t type : {241U, 224U, 9U}) {
                    app.send(1, type);
                }
                app.send_encrypted(2, FRM_NOP, "{}");
                world.run_for(100);
                queue_report();
                engr_lan_gw_unactive_report();
                app.peer.close();
            }
            world.run_for(15'000);
        }
        world.clear_faults();
        gateway.stop();
        gateway.start();
        EXPECT_EQ(gateway.connect().ask(FRM_KEEPALIVE), "9/0/0/")
            << "expected a passing fault to leave a working system";
    };
    for (const char *operation :
         {"Malloc", "kelo_hal_net_socket_create", "kelo_hal_net_accept", "kelo_hal_net_recv",
          "kelo_hal_net_send", "kelo_hal_net_send_to", "kelo_hal_net_select",
          "kelo_hal_net_set_keepalive", "sys_add_timer", "CreateAndStart", "cmmod_reg_msgcb",
          "cmmod_post_msg"}) {
        SCOPED_TRACE(operation);
        sim::expect_survives_each_failure(operation, story, {.from_start = false});
    }
}

} // namespace
