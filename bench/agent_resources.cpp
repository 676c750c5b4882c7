/*
 * What the agent takes of a gateway: objects of the port, heap and stack, on the simulated port;
 * and how much heap a JSON request can take. Prints the tables of docs/resources.md.
 *
 * The linker puts the functions below before those of the port: they count memory, and note how
 * deep each thread's stack is when the agent calls them.
 */
#include "base/json_request.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "platform/message_bus.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "platform/timer.h"
#include "transport/frame_types.h"
#include "upgrade_story.h"

#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <list>
#include <map>

namespace {

/** Bytes in use, and the most there were since the last look. */
struct usage {
    size_t now = 0;
    size_t most = 0;
    void add(size_t bytes) { most = std::max(most, now += bytes); }
};
usage port_heap; // of Malloc
usage json_heap; // of cJSON, with what the C library adds to a block
std::map<void *, size_t> blocks;

/** Stack of one kind of context, in bytes. */
struct stack_use {
    size_t agent = 0; // down to the agent's deepest call of the port or of cJSON
    size_t all = 0;   // down to the last byte that anybody wrote
};
std::map<std::string, stack_use> stacks;

/** The context that runs now; contexts of the simulated port take turns on one thread. */
struct context {
    std::string name;
    const char *base;
};
std::map<uint64_t, context> contexts; // by thread
bool agent_parses = false;

void note_depth() {
    const auto *here = static_cast<const char *>(__builtin_frame_address(0));
    const auto found = contexts.find(GetThrdSelfId());
    if (found != contexts.end() && here < found->second.base) {
        size_t &deepest = stacks[found->second.name].agent;
        deepest = std::max(deepest, static_cast<size_t>(found->second.base - here));
    }
}

constexpr size_t painted_bytes = 192 * 1024;
constexpr size_t unpainted_bytes = 512; // what the painter itself stands on
constexpr char paint = '\x5C';

/** Runs an action on a painted stack. */
[[gnu::noinline]] void measured(const std::string &name, const std::function<void()> &action) {
    const uint64_t self = GetThrdSelfId();
    const bool is_outermost = contexts.count(self) == 0;
    auto *base = static_cast<char *>(__builtin_frame_address(0));
    volatile char *lowest = base - painted_bytes;
    for (volatile char *at = lowest; at < base - unpainted_bytes; ++at) {
        *at = paint;
    }
    if (is_outermost) {
        contexts[self] = {name, base};
    }
    action();
    contexts.erase(self);
    const volatile char *at = lowest;
    while (*at == paint && at < base - unpainted_bytes) {
        ++at;
    }
    size_t &all = stacks[name].all;
    all = std::max(all, static_cast<size_t>(base - at));
}

struct started_thread {
    thrd_entry_t entry;
    void *argument;
    std::string name;
};
std::list<started_thread> threads;
std::string remark; // about the threads that are started from now on

void run_thread(void *argument) {
    const auto &one = *static_cast<const started_thread *>(argument);
    measured("thread " + one.name + remark, [&] { one.entry(one.argument); });
}

std::map<uint16_t, std::pair<sys_timer_callback_t, void *>> timers;
cmmod_callback_t bus_callback;

void run_timer(uint16_t timer, void *) {
    measured("timer callbacks", [&] { timers[timer].first(timer, timers[timer].second); });
}

void run_bus(cmmod_msg_t *message) {
    measured("message-bus callback", [&] { bus_callback(message); });
}

} // namespace

extern "C" {
void *__real_Malloc(size_t size);
void __real_Free(void *block);
int32_t __real_CreateAndStart(thrd_handle_t *handle, thrd_hook_t enter, thrd_hook_t leave,
                              thrd_entry_t entry, void *argument, const thrd_param_t *param);
int32_t __real_sys_add_timer(sys_timer_callback_t callback, void *argument, uint16_t *timer);
int32_t __real_cmmod_reg_msgcb(cmmod_callback_t callback, uint16_t *message);
cJSON *__real_cJSON_ParseWithOpts(const char *text, const char **end, cJSON_bool terminated);

void *__wrap_Malloc(size_t size) {
    void *block = __real_Malloc(size);
    blocks[block] = size;
    port_heap.add(size);
    return block;
}

void __wrap_Free(void *block) {
    const auto found = blocks.find(block);
    if (found != blocks.end()) {
        port_heap.now -= found->second;
        blocks.erase(found);
    }
    __real_Free(block);
}

int32_t __wrap_CreateAndStart(thrd_handle_t *handle, thrd_hook_t enter, thrd_hook_t leave,
                              thrd_entry_t entry, void *argument, const thrd_param_t *param) {
    threads.push_back({entry, argument, param->name});
    return __real_CreateAndStart(handle, enter, leave, run_thread, &threads.back(), param);
}

int32_t __wrap_sys_add_timer(sys_timer_callback_t callback, void *argument, uint16_t *timer) {
    const int32_t result = __real_sys_add_timer(run_timer, nullptr, timer);
    timers[*timer] = {callback, argument};
    return result;
}

int32_t __wrap_cmmod_reg_msgcb(cmmod_callback_t callback, uint16_t *message) {
    bus_callback = callback;
    return __real_cmmod_reg_msgcb(run_bus, message);
}

/** Writing the line is the port's matter. */
void __wrap_PrintLog(int module, int, const char *, int, const char *, const char *, ...) {
    if (module == LOG_MODULE_AGENT) {
        note_depth();
    }
}

cJSON *__wrap_cJSON_ParseWithOpts(const char *text, const char **end, cJSON_bool terminated) {
    agent_parses = true;
    cJSON *parsed = __real_cJSON_ParseWithOpts(text, end, terminated);
    agent_parses = false;
    return parsed;
}
}

namespace {

/** What a block takes of the C library's heap. */
size_t block_bytes(void *block) {
    return malloc_usable_size(block) + sizeof(size_t);
}

void *json_malloc(size_t size) {
    if (agent_parses && sim::world::exists()) {
        note_depth();
    }
    void *block = std::malloc(size);
    json_heap.add(block_bytes(block));
    return block;
}

void json_free(void *block) {
    if (block != nullptr) {
        json_heap.now -= block_bytes(block);
    }
    std::free(block);
}

/** Without what the gateway's services had before. */
void print_in_use(sim::world &world, const char *when, const sim::resources &before,
                  size_t heap_before) {
    const sim::resources used = world.in_use();
    std::printf("| %s | %zu | %zu | %zu | %zu | %zu | %zu |\n", when, used.threads, used.sockets,
                used.timers, used.mutexes - before.mutexes, used.registrations,
                port_heap.now - heap_before);
}

/** The most that an action takes beyond what was in use before. */
void print_peak(const char *what, const std::function<void()> &action) {
    const size_t before = port_heap.now;
    const size_t json_before = json_heap.now;
    port_heap.most = before;
    json_heap.most = json_before;
    action();
    sim::world::current().run_for(20'000); // a large frame takes its time
    std::printf("| %s | %zu | %zu |\n", what, port_heap.most - before,
                json_heap.most - json_before);
}

std::string numbers(size_t count) {
    std::string text = R"({"cid":"","more":[0)";
    for (size_t number = 4; number < count; ++number) {
        text += ",0";
    }
    return text + "]}";
}

std::string site_of(size_t devices) {
    std::string text = R"({"gateway": {"gw_id": "gw0001", "product_key": "pk"}, "devices": [)";
    for (size_t index = 0; index < devices; ++index) {
        text += (index == 0 ? "" : ",") +
                (R"({"dev_id": "device)" + std::to_string(100'000 + index)) +
                R"(", "pid": "p", "state": 1, "online": 1})";
    }
    return text + "]}";
}

int take_credentials(const char *, const char *, const char *) {
    return 0;
}

void show_objects() {
    const working_directory files;
    std::puts(
        "## Objects and heap at rest\n\n"
        "| state | threads | sockets | timers | mutexes | registrations | bytes of `Malloc` |\n"
        "| --- | --- | --- | --- | --- | --- | --- |");
    sim::world world;
    upgrade_gateway gateway(world);
    const sim::resources before = world.in_use();
    const size_t heap_before = port_heap.now;
    measured("application: start, stop, reports", [] { engr_lan_pro_cntl_init(ENGR_MODE_LAN); });
    world.run_until_listening(lan_port);
    world.run_for(6'000);
    print_in_use(world, "started, no app", before, heap_before);
    std::vector<story_app> apps;
    apps.push_back(gateway.connect());
    print_in_use(world, "one app", before, heap_before);
    while (apps.size() < 10) {
        apps.push_back(gateway.connect());
    }
    print_in_use(world, "ten apps", before, heap_before);
    measured("application: start, stop, reports",
             [] { engr_lan_sub_dev_bind_report("lamp", "p1"); });
    lan_dp_report_t report{};
    engr_lan_dp_sata_report(&report, sizeof report);
    world.run_until_idle();
    engr_lan_ap_nw_cfg_start(take_credentials);
    world.run_until_idle();
    world.open_udp(0).send(6669, "too short");
    world.run_until_idle();
    print_in_use(world, "and the access-point listener", before, heap_before);
    engr_lan_ap_nw_cfg_stop();
    apps.front().peer.receive_available();
    begin_upgrade(apps.front(), 8);
    print_in_use(world, "ten apps and an upgrade", before, heap_before);
    for (uint32_t offset = 0; offset < 8; offset += 4) {
        apps.front().ask(FRM_DOWNLOAD_FIRMWARE, chunk(offset, "0123"));
    }
    world.run_for(1'000);
    for (uint32_t fr_type = 1; fr_type < 256; ++fr_type) {
        apps.front().ask(fr_type, R"({"cid":"lamp","devId":"lamp","dps":{"1":true},"id":1})", true);
        apps.front().ask(fr_type, "{}");
    }
    measured("application: start, stop, reports", [] { engr_lan_pro_cntl_exit(); });
    print_in_use(world, "stopped", before, heap_before);
}

void show_peaks() {
    std::puts("\n## Heap at its peak\n\nBeyond what is in use at rest, in bytes.\n\n"
              "| request | `Malloc` | cJSON |\n| --- | --- | --- |");
    constexpr size_t most = 2'098'175 - 24;
    sim::world world;
    {
        upgrade_gateway gateway(world);
        gateway.start();
        story_app app = gateway.connect();
        print_peak("keep-alive", [&] { app.ask(FRM_KEEPALIVE); });
        print_peak("list of 2 devices", [&] { app.ask(FRM_DEV_LIST); });
        print_peak("largest frame, not encrypted",
                   [&] { app.ask(FRM_DEV_LIST, std::string(most, 'x')); });
        print_peak("largest frame, one long text", [&] {
            app.ask(FRM_DEL_SUB_DEV, R"({"cid":")" + std::string(most - 32, 'x') + R"("})", true);
        });
        print_peak("frame of 65,536 numbers",
                   [&] { app.ask(FRM_DEL_SUB_DEV, numbers(65'536), true); });
        app.peer.receive_available();
        service.chunk_size = 0;
        begin_upgrade(app, 2 * 0x80000);
        app.peer.receive_available();
        print_peak("piece of an image, 524,288 bytes",
                   [&] { app.ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, std::string(0x80000, 'i'))); });
        app.ask(FRM_DOWNLOAD_FIRMWARE, chunk(0x80000, std::string(0x80000, 'i')));
        world.run_for(20'000);
    }
    remark = ", a request of 32 levels";
    story_gateway gateway(world, site_of(1000));
    gateway.start();
    story_app app = gateway.connect();
    print_peak("32 levels", [&] {
        app.ask(FRM_DEL_SUB_DEV, R"({"a":)" + std::string(31, '[') + std::string(31, ']') + "}",
                true);
    });
    print_peak("list of 1,000 devices", [&] { app.ask(FRM_DEV_LIST); });
}

void show_stacks() {
    std::puts("\n## Stack\n\n| where | agent, bytes | in all, bytes |\n| --- | --- | --- |");
    for (const auto &[name, use] : stacks) {
        std::printf("| %s | %zu | %zu |\n", name.c_str(), use.agent, use.all);
    }
}

/** Bytes of cJSON's heap for a request that repeats a unit until it has that many bytes. */
size_t heap_for(const std::string &open, const std::string &unit, char close, size_t bytes) {
    std::string text = open;
    while (text.size() + unit.size() + 1 <= bytes) {
        text += (text == open ? "" : ",") + unit;
    }
    text += close;
    json_heap.most = json_heap.now;
    const size_t before = json_heap.now;
    const json_request parsed(text.c_str());
    return parsed ? json_heap.most - before : 0;
}

/** Every list of up to three elements, and every object of up to two members, of the shortest
 * values of each kind. */
void show_shapes() {
    const std::vector<std::string> values = {
        "0",     "\"\"", "[]",   "{}",       "null",
        "\"a\"", "[0]",  "[[]]", "{\"\":0}", "\"aaaaaaaaaaaaaaaaaaaaaaaaa\""};
    const std::vector<std::string> names = {"\"\":", "\"a\":", "\"aaaaaaaaaaaaaaaaaaaaaaaaa\":"};
    std::vector<std::pair<std::string, std::string>> shapes; // opening bracket, unit
    for (const std::string &a : values) {
        for (const std::string &b : values) {
            shapes.emplace_back("[", a == b ? a : a + "," + b);
            for (const std::string &name : names) {
                shapes.emplace_back("{", name + a);
                for (const std::string &other : names) {
                    shapes.emplace_back("{", name + a + "," + other + b);
                }
            }
        }
    }
    std::printf(
        "\n## Heap of a JSON request\n\nWorst of %zu shapes, each repeated until the request has "
        "its size.\n\n"
        "| request, bytes | cJSON, bytes | for each byte | shape |\n| --- | --- | --- | --- |\n",
        shapes.size());
    for (const size_t bytes : {1'024U, 16'384U, 131'072U, 524'288U, 2'098'151U}) {
        size_t worst = 0;
        std::string worst_shape;
        for (const auto &[open, unit] : shapes) {
            const size_t heap = heap_for(open, unit, open == "[" ? ']' : '}', bytes);
            if (heap > worst) {
                worst = heap;
                worst_shape = open + unit;
            }
        }
        std::printf("| %zu | %zu | %.1f | `%s,...` |\n", bytes, worst,
                    static_cast<double>(worst) / static_cast<double>(bytes), worst_shape.c_str());
    }
}

} // namespace

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    cJSON_Hooks hooks{json_malloc, json_free};
    cJSON_InitHooks(&hooks);
    show_objects();
    show_peaks();
    show_stacks();
    show_shapes();
    return 0;
}
