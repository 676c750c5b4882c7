// The thread of a handle.
#include "handle.h"

#include <chrono>
#include <exception>

#include <pthread.h>
#include <signal.h>

void engr_client::start() {
    // Signals are for the threads of the program, not for this one.
    sigset_t all{};
    sigset_t before{};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        runner_ = std::thread([this] { run(); });
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void engr_client::run() {
    while (!stopping_) {
        loop.run_until([this] { return stopping_; }, std::chrono::hours(1));
    }
}

void engr_client::stop() {
    if (runner_.joinable()) {
        loop.post([this] { stopping_ = true; });
        runner_.join();
    }
}
