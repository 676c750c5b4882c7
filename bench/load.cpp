// Load for a server of the LAN protocol on 127.0.0.1: a number of connections, on each one request
// at a time.
//
//     load keepalive|list|redis CONNECTIONS SECONDS
//     load reports CONNECTIONS REPORTS       takes reports, after it has said "ready"
//     load upload BYTES_PER_SECOND HEX       sends the frames HEX, then the image; 0: unpaced
//
// Prints one JSON object.
#include "bench_site.h"
#include "frame_words.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

using steady = std::chrono::steady_clock;
using bytes = std::vector<uint8_t>;

constexpr uint16_t redis_port = 6379;
constexpr size_t frame_start_bytes = 16;
enum : uint32_t { keepalive = 9, piece = 231, device_list = 241 };

[[noreturn]] void give_up(const char *what) {
    std::perror(what);
    std::exit(1);
}

double seconds_since(steady::time_point begin) {
    return std::chrono::duration<double>(steady::now() - begin).count();
}

/** A request with room for a payload; its checksum is 0, which nobody looks at. */
bytes request(uint32_t type, uint32_t payload_bytes) {
    bytes frame(payload_bytes + 24);
    put_word(&frame[0], 0x000055AA);
    put_word(&frame[4], 1);
    put_word(&frame[8], type);
    put_word(&frame[12], payload_bytes + 8);
    put_word(&frame[frame.size() - 4], 0x0000AA55);
    return frame;
}

int connect_to(uint16_t port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        give_up("load: connect");
    }
    return fd;
}

void send_whole(int fd, const uint8_t *data, size_t size) {
    if (send(fd, data, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size)) {
        give_up("load: send");
    }
}

/** The bytes of one connection as frames. */
class frame_stream {
  public:
    explicit frame_stream(int fd) : fd_(fd), buffer_(1U << 20U) {}

    /** Receives once; the number of frames that have ended in it, of one type or (0) of any. */
    int receive(uint32_t type = 0) {
        const ssize_t count = recv(fd_, buffer_.data(), buffer_.size(), 0);
        if (count <= 0) {
            give_up("load: recv");
        }
        int frames = 0;
        for (size_t at = 0; at < static_cast<size_t>(count);) {
            const size_t there = static_cast<size_t>(count) - at;
            const size_t wanted = have_ < frame_start_bytes ? frame_start_bytes : total();
            const size_t taken = std::min(there, wanted - have_);
            if (have_ < frame_start_bytes) {
                std::memcpy(start_ + have_, &buffer_[at], taken);
            }
            have_ += taken;
            at += taken;
            if (have_ >= frame_start_bytes && have_ == total()) {
                have_ = 0;
                last_bytes_ = total();
                frames += type == 0 || type == get_word(start_ + 8) ? 1 : 0;
            }
        }
        return frames;
    }
    [[nodiscard]] size_t last_bytes() const { return last_bytes_; }
    [[nodiscard]] int fd() const { return fd_; }

  private:
    [[nodiscard]] size_t total() const { return size_t{get_word(start_ + 12)} + frame_start_bytes; }

    int fd_;
    bytes buffer_;
    uint8_t start_[frame_start_bytes] = {};
    size_t have_ = 0;
    size_t last_bytes_ = 0;
};

std::vector<frame_stream> connect_all(int count) {
    std::vector<frame_stream> streams;
    const bytes greeting = request(keepalive, 0);
    for (int i = 0; i < count; ++i) {
        streams.emplace_back(connect_to(bench::server_port));
        send_whole(streams.back().fd(), greeting.data(), greeting.size());
        while (streams.back().receive() == 0) {
        }
    }
    return streams;
}

uint32_t percentile(std::vector<uint32_t> &times_ns, double share) {
    const auto place = times_ns.begin() + static_cast<std::ptrdiff_t>(
                                              static_cast<double>(times_ns.size() - 1) * share);
    std::nth_element(times_ns.begin(), place, times_ns.end());
    return *place;
}

void print_times(std::vector<uint32_t> &times_ns, double seconds, size_t answer_bytes) {
    std::printf(
        R"({"count": %zu, "seconds": %.6f, "p50_us": %.1f, "p99_us": %.1f, "answer_bytes": %zu})"
        "\n",
        times_ns.size(), seconds, percentile(times_ns, 0.5) / 1000.0,
        percentile(times_ns, 0.99) / 1000.0, answer_bytes);
}

/** Asks on every connection, again as soon as the answer is there. take receives on one of them;
 * whether that was the answer's end. */
template <typename Take>
std::pair<std::vector<uint32_t>, double>
ask_in_a_loop(std::vector<pollfd> &watched, const bytes &question, double seconds, Take take) {
    std::vector<uint32_t> times_ns;
    times_ns.reserve(4'000'000);
    std::vector<steady::time_point> asked(watched.size());
    const auto begin = steady::now();
    const auto ask = [&](size_t i) {
        asked[i] = steady::now();
        send_whole(watched[i].fd, question.data(), question.size());
    };
    for (size_t i = 0; i < watched.size(); ++i) {
        ask(i);
    }
    // It never sleeps: else server and load would take turns in waking each other, or not, and the
    // figures would depend on which of them happens to be the slower one.
    while (seconds_since(begin) < seconds) {
        if (poll(watched.data(), watched.size(), 0) < 0) {
            give_up("load: poll");
        }
        for (size_t i = 0; i < watched.size(); ++i) {
            if (watched[i].revents != 0 && take(i)) {
                times_ns.push_back(static_cast<uint32_t>(
                    std::chrono::duration_cast<std::chrono::nanoseconds>(steady::now() - asked[i])
                        .count()));
                ask(i);
            }
        }
    }
    return {std::move(times_ns), seconds_since(begin)};
}

void ask_server(uint32_t type, int connections, double seconds) {
    std::vector<frame_stream> streams = connect_all(connections);
    std::vector<pollfd> watched;
    for (const frame_stream &stream : streams) {
        watched.push_back({stream.fd(), POLLIN, 0});
    }
    auto [times, taken] = ask_in_a_loop(watched, request(type, 0), seconds,
                                        [&](size_t i) { return streams[i].receive() > 0; });
    print_times(times, taken, streams[0].last_bytes());
}

void ask_redis(int connections, double seconds) {
    std::vector<pollfd> watched;
    for (int i = 0; i < connections; ++i) {
        watched.push_back({connect_to(redis_port), POLLIN, 0});
    }
    const std::string_view ping = "PING\r\n";
    auto [times, taken] =
        ask_in_a_loop(watched, bytes(ping.begin(), ping.end()), seconds, [&](size_t i) {
            char answer[16];
            if (recv(watched[i].fd, answer, sizeof answer, 0) != 7) {
                give_up("load: redis");
            }
            return true;
        });
    print_times(times, taken, 7);
}

void take_reports(int connections, long reports) {
    std::vector<frame_stream> streams = connect_all(connections);
    std::vector<pollfd> watched;
    for (const frame_stream &stream : streams) {
        watched.push_back({stream.fd(), POLLIN, 0});
    }
    std::puts("ready");
    std::fflush(stdout);
    const long wanted = reports * connections;
    long count = 0;
    steady::time_point begin;
    while (count < wanted) {
        if (poll(watched.data(), watched.size(), 5000) <= 0) {
            give_up("load: no report");
        }
        begin = count == 0 ? steady::now() : begin;
        for (size_t i = 0; i < watched.size(); ++i) {
            count += watched[i].revents != 0 ? streams[i].receive() : 0;
        }
    }
    std::printf(R"({"count": %ld, "seconds": %.6f, "answer_bytes": %zu})"
                "\n",
                count, seconds_since(begin), streams[0].last_bytes());
}

void send_paced(int fd, const bytes &frame, double bytes_per_second) {
    constexpr size_t segment = 1448;
    const auto begin = steady::now();
    for (size_t sent = 0; sent < frame.size();) {
        size_t room = frame.size() - sent;
        if (bytes_per_second > 0) {
            const auto due = static_cast<size_t>(seconds_since(begin) * bytes_per_second) + segment;
            room = std::min(room, due > sent ? due - sent : 0);
            room = room < segment && room < frame.size() - sent ? 0 : room;
        }
        if (room > 0) {
            send_whole(fd, &frame[sent], room);
            sent += room;
        }
    }
}

/** Sends the image piece by piece. The server asks for them in order; when it has all it asks once
 * more. */
void upload(double bytes_per_second, std::string_view announcement_hex) {
    bytes announcement;
    for (size_t i = 0; i + 1 < announcement_hex.size(); i += 2) {
        announcement.push_back(static_cast<uint8_t>(
            std::strtoul(std::string(announcement_hex.substr(i, 2)).c_str(), nullptr, 16)));
    }
    frame_stream stream = std::move(connect_all(1)[0]);
    send_whole(stream.fd(), announcement.data(), announcement.size());
    const auto begin = steady::now();
    for (uint32_t offset = 0;;) {
        while (stream.receive(piece) == 0) {
        }
        if (offset == bench::image_bytes) {
            break;
        }
        const uint32_t size = std::min(bench::piece_bytes, bench::image_bytes - offset);
        bytes frame = request(piece, size + 4);
        put_word(&frame[16], offset);
        send_paced(stream.fd(), frame, bytes_per_second);
        offset += size;
    }
    std::printf(R"({"count": %u, "seconds": %.6f})"
                "\n",
                bench::image_bytes, seconds_since(begin));
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fputs("usage: load keepalive|list|redis|reports|upload VALUE VALUE\n", stderr);
        return 2;
    }
    const std::string_view kind = argv[1];
    if (kind == "upload") {
        upload(std::atof(argv[2]), argv[3]);
    } else if (kind == "reports") {
        take_reports(std::atoi(argv[2]), std::atol(argv[3]));
    } else if (kind == "redis") {
        ask_redis(std::atoi(argv[2]), std::atof(argv[3]));
    } else {
        ask_server(kind == "list" ? device_list : keepalive, std::atoi(argv[2]),
                   std::atof(argv[3]));
    }
}
