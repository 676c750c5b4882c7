/* What both servers under comparison serve: the same devices, texts and image. */
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace bench {

constexpr uint16_t server_port = 6668;
constexpr int client_max = 10;

/** An image that is large enough to be measured, and the most that is asked for at once. */
constexpr uint32_t image_bytes = 32U << 20U;
constexpr uint32_t piece_bytes = 0x80000;

inline constexpr char product_id[] = "k3v9xq2m7tzp4wbd";
inline constexpr char report[] =
    R"({"products":[{"cid":"00124b0029a1b2c3","pid":"k3v9xq2m7tzp4wbd"}]})";

inline std::string device_id(uint32_t number) {
    char id[17];
    std::snprintf(id, sizeof id, "00124b00%08x", number);
    return id;
}

} // namespace bench
