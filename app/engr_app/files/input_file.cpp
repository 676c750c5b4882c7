#include "files/input_file.h"

#include "base/failure.h"
#include "support/files.h"
#include "support/input_error.h"

#include <unistd.h>

namespace engr_app {
namespace {

/** Turns what is wrong with a file into a failure that a script can tell from others. */
template <typename Reading>
std::string read_input(const Reading &reading) {
    try {
        return reading();
    } catch (const support::input_error &error) {
        throw failure("input", error.what());
    }
}

} // namespace

const std::string &standard_input() {
    static const std::string text =
        read_input([] { return support::read_descriptor(STDIN_FILENO, "standard input"); });
    return text;
}

std::string file_text(const std::string &path) {
    return path == "-" ? standard_input() : read_input([&] { return support::read_file(path); });
}

} // namespace engr_app
