/* The heap: every block is recorded, so that leaks, double and foreign releases are detected. */
#include "core.h"
#include "sanitizer.h"

#include "platform/memory.h"

#include <cstdlib>
#include <cstring>

namespace {

/** Most bytes in use; beyond these Malloc returns null. */
constexpr size_t heap_bytes_max = 64 * 1024 * 1024;
constexpr unsigned char fresh_fill = 0xA5;
#ifdef SIM_ADDRESS_SANITIZER
constexpr size_t tail_bytes = 0; // the sanitizer detects every overrun at once
#else
constexpr unsigned char tail_fill = 0xFD;
constexpr unsigned char freed_fill = 0xDD;
constexpr size_t tail_bytes = 16;
#endif

/** Fills a block that is about to be released; false when there was a write beyond its end. */
[[nodiscard]] bool retire([[maybe_unused]] void *block, [[maybe_unused]] size_t size) {
    bool whole = true;
#ifndef SIM_ADDRESS_SANITIZER
    const auto *tail = static_cast<const unsigned char *>(block) + size;
    for (size_t index = 0; index < tail_bytes; ++index) {
        whole = whole && tail[index] == tail_fill;
    }
    std::memset(block, freed_fill, size);
#endif
    return whole;
}

} // namespace

void *Malloc(size_t size) {
    sim::call call(sim::operation::Malloc, {static_cast<int64_t>(size)});
    sim::core &core = sim::current_core();
    if (call.fails() || size > heap_bytes_max - core.heap.bytes) {
        call.end(0);
        return nullptr;
    }
    void *block = std::malloc(size + tail_bytes + (size + tail_bytes == 0 ? 1 : 0));
    if (block == nullptr) {
        core.fatal("the machine has no memory for the simulated heap");
    }
    std::memset(block, fresh_fill, size);
#ifndef SIM_ADDRESS_SANITIZER
    std::memset(static_cast<char *>(block) + size, tail_fill, tail_bytes);
#endif
    const uint64_t number = core.records.counts[static_cast<size_t>(sim::operation::Malloc)];
    core.heap.blocks[block] = {.size = size,
                               .number = number,
                               .time_ms = core.threads.now_ms(),
                               .maker = core.threads.self().name};
    core.heap.bytes += size;
    call.end(static_cast<int64_t>(number));
    return block;
}

void Free(void *block) {
    if (block == nullptr) {
        return;
    }
    sim::call call(sim::operation::Free);
    sim::core &core = sim::current_core();
    const auto found = core.heap.blocks.find(block);
    if (found == core.heap.blocks.end()) {
        core.problem("Free of memory that is not in use: released before, or not from Malloc");
        call.end(-1);
        return;
    }
    const sim::heap_record record = std::move(found->second);
    core.heap.blocks.erase(found);
    core.heap.bytes -= record.size;
    if (!retire(block, record.size)) {
        core.problem(
            "bytes behind the end of a block were overwritten: " + std::to_string(record.size) +
            " bytes from call " + std::to_string(record.number) + " of Malloc, by " + record.maker);
    }
    std::free(block);
    call.end(static_cast<int64_t>(record.number));
}
