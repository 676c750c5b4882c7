// Files that people give to engr_app. The first byte chooses what the rest is: a key file, or two
// site reports with a zero byte between them.
//
// What is wrong with a file is said in words that quote no key. A report has no difference from
// itself, and the differences of two are told in UTF-8 whatever stands in them.
#include "base/failure.h"
#include "base/json_text.h"
#include "files/key_file.h"
#include "site/diff.h"
#include "support/input_error.h"
#include "support/require.h"
#include "terminal/console.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using fuzz::require;

/** A file in memory, with a name for those who open files. */
class memory_file {
  public:
    explicit memory_file(std::string_view content) : descriptor_(memfd_create("input", 0)) {
        require(descriptor_ >= 0 && write(descriptor_, content.data(), content.size()) ==
                                        static_cast<ssize_t>(content.size()),
                "room for a file");
        fchmod(descriptor_, 0600);
    }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;
    ~memory_file() { close(descriptor_); }

    [[nodiscard]] std::string path() const {
        return "/proc/self/fd/" + std::to_string(descriptor_);
    }

  private:
    int descriptor_;
};

/** Words of lines, but the first, which is an id. */
bool quotes_key(const std::string &message, std::string_view file) {
    std::istringstream lines{std::string(file)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string gateway;
        std::string key;
        words >> gateway >> key;
        if (key.size() == 16 && message.find(key) != std::string::npos &&
            gateway.find(key) == std::string::npos) {
            return true;
        }
    }
    return false;
}

void read_keys(std::string_view text) {
    static engr_app::screen shown_on;
    static engr_app::console out(shown_on, false, true);
    const memory_file file(text);
    try {
        const auto keys = engr_app::read_key_file(file.path(), out);
        require(!keys.empty(), "at least one key");
        for (const auto &[gateway, key] : keys) {
            require(key.size() == 16, "keys of 16 bytes");
        }
    } catch (const engr_app::failure &failed) {
        const bool is_json = text.find('{') != std::string_view::npos;
        require(is_json || !quotes_key(failed.what(), text), "no key to be quoted");
    }
}

nlohmann::json reports_of(std::string_view text) {
    const memory_file file(text);
    return engr_app::read_site_reports(file.path());
}

void compare_reports(std::string_view text) {
    const size_t middle = std::min(text.find('\0'), text.size());
    try {
        const nlohmann::json before = reports_of(text.substr(0, middle));
        require(engr_app::site_changes(before, before).empty(), "no difference from itself");
        const nlohmann::json after = reports_of(text.substr(std::min(middle + 1, text.size())));
        const nlohmann::json changes = engr_app::site_changes(before, after);
        require(nlohmann::json::accept(engr_app::one_line(changes)), "changes as JSON");
    } catch (const engr_app::failure &) {
        return; // said in words
    } catch (const support::input_error &) {
        return;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    if (data[0] == 'k') {
        read_keys(rest);
    } else {
        compare_reports(rest);
    }
    return 0;
}
