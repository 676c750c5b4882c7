// The console of a running gateway, when the command line asks for one.
#pragma once

#include "options.h"

#include <memory>
#include <string>

namespace console {
class live_console;
}

namespace gatewayd {

/** Lets the console that will be opened have what happens; before begin_happenings. Without an open
 * console nothing is kept. */
void listen_for_console();

/** An open console, or none. */
class console_output {
  public:
    /**
     * Takes the console's address, if one is wanted.
     *
     * @throws std::runtime_error that names the address, when it cannot be had
     */
    explicit console_output(const options &chosen);
    /** Disconnects its browsers; a line that is being carried out is finished, its waits cut
     * short. */
    ~console_output();
    console_output(const console_output &) = delete;
    console_output &operator=(const console_output &) = delete;

    /** Address of the page with its token; empty without a console. */
    [[nodiscard]] std::string page_address() const;
    /** Begins to serve; the gateway is open. */
    void begin();

  private:
    std::unique_ptr<console::live_console> console_;
};

} // namespace gatewayd
