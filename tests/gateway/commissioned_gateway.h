// A gateway with the agent and one app, for tests that call the services as the agent does.
#pragma once

#include "story_gateway.h"

#include "gateway/device.h"
#include "gateway/records.h"
#include "platform/memory.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

/** Works in a directory of its own, and leaves nothing of it. */
class own_directory {
  public:
    own_directory() : old_(std::filesystem::current_path()) {
        std::string name = "/tmp/engr-gateway-XXXXXX";
        path_ = mkdtemp(name.data());
        std::filesystem::current_path(path_);
    }
    own_directory(const own_directory &) = delete;
    ~own_directory() {
        std::filesystem::current_path(old_);
        std::filesystem::remove_all(path_);
    }

    [[nodiscard]] const std::filesystem::path &path() const { return path_; }

  private:
    std::filesystem::path old_;
    std::filesystem::path path_;
};

constexpr const char *commissioned_site =
    R"({"gateway": {"gw_id": "gw1", "channel": 20},
        "devices": [{"dev_id": "lamp", "pid": "p1", "online": 1, "dps": {"1": true, "2": 5}},
                    {"dev_id": "door", "pid": "p2", "online": 1}],
        "joining": [{"dev_id": "new1", "pid": "n", "state": 0, "dps": {"1": 1},
                     "join_after_ms": 2500},
                    {"dev_id": "new2", "join_after_ms": 2500}]})";

struct commissioned_gateway : sim::test {
    explicit commissioned_gateway(const char *site = commissioned_site) : gateway(world, site) {}
    void SetUp() override {
        gateway.start();
        app.emplace(gateway.connect());
    }
    ~commissioned_gateway() override { app.reset(); }

    /** Hands a request over as the agent does. */
    static int32_t hand_over(int32_t (*service)(sf_cmd_t *), const char *request) {
        sf_cmd_t command{.source = 0, .root = cJSON_Parse(request)};
        const int32_t result = service(&command);
        if (result != 0) {
            cJSON_Delete(command.root);
        }
        return result;
    }
    /** Asks for devices to be bound: [{"cid": ID, "pid": PID}, ...]. */
    static int32_t bind(const std::string &products) {
        const std::string request = "{\"products\":" + products + "}";
        return gw_engineer_add_sub_dev_to_list(request.c_str(),
                                               static_cast<uint32_t>(request.size()));
    }
    /** What the app is told next. */
    std::string told() { return app->receive_text(1000); }
    /** A device's data points, "none" when there is nothing to report. */
    static std::string data_points(const char *dev_id) {
        char *text = engr_sf_pack_local_obj_dp_data(engr_get_dev_cntl(dev_id), -1, 1, 0, 1, 1);
        std::string read = text == nullptr ? "none" : text;
        Free(text);
        return read;
    }
    static nlohmann::ordered_json shown(const char *member) { return gateway::status()[member]; }

    own_directory directory;
    story_gateway gateway;
    std::optional<story_app> app;
};
