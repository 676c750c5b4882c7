#include "calls/activity.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

// They change only while no call is under way.
std::function<void(std::string_view)> activity_sink;
std::function<std::string()> app_of_thread;

std::string known_app() {
    return app_of_thread ? app_of_thread() : std::string();
}

} // namespace

void activity_init(std::function<void(std::string_view)> sink,
                   std::function<std::string()> app_of_calling_thread) {
    activity_sink = std::move(sink);
    app_of_thread = std::move(app_of_calling_thread);
}

void activity_shutdown() {
    activity_init({}, {});
}

bool pass_quarter(uint32_t done, uint32_t whole, uint32_t &told) {
    const auto quarters = static_cast<uint32_t>(uint64_t{done} * 4 / std::max(whole, 1U));
    if (quarters <= told || quarters >= 4) {
        return false;
    }
    told = quarters;
    return true;
}

std::string listed(const std::vector<std::string> &dev_ids) {
    constexpr std::size_t named_max = 3;
    if (dev_ids.size() == 1) {
        return "device " + dev_ids.front();
    }
    if (dev_ids.size() > named_max) {
        return fmt::format("devices {}, {} and {} more", dev_ids[0], dev_ids[1],
                           dev_ids.size() - 2);
    }
    std::string text = dev_ids.empty() ? "no device" : "devices";
    for (std::size_t i = 0; i < dev_ids.size(); ++i) {
        text += (i == 0 ? " " : i + 1 == dev_ids.size() ? " and " : ", ") + dev_ids[i];
    }
    return text;
}

std::string asking_app() {
    const std::string app = known_app();
    return app.empty() ? "an app" : app;
}

void tell_deed(std::string_view deed) {
    tell_event(fmt::format("{} {}", asking_app(), deed));
}

void tell_refusal(std::string_view reason) {
    const std::string app = known_app();
    tell_event(app.empty() ? fmt::format("failed: {}", reason)
                           : fmt::format("{} was refused: {}", app, reason));
}

void tell_event(std::string_view sentence) {
    if (activity_sink) {
        activity_sink(sentence);
    }
}

} // namespace gateway
