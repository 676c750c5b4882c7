/* Common part of every contract call: count, scheduling point, fault, trace. */
#pragma once

#include "sim/world.h"

#include <array>
#include <cstdint>
#include <deque>
#include <initializer_list>
#include <string>
#include <string_view>

namespace sim {

struct core;

/* NAME, whether other threads can notice it (else it is quiet), whether it may let another thread
 * go on. */
#define SIM_OPERATIONS(X)                                                                          \
    X(Malloc, false, false)                                                                        \
    X(Free, false, false)                                                                          \
    X(PrintLog, false, false)                                                                      \
    X(uni_time_get_posix, false, false)                                                            \
    X(kelo_hal_system_sleep, true, false)                                                          \
    X(kelo_hal_system_delay, true, false)                                                          \
    X(kelo_hal_critical_section_enter, true, false)                                                \
    X(kelo_hal_critical_section_leave, false, true)                                                \
    X(CreateAndStart, true, true)                                                                  \
    X(GetThrdSta, true, false)                                                                     \
    X(DeleteThrdHandle, true, true)                                                                \
    X(GetThrdSelfId, false, false)                                                                 \
    X(kelo_hal_mutex_create_init, true, false)                                                     \
    X(kelo_hal_mutex_lock, true, false)                                                            \
    X(kelo_hal_mutex_unlock, true, true)                                                           \
    X(kelo_hal_mutex_release, true, false)                                                         \
    X(sys_add_timer, true, false)                                                                  \
    X(sys_start_timer, true, false)                                                                \
    X(sys_stop_timer, true, false)                                                                 \
    X(sys_delete_timer, true, false)                                                               \
    X(IsThisSysTimerRun, true, false)                                                              \
    X(cmmod_reg_msgcb, true, true)                                                                 \
    X(cmmod_unreg_msgcb, true, false)                                                              \
    X(cmmod_post_msg, true, true)                                                                  \
    X(put_rfc_data, false, false)                                                                  \
    X(kelo_hal_net_select, true, false)                                                            \
    X(kelo_hal_net_socket_create, true, false)                                                     \
    X(kelo_hal_net_close, true, true)                                                              \
    X(kelo_hal_net_shutdown, true, true)                                                           \
    X(kelo_hal_net_set_bufsize, true, false)                                                       \
    X(kelo_hal_net_set_reuse, true, false)                                                         \
    X(kelo_hal_net_set_cloexec, true, false)                                                       \
    X(kelo_hal_net_set_boardcast, true, false)                                                     \
    X(kelo_hal_net_set_block, true, false)                                                         \
    X(kelo_hal_net_set_keepalive, true, false)                                                     \
    X(kelo_hal_net_bind, true, false)                                                              \
    X(kelo_hal_net_socket_bind, true, false)                                                       \
    X(kelo_hal_net_listen, true, true)                                                             \
    X(kelo_hal_net_accept, true, false)                                                            \
    X(kelo_hal_net_recv, true, false)                                                              \
    X(kelo_hal_net_recvfrom, true, false)                                                          \
    X(kelo_hal_net_send, true, true)                                                               \
    X(kelo_hal_net_send_to, true, true)                                                            \
    X(kelo_hal_net_get_errno, false, false)                                                        \
    X(engr_file_open, true, false)                                                                 \
    X(engr_file_create, true, false)                                                               \
    X(engr_file_read, true, false)                                                                 \
    X(engr_file_write, true, false)                                                                \
    X(engr_file_close, true, false)                                                                \
    X(engr_file_size, true, false)                                                                 \
    X(engr_file_remove, true, false)

enum class operation : uint8_t {
#define X(name, noticeable, wakes) name,
    SIM_OPERATIONS(X)
#undef X
};

struct operation_info {
    std::string_view name;
    bool noticeable;
    bool wakes;
};

inline constexpr operation_info operations[] = {
#define X(name, noticeable, wakes) {#name, noticeable, wakes},
    SIM_OPERATIONS(X)
#undef X
};
constexpr size_t operation_count = std::size(operations);

/** The operation of a name; an unknown name ends the process, since the test is wrong then. */
operation operation_named(std::string_view name);

/** One fault that a test set. */
struct fault {
    operation target;
    trigger when;
    failure how;
    uint64_t met = 0; /**< calls of the operation since it was set */
    uint64_t strikes = 0;
    bool active = true;
    bool may_stay_unreached = false; /**< for_each_nth_failure: the last run meets none */
};

/** Faults and counts of a world. */
struct call_records {
    std::array<uint64_t, operation_count> counts = {};
    std::deque<fault> faults; /**< a deque, since a failing call keeps a pointer to its fault */
    size_t active_faults = 0;
    std::string trace;
};

/** One contract call, from its beginning to its end. */
class call {
  public:
    /** Counts the call and lets another thread go on before it takes effect. */
    explicit call(operation called, std::initializer_list<int64_t> arguments = {});
    call(const call &) = delete;
    call &operator=(const call &) = delete;

    /** Whether a fault makes this call fail; it then has no effect and returns failed(). */
    [[nodiscard]] bool fails() const {
        return strike_ != nullptr && strike_->how.partial_bytes < 0;
    }
    /** Result of a call that fails. */
    int32_t failed() { return static_cast<int32_t>(end(strike_->how.result)); }
    /** How many of that many bytes to transfer: all of them, unless a fault makes it fewer. */
    [[nodiscard]] size_t part_of(size_t bytes) const;
    /** Adds the bytes that went in or out to the trace. */
    void note(const void *bytes, size_t length);
    void note(std::string_view text) { note(text.data(), text.size()); }
    /**
     * Ends the call: others may notice its effect now.
     *
     * @return result
     */
    int64_t end(int64_t result);
    int32_t done(int64_t result) { return static_cast<int32_t>(end(result)); }
    /**
     * Ends the call with an error code of sockets.
     *
     * @return -1
     */
    int32_t net_error(int32_t code);

  private:
    fault *find_strike();

    core &core_;
    operation called_;
    fault *strike_ = nullptr;
    std::string text_;
};

} // namespace sim
