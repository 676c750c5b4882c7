#include "session/start.h"

#include <chrono>
#include <ctime>
#include <random>

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace session {
namespace {

constexpr std::size_t fingerprint_digits = 16;

std::string random_key() {
    constexpr std::string_view characters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device chance;
    std::uniform_int_distribution<std::size_t> index(0, characters.size() - 1);
    std::string key;
    while (key.size() < lan_client::key_bytes) {
        key += characters[index(chance)];
    }
    return key;
}

std::string time_text() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                       fmt::gmtime(static_cast<std::time_t>(ms / 1000)), ms % 1000);
}

} // namespace

std::string fingerprint(const lan_client::aes_key &key) {
    const std::string_view bytes(reinterpret_cast<const char *>(key.data()), lan_client::key_bytes);
    return lan_client::sha256_text(bytes).substr(0, fingerprint_digits);
}

std::map<std::string, std::string> built_in_fingerprints() {
    return {{"key1", fingerprint(lan_client::configuration_key())},
            {"key2", fingerprint(lan_client::discovery_key())},
            {"key3", fingerprint(lan_client::unactivated_key())}};
}

header start_now(const std::string &program, const std::string &version, side recorded_by) {
    header start;
    start.program = program;
    start.version = version;
    start.started = time_text();
    start.recorded_by = recorded_by;
    start.key = random_key();
    start.seeds = built_in_fingerprints();
    return start;
}
} // namespace session
