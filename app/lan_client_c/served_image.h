// A firmware image in a file, served to the gateway of a handle.
#pragma once

#include "engr_lan_client.h"
#include "lan_client/image_sender.h"

#include <cstdint>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace lan_client_c {

/** Used on the loop's thread, but for its making. */
class served_image {
  public:
    /** Opens the file; `is_usable` says whether that worked. */
    explicit served_image(const std::string &path);

    /** @return whether the file can be read, is not empty and not larger than gateways take */
    [[nodiscard]] bool is_usable() const { return bytes_ > 0; }

    /** Begins to answer the gateway's requests as the request `id`. */
    void start(engr_client &client, uint32_t id, std::vector<std::string> device_ids);

    /**
     * Takes a report.
     *
     * @return whether it was a request for a piece
     */
    bool take(const lan_client::report &told);

    /** Ends with an error, unless it has ended already. */
    void end(engr_client_error why, const std::string &text);

  private:
    void changed();

    std::ifstream file_;
    uint64_t bytes_ = 0;
    engr_client *client_ = nullptr;
    uint32_t id_ = 0;
    bool ended_ = false;
    std::optional<lan_client::image_sender> sender_;
};

} // namespace lan_client_c
