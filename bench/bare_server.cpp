// The limit: the smallest poll server that gives the agent's answers, with the same frames, key,
// cipher and checksum libraries. It has its list ready, checks nothing that a hostile client might
// send, and looks after nobody.
//
//     bare_server DEVICES zlib|libdeflate
//
// Says "ready" when it listens. A line "reports N" on standard input sends N reports to every
// client; the end of the input ends it.
#include "bench_site.h"
#include "frame_words.h"
#include "key_seeds.h"

#include <arpa/inet.h>
#include <libdeflate.h>
#include <netinet/tcp.h>
#include <nettle/aes.h>
#include <nettle/md5.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

enum : uint32_t {
    head = 0x000055AA,
    tail = 0x0000AA55,
    keepalive = 9,
    start_upgrade = 230,
    piece = 231,
    device_list = 241,
    bind_report = 243,
    announcement = 250
};

using bytes = std::vector<uint8_t>;

bool uses_zlib = false;
aes128_ctx cipher;
std::string list_text;
/** Kept from answer to answer, so that none is allocated. */
bytes frame(1U << 20U);
bytes input(1U << 20U);
uint32_t image_offset = 0;

uint32_t checksum(const uint8_t *data, size_t size) {
    return uses_zlib ? static_cast<uint32_t>(crc32(0, data, static_cast<uInt>(size)))
                     : libdeflate_crc32(0, data, size);
}

/** Builds a reply; its size. */
size_t build(uint32_t number, uint32_t type, std::string_view text) {
    const size_t padding = text.empty() ? 0 : AES_BLOCK_SIZE - text.size() % AES_BLOCK_SIZE;
    const size_t length = text.size() + padding;
    if (frame.size() < length + 28) {
        frame.resize(length + 28);
    }
    put_word(&frame[0], head);
    put_word(&frame[4], number);
    put_word(&frame[8], type);
    put_word(&frame[12], static_cast<uint32_t>(length) + 12);
    put_word(&frame[16], 0);
    uint8_t *payload = &frame[20];
    if (length > 0) {
        std::memcpy(payload, text.data(), text.size());
        std::memset(payload + text.size(), static_cast<int>(padding), padding);
        aes128_encrypt(&cipher, length, payload, payload);
    }
    // As in the protocol: the checksum's length has 16 bits.
    put_word(payload + length, checksum(frame.data(), static_cast<uint16_t>(length + 20)));
    put_word(payload + length + 4, tail);
    return length + 28;
}

bool send_whole(int fd, size_t size) {
    size_t sent = 0;
    while (sent < size) {
        const ssize_t count = send(fd, &frame[sent], size - sent, MSG_NOSIGNAL);
        if (count > 0) {
            sent += static_cast<size_t>(count);
        } else if (errno == EAGAIN) {
            pollfd room{fd, POLLOUT, 0};
            poll(&room, 1, -1);
        } else {
            return false;
        }
    }
    return true;
}

bool ask_for_piece(int fd, uint32_t offset) {
    const uint32_t left = bench::image_bytes - offset;
    char text[128];
    std::snprintf(text, sizeof text, R"({"firmwareType":9,"cid":"","offset":%u,"downloadSize":%u})",
                  offset, left < bench::piece_bytes ? left : bench::piece_bytes);
    return send_whole(fd, build(0, piece, text));
}

bool answer(int fd, uint32_t number, uint32_t type, uint32_t payload_size) {
    switch (type) {
    case keepalive:
        return send_whole(fd, build(0, type, {}));
    case device_list:
        return send_whole(fd, build(number, type, list_text));
    case announcement:
        return send_whole(fd, build(number, type, "{}"));
    case start_upgrade:
        image_offset = 0;
        return send_whole(fd, build(number, type, {})) && ask_for_piece(fd, 0);
    case piece:
        image_offset += payload_size - 4;
        return ask_for_piece(fd, image_offset);
    default:
        return false;
    }
}

/** Reads once, and the rest of a frame that goes on, pausing 10 ms when it is not there: the
 * agent's rule. */
bool serve(int fd) {
    constexpr size_t first_read = 512;
    const ssize_t count = recv(fd, input.data(), first_read, 0);
    if (count <= 0) {
        return false;
    }
    size_t size = static_cast<size_t>(count);
    for (size_t at = 0; size - at >= 24;) {
        const size_t total = size_t{get_word(&input[at + 12])} + 16;
        if (get_word(&input[at]) != head || total > input.size() - at) {
            return false;
        }
        while (size - at < total) {
            const ssize_t more = recv(fd, &input[size], total - (size - at), 0);
            if (more > 0) {
                size += static_cast<size_t>(more);
            } else if (more < 0 && errno == EAGAIN) {
                usleep(10'000);
            } else {
                return false;
            }
        }
        const uint8_t *start = &input[at];
        if (!answer(fd, get_word(start + 4), get_word(start + 8),
                    static_cast<uint32_t>(total) - 24)) {
            return false;
        }
        at += total;
    }
    return true;
}

int listen_for_clients() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    const int buffer = 0x20000;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(bench::server_port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd, bench::client_max) != 0) {
        std::perror("bare_server");
        std::exit(1);
    }
    return fd;
}

void send_reports(const std::vector<pollfd> &watched) {
    char line[64];
    const ssize_t count = read(STDIN_FILENO, line, sizeof line - 1);
    if (count <= 0) {
        std::exit(0);
    }
    line[count] = '\0';
    unsigned reports = 0;
    std::sscanf(line, "reports %u", &reports);
    for (unsigned i = 0; i < reports; ++i) {
        const size_t size = build(0, bind_report, bench::report);
        for (size_t client = 2; client < watched.size(); ++client) {
            send_whole(watched[client].fd, size);
        }
    }
}

void prepare(uint32_t devices) {
    uint8_t seed[16];
    uint8_t key[MD5_DIGEST_SIZE];
    ENGR_KEY3_SEED_STORES(seed)
    md5_ctx digest;
    md5_init(&digest);
    md5_update(&digest, sizeof seed, seed);
    md5_digest(&digest, sizeof key, key);
    aes128_set_encrypt_key(&cipher, key);
    list_text = R"({"products":[)";
    for (uint32_t i = 0; i < devices; ++i) {
        list_text += (i > 0 ? R"(,{"cid":")" : R"({"cid":")") + bench::device_id(i) +
                     R"(","pid":")" + bench::product_id + R"("})";
    }
    list_text += "]}";
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fputs("usage: bare_server DEVICES zlib|libdeflate\n", stderr);
        return 2;
    }
    uses_zlib = std::string_view(argv[2]) == "zlib";
    prepare(static_cast<uint32_t>(std::atoi(argv[1])));
    std::vector<pollfd> watched{{listen_for_clients(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    std::puts("ready");
    std::fflush(stdout);
    while (poll(watched.data(), watched.size(), -1) > 0) {
        if (watched[1].revents != 0) {
            send_reports(watched);
        }
        for (size_t i = 2; i < watched.size(); ++i) {
            if (watched[i].revents != 0 && !serve(watched[i].fd)) {
                close(watched[i].fd);
                watched.erase(watched.begin() + static_cast<std::ptrdiff_t>(i--));
            }
        }
        if (watched[0].revents != 0) {
            const int fd = accept4(watched[0].fd, nullptr, nullptr, SOCK_NONBLOCK);
            const int on = 1;
            setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            watched.push_back({fd, POLLIN, 0});
        }
    }
    return 1;
}
