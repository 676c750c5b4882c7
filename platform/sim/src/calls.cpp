/* Beginning and end of every contract call. */
#include "calls.h"

#include "core.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

/** Found in errno after a call that did not fail: a system promises nothing about it then. */
constexpr int errno_of_success = ENOTUNIQ;

} // namespace

operation operation_named(std::string_view name) {
    for (size_t index = 0; index < operation_count; ++index) {
        if (operations[index].name == name) {
            return static_cast<operation>(index);
        }
    }
    std::fprintf(stderr, "sim: there is no operation \"%.*s\"\n", static_cast<int>(name.size()),
                 name.data());
    std::abort();
}

call::call(operation called, std::initializer_list<int64_t> arguments)
    : core_(current_core()), called_(called) {
    const operation_info &info = operations[static_cast<size_t>(called)];
    if (core_.chosen.trace) {
        text_ = info.name;
        text_ += '(';
        for (const int64_t argument : arguments) {
            text_ += text_.back() == '(' ? "" : ", ";
            text_ += std::to_string(argument);
        }
        text_ += ')';
    }
    if (info.noticeable || core_.chosen.quiet_points) {
        core_.threads.point();
    }
    if (called != operation::kelo_hal_net_recv) { // the end of a stream sets none
        errno = errno_of_success;
    }
    ++core_.records.counts[static_cast<size_t>(called)];
    if (core_.records.active_faults != 0) {
        strike_ = find_strike();
    }
    if (fails() && info.name.starts_with("kelo_hal_net_")) {
        core_.threads.self().error_code = strike_->how.error_code;
        errno = errno_of(strike_->how.error_code);
    }
}

fault *call::find_strike() {
    fault *strikes = nullptr;
    for (fault &each : core_.records.faults) {
        if (!each.active || each.target != called_ ||
            (!each.how.thread.empty() && each.how.thread != core_.threads.self().name)) {
            continue;
        }
        ++each.met;
        const bool due =
            each.when.lasting ? each.met >= each.when.first : each.met == each.when.first;
        if (due && strikes == nullptr && core_.fault_chance.chance(each.when.odds)) {
            ++each.strikes;
            strikes = &each;
        }
    }
    return strikes;
}

size_t call::part_of(size_t bytes) const {
    return strike_ == nullptr || strike_->how.partial_bytes < 0
               ? bytes
               : std::min(bytes, static_cast<size_t>(strike_->how.partial_bytes));
}

void call::note(const void *bytes, size_t length) {
    if (!core_.chosen.trace) {
        return;
    }
    uint32_t digest = 2166136261U; // FNV-1a
    for (size_t index = 0; index < length; ++index) {
        digest = (digest ^ static_cast<const uint8_t *>(bytes)[index]) * 16777619U;
    }
    char note[48];
    std::snprintf(note, sizeof note, " [%zu bytes %08x]", length, digest);
    text_ += note;
}

int64_t call::end(int64_t result) {
    const operation_info &info = operations[static_cast<size_t>(called_)];
    if (core_.chosen.trace) {
        core_.records.trace += std::to_string(core_.threads.now_ms()) + ' ' +
                               core_.threads.self().name + ' ' + text_ + " = " +
                               std::to_string(result) + (fails() ? " (fault)\n" : "\n");
    }
    if (info.noticeable) {
        core_.threads.changed();
    }
    if (info.wakes) {
        core_.threads.point();
    }
    return result;
}

int32_t call::net_error(int32_t code) {
    core_.threads.self().error_code = code;
    errno = errno_of(code);
    return done(-1);
}

int errno_of(int32_t code) {
    switch (code) {
    case KELO_ERR_INTERRUPTED:
        return EINTR;
    case KELO_ERR_WOULD_BLOCK:
    case KELO_ERR_TRY_AGAIN:
        return EAGAIN;
    case KELO_ERR_PEER_CLOSED:
        return 0;
    case KELO_ERR_BAD_SOCKET:
        return EBADF;
    case KELO_ERR_STOPPED:
        return ECANCELED;
    case KELO_ERR_TIMED_OUT:
    case error_no_answer:
        return ETIMEDOUT;
    case error_reset:
        return ECONNRESET;
    case error_address_in_use:
        return EADDRINUSE;
    case error_invalid:
        return EINVAL;
    case error_not_connected:
        return ENOTCONN;
    case error_no_broadcast:
        return EACCES;
    default:
        return EIO;
    }
}

} // namespace sim
