// A site plan: what each gateway of a site shall be like.
#pragma once

#include "gateway/discovery.h"
#include "plan/document.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace engr_app {

/** Where a secret is; it is read when it is needed. Both empty: the plan has none. */
struct secret_source {
    std::string file;
    std::string variable; /**< of the environment */

    [[nodiscard]] bool is_given() const { return !file.empty() || !variable.empty(); }

    /** @return the first line of the file, or the variable; throws a failure of wrong usage */
    [[nodiscard]] std::string read(const std::string &what) const;
};

struct planned_device {
    std::string id;
    std::string product;
    std::string name; /**< for people; may be empty, as may the room */
    std::string room;
};

struct planned_group {
    std::string id;
    std::vector<std::string> devices; /**< their ids; all of the group's */
};

/** A request for something that no gateway lets an app read back. */
struct planned_request {
    std::string item; /**< as in "scene evening of group kitchen" */
    uint32_t type = 0;
    std::string payload;              /**< JSON */
    std::vector<std::string> devices; /**< ids of those that it names */
};

struct planned_image {
    std::string file;
    std::string version;
};

/** What one gateway shall be like. What is absent is left as it is. */
struct gateway_plan {
    std::string name;    /**< in reports */
    std::string id;      /**< empty: not in the plan */
    std::string address; /**< "ADDRESS" or "ADDRESS:PORT"; empty: to be found by its id */
    secret_source key;
    std::optional<int64_t> channel;
    std::optional<std::vector<planned_device>> devices;
    bool remove_others = false; /**< devices that are not in the list */
    /** How long joining is opened for devices that are not online; absent: they may be offline. */
    std::optional<std::chrono::seconds> join_time;
    std::vector<planned_group> groups;
    std::vector<planned_request> requests;    /**< scenes, then panels */
    std::optional<std::string> linkage;       /**< the scenes as a JSON array */
    std::vector<std::string> linkage_devices; /**< ids of those that they name */
    std::optional<std::string> app_config;    /**< as it is sent */
    std::optional<std::string> cloud_config;  /**< the same */
    secret_source token;
    std::optional<planned_image> firmware;                /**< of the gateway */
    std::map<std::string, planned_image> device_firmware; /**< by product id */
};

class site_plan {
  public:
    /** Reads a file and checks all of it. @throws failure of wrong usage, as plan_document */
    site_plan(const std::string &path, console &out);

    [[nodiscard]] const std::string &path() const { return path_; }

    /** @return the name of the site, or the plan's file name */
    [[nodiscard]] const std::string &name() const { return name_; }

    /** @return whether gateways are found by a pattern, so that nobody knows how many there are */
    [[nodiscard]] bool has_patterns() const;

    /**
     * @return the gateways that the plan names, and those found that fit one of its patterns
     * @throws failure of wrong usage when two of them are the same
     */
    [[nodiscard]] std::vector<gateway_plan> gateways(const discovery_result &found) const;

  private:
    std::string path_;
    plan_document document_;
    std::string name_;
};

} // namespace engr_app
