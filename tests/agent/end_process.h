/* The end of a process that leaves out what others have registered for its end. */
#pragma once

#include <unistd.h>

/** Of the coverage counters, null without them. */
extern "C" [[gnu::weak]] int __llvm_profile_write_file();

/** Ends the process at once, as _exit does; only what script/coverage counts is kept. */
[[noreturn]] inline void end_process(int status) {
    if (__llvm_profile_write_file != nullptr) {
        __llvm_profile_write_file();
    }
    _exit(status);
}
