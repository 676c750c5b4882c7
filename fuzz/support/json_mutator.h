// Mutations that keep JSON valid, for readers that would refuse almost all that libFuzzer makes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace fuzz {

/**
 * For LLVMFuzzerCustomMutator: takes one line of the input and changes a value, a member or an
 * element of the JSON that begins with its first brace or bracket. Half of the time, and where
 * there is no JSON, libFuzzer's own mutations are used.
 *
 * @return the new size, at most `most`
 */
size_t mutate_json_line(uint8_t *data, size_t size, size_t most, unsigned seed);

} // namespace fuzz
