// The error of input that can never be right, whatever state the program is in.
#pragma once

#include <stdexcept>

namespace support {

/** An unknown name, a malformed value, a faulty file. The message says where and what is wrong. */
class input_error : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace support
