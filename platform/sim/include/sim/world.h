/*
 * The simulated port: one process in which the test owns clock, network, scheduler and heap.
 *
 * How a test is written. Making a sim::world turns the code that makes it into the simulated thread
 * "main": it may call every contract function and every blocking function built on them directly,
 * in straight lines:
 *
 *     sim::world world({.seed = 7});
 *     engr_lan_pro_cntl_init(0);                      // starts simulated threads
 *     world.run_until_listening(6668);
 *     sim::peer app = world.connect(6668);            // the other end of a connection is the test
 *     app.send(frame);
 *     std::string reply = app.receive(28);            // others run, time passes
 *     world.run_for(119'000);
 *     engr_lan_pro_cntl_exit();
 *     world.finish();                                 // reports whatever is left over
 *
 * Threads are fibers of which one runs at a time. Every contract call, of main too, is a point at
 * which a chooser may let another thread go on. Time moves only when no thread can run, and then
 * jumps to the next wake-up. With the same options and the same build a world does the same, to the
 * letter of its log and trace.
 *
 * Problems (leaks, faults never reached, misuse of a contract) are collected and returned by
 * finish(). Problems after which nothing can go on (deadlock, livelock, hang) end a story of
 * explore.h; in a world that a test made itself they end the process with a report. GoogleTest
 * fixtures are in sim/testing.h.
 *
 * One world at a time may exist, and all of its functions are called by simulated threads of it,
 * main included.
 */
#pragma once

#include "sim/logbook.h"
#include "sim/peers.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct kelo_thread;

namespace sim {

struct core;
class chooser;

/** Options of a world. The seed decides everything that the others leave to chance. */
struct options {
    uint64_t seed = 1;
    /** Decisions of the scheduler to repeat, as run_result::decisions has them; empty: the seed
     * decides. */
    std::string decisions = {};
    /** Time of day at the start, seconds since 1970. */
    uint32_t posix_s = 1'700'000'000;
    /** Records every contract call for trace_text(). */
    bool trace = false;
    /**
     * true: every contract call is a scheduling point. false: only those that another thread can
     * notice, not those of heap, log, clock and error code; makes systematic searches shorter.
     */
    bool quiet_points = true;
    /** false: PrintLog formats its lines, but log() stays empty, which takes less time. */
    bool keeps_log = true;
    /** Address of the gateway, host byte order: where a socket bound to any address is reached. */
    uint32_t gateway_address = 0xC0A80101;
    /** Behaviour of new connections; each can be changed later through peer::link(). */
    stream_link streams = {};
    /** Behaviour of UDP, see also world::datagrams(). */
    datagram_link datagrams =
        {}; /** Most scheduling points without time passing; more are a livelock. */
    uint64_t steps_without_time_max = 2'000'000;
    /** Longest wait for a mutex or for the end of a thread or callback; a longer one is a hang. */
    uint64_t untimed_wait_ms_max = 600'000;
};

/** Takes seed, decisions and trace from ENGR_SIM_SEED, ENGR_SIM_DECISIONS and ENGR_SIM_TRACE where
 * these are set. */
[[nodiscard]] options with_environment(options chosen = {});

/** Which calls fail, counted in calls of the operation since the fault was set. */
struct trigger {
    uint64_t first = 1;   /**< first call that may fail, from 1 */
    bool lasting = false; /**< all calls from there on, else that one alone */
    double odds = 1.0;    /**< chance of each of these calls */
};
/** The n-th call alone. */
constexpr trigger nth(uint64_t n) {
    return {.first = n};
}
/** The n-th call and all after it. */
constexpr trigger from_nth(uint64_t n) {
    return {.first = n, .lasting = true};
}
/** All calls. */
constexpr trigger every() {
    return from_nth(1);
}
/** Each call with a chance of p (0 to 1). */
constexpr trigger odds(double p) {
    return {.lasting = true, .odds = p};
}

/** What a failing call does. */
struct failure {
    /** What the call returns; ignored by Malloc (returns null) and, with partial_bytes, by
     * transfers. */
    int64_t result = -1;
    /** Error code of the calling thread afterwards (socket operations only). */
    int32_t error_code = -199;
    /** 0 or more: send, recv, recvfrom and reads and writes of files really transfer at most so
     * many bytes and return that count instead of failing. */
    int64_t partial_bytes = -1;
    /** Only calls of threads of this name count and fail; empty: of all. */
    std::string thread = {};
};

/** Names one fault of a world. */
using fault_id = size_t;

/** Resources in use. */
struct resources {
    size_t memory_blocks = 0;
    size_t memory_bytes = 0;
    size_t sockets = 0;
    size_t threads = 0; /**< handles not yet deleted */
    size_t timers = 0;
    size_t mutexes = 0;
    size_t held_mutexes = 0;
    size_t registrations = 0;  /**< of the message bus */
    size_t message_blocks = 0; /**< of the message bus */
    size_t files = 0;          /**< open ones */
    bool operator==(const resources &) const = default;
};

/** A thread of the test. It must be joined (the destructor does) before its captures end. */
class test_thread {
  public:
    test_thread(test_thread &&other) noexcept : started_(std::exchange(other.started_, nullptr)) {}
    test_thread &operator=(test_thread &&) = delete;
    ~test_thread() { join(); }
    /** Waits for the end of its function. */
    void join();
    /** Whether its function has returned. */
    [[nodiscard]] bool ended() const;

  private:
    friend class world;
    explicit test_thread(kelo_thread &started) : started_(&started) {}
    kelo_thread *started_;
};

/** One simulated gateway's platform. */
class world {
  public:
    /** Default bound of waits in a test, virtual time. */
    static constexpr uint64_t default_limit_ms = 60'000;

    explicit world(options chosen = {});
    /** Calls finish() unless the test did; problems that were not collected then end the process
     * with a report. */
    ~world();
    world(const world &) = delete;
    world &operator=(const world &) = delete;

    /** The world that exists; there must be one. */
    static world &current();
    /** Whether one exists. */
    static bool exists();

    /** Milliseconds since the start. */
    [[nodiscard]] uint64_t now_ms() const;
    /** Lets the other threads run for so long, including what they do at the last moment. */
    void run_for(uint64_t milliseconds);
    /** Lets the others run until the condition holds; false when the limit is over first. The
     * condition must not block. */
    bool run_until(const std::function<bool()> &condition, uint64_t limit_ms = default_limit_ms);
    /** Lets the others run until all of them wait for time to pass. */
    void run_until_idle();
    /** Time of day, seconds since 1970. */
    [[nodiscard]] uint32_t posix_s() const;
    /** Moves the time of day by so many seconds, either way; timers and sleeps don't notice. */
    void jump_posix(int64_t seconds);

    /** Starts a thread of the test. */
    test_thread spawn(std::string name, std::function<void()> function);

    /** Connects to a listening TCP port of the gateway, from an address of its own; tests false
     * when refused. */
    peer connect(uint16_t port);
    /** Whether a TCP socket listens at the port. */
    [[nodiscard]] bool listens(uint16_t port) const;
    bool run_until_listening(uint16_t port, uint64_t limit_ms = default_limit_ms);
    /** Opens a UDP socket of the test on the network, at a port (0: one of its own). Broadcasts to
     * the port reach it. */
    udp_peer open_udp(uint16_t port = 0);
    /** Loss, doubling and delay of datagrams; may be changed at any time. */
    datagram_link &datagrams();
    /** Puts the listening TCP socket of a port into an exceptional condition, as select reports it,
     * until its close. */
    void break_listener(uint16_t port);

    /**
     * Makes calls of an operation fail. A fault that never struck is a problem of the world unless
     * it was cleared.
     *
     * @param operation  name of the contract function, e.g. "Malloc"; an unknown one ends the
     *     process
     */
    fault_id fail(std::string_view operation, trigger when, failure how = {});
    /** Removes one fault, reached or not. */
    void clear(fault_id fault);
    /** Removes all faults, reached or not. */
    void clear_faults();
    /** How many calls a fault made fail. */
    [[nodiscard]] uint64_t strikes(fault_id fault) const;
    /** How often an operation was called. */
    [[nodiscard]] uint64_t calls(std::string_view operation) const;

    /** Every line of PrintLog. */
    [[nodiscard]] logbook &log();
    /** Resources in use. */
    [[nodiscard]] resources in_use() const;

    /** Adds a problem, as a test's own invariant may. */
    void problem(std::string text);
    /**
     * Ends the world: main makes no contract calls afterwards. Whatever is left over becomes a
     * problem.
     *
     * @return all problems, in the order in which they were found; empty when all is well
     */
    const std::vector<std::string> &finish();

    [[nodiscard]] uint64_t seed() const;
    /** Scheduling points so far. */
    [[nodiscard]] uint64_t steps() const;
    /** All contract calls so far, one a line (options::trace). */
    [[nodiscard]] std::string trace_text() const;

  private:
    friend core &core_of(world &of);
    friend std::unique_ptr<world> make_world(options with, std::unique_ptr<chooser> decides);
    world(options chosen, std::unique_ptr<chooser> decides);

    std::unique_ptr<core> core_;
};

} // namespace sim
