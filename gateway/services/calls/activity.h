// What the gateway does at the wish of apps and by itself, in words for whoever watches it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/** See open_options. */
void activity_init(std::function<void(std::string_view)> sink,
                   std::function<std::string()> app_of_calling_thread);
/** Nobody is told any more. */
void activity_shutdown();

/** The app whose request the calling thread serves, "an app" when it is not known. */
std::string asking_app();

/**
 * Tells what the app did whose request the calling thread serves. Any thread; mutexes may be held.
 *
 * @param deed  goes on behind its address, as in "set the channel to 14"
 */
void tell_deed(std::string_view deed);

/**
 * Whether work has passed a quarter that was not told yet; its end is none.
 *
 * @param told  quarters that were told; becomes the new one
 */
bool pass_quarter(uint32_t done, uint32_t whole, uint32_t &told);

/** Devices in words: "device a", "devices a, b and c", and of many how many more there are. */
std::string listed(const std::vector<std::string> &dev_ids);

/** Tells that the app of the calling thread was refused, or, without one, that something failed. */
void tell_refusal(std::string_view reason);

/** Tells what happened, in a whole sentence without full stop. Any thread; mutexes may be held. */
void tell_event(std::string_view sentence);

} // namespace gateway
