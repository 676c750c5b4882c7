// The installer's own names for devices, rooms and data points.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace engr_app {

/**
 * Names from a JSON file
 *
 *     {"devices": {"CID": {"name": "ceiling", "room": "kitchen"}, "CID": "door"},
 *      "products": {"PID": {"1": "switch", "2": "brightness"}}}
 *
 * Gateways know nothing of them.
 */
class names_file {
  public:
    /** No names. */
    names_file() = default;

    /**
     * @throws support::input_error, or a failure of the kind "input", when it can't be read or says
     *         something else
     */
    explicit names_file(const std::string &path);

    [[nodiscard]] bool names_devices() const { return !devices_.empty(); }
    [[nodiscard]] bool names_data_points() const { return !products_.empty(); }

    /** @return the name of a device; empty when it has none */
    [[nodiscard]] std::string device_name(const std::string &id) const;
    [[nodiscard]] std::string device_room(const std::string &id) const;

    /**
     * @param text  a name or an id
     * @return the id of the device with that name, else the text as it is
     * @throws failure of wrong usage when several devices have the name
     */
    [[nodiscard]] std::string device_id(const std::string &text) const;

    /** @return the name of a data point, or its number where it has none */
    [[nodiscard]] std::string data_point_name(const std::string &product_id,
                                              const std::string &number) const;

    /** @return the number of the data point with that name, else the text as it is */
    [[nodiscard]] std::string data_point_number(const std::string &product_id,
                                                const std::string &text) const;

  private:
    struct device_entry {
        std::string name;
        std::string room;
    };
    using point_names = std::map<std::string, std::string>; // by number

    std::map<std::string, device_entry> devices_;
    std::map<std::string, point_names> products_;
    std::string path_;
};

} // namespace engr_app
