// The events of a run, on their way from the threads where they happen to the browsers.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace console {

/** An event, with its number. */
struct numbered_event {
    uint64_t id;
    std::string text; /**< a JSON object */
};

/** What an intake hands over. */
struct taken_events {
    std::vector<numbered_event> events; /**< in the order of their numbers, with gaps where others
                                             were only counted */
    uint64_t next_id;                   /**< of the next event that comes */
};

/** Events on their way to the console's thread. All functions on any thread; none waits. */
class event_intake {
  public:
    /**
     * Takes an event, or counts it only when too many wait.
     *
     * @return whether it is the first one since take
     */
    bool add(std::string text);
    /** The waiting events. */
    taken_events take();

  private:
    std::mutex mutex_; // guards what follows
    std::vector<numbered_event> waiting_;
    std::size_t bytes_ = 0;
    uint64_t next_id_ = 1;
};

/** Where a browser stands in the history. */
struct event_cursor {
    uint64_t next_id = 1; /**< the first event that it has not got */
    uint64_t dropped = 0; /**< events that it will never get, and has not been told of */
};

/** The newest events as texts; older ones make room. One thread. */
class event_history {
  public:
    /** Appends events; the id of each becomes its first member. */
    void add(taken_events taken);

    /** A cursor before the newest events, at most so many. */
    [[nodiscard]] event_cursor newest(std::size_t count) const;

    /**
     * The next events for a browser, as the elements of a JSON array; empty when there are none.
     * Events that have been forgotten, or were never kept, are counted as dropped.
     */
    std::string next(event_cursor &cursor) const;

  private:
    void add(numbered_event event);

    uint64_t next_id_ = 1;
    std::deque<numbered_event> entries_;
    std::size_t bytes_ = 0;
};

} // namespace console
