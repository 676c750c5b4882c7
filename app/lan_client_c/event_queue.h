// The events of a handle: added on the loop's thread, taken on the caller's.
#pragma once

#include "engr_lan_client.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

namespace lan_client_c {

/** An event with the texts that it points to. */
struct owned_event : engr_client_event {
    explicit owned_event(engr_client_event_kind kind_of_event);
    owned_event(const owned_event &) = delete;
    owned_event &operator=(const owned_event &) = delete;

    void set_error(engr_client_error why, std::string text);
    void set_payload(std::string bytes);
    void set_address(std::string text);

    /** The texts of `content` must be set before. */
    void set_announcement(engr_client_announcement content);

    std::string id_text;
    std::string product_key_text;
    std::string version_text;
    std::string interface_text;

  private:
    std::string error_text_;
    std::string payload_;
    std::string address_;
    engr_client_announcement announcement_{};
};

/** Most answers that wait to be taken or are still to come. */
inline constexpr std::size_t max_open_answers = 4096;

/**
 * A queue whose descriptor is readable while an event waits. Answers are never dropped; of the rest
 * the oldest go when there are more than lan_client::max_kept_reports of them, or
 * max_kept_report_bytes.
 */
class event_queue {
  public:
    /** Throws std::system_error when the system has no descriptor left. */
    event_queue();
    ~event_queue();
    event_queue(const event_queue &) = delete;
    event_queue &operator=(const event_queue &) = delete;

    [[nodiscard]] int descriptor() const { return descriptor_; }

    /** Makes room for one more answer; false when too many are open. Any thread, as all of it. */
    [[nodiscard]] bool reserve_answer();
    /** An answer that room was made for will not come. */
    void give_back_answer();

    void add(std::unique_ptr<owned_event> added);

    /** The oldest event, or null. */
    [[nodiscard]] std::unique_ptr<owned_event> take();

  private:
    void drop_oldest();
    bool replace_progress(std::unique_ptr<owned_event> &added);

    std::mutex mutex_;
    int descriptor_;
    std::deque<std::unique_ptr<owned_event>> events_;
    std::size_t open_answers_ = 0;
    std::size_t droppable_ = 0;
    std::size_t droppable_bytes_ = 0;
    uint32_t dropped_ = 0;
};

} // namespace lan_client_c
