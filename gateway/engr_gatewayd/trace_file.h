// The file of the trace: whole lines, in the order in which they came.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace gatewayd {

/** A trace file. All functions but begin may be called on several threads at once. What cannot be
 * written is dropped: it must not hold the gateway up. */
class trace_file {
  public:
    /** Takes over a descriptor that is open for appending. */
    explicit trace_file(int descriptor);
    trace_file(const trace_file &) = delete;
    trace_file &operator=(const trace_file &) = delete;
    /** Writes the queued lines. */
    ~trace_file();

    /** Starts the thread that writes what write_soon takes. */
    void begin();
    /** Appends a line; it is in the file when the call returns. */
    void write(std::string_view line);
    /** Takes a line that is written at once by a thread of its own, before any line that comes
     * later. Waits for no file. */
    void write_soon(std::string_view line);

  private:
    void append(const std::string &lines) const;
    void write_queued();
    void serve();

    int descriptor_;
    std::mutex file_mutex_;  // held while lines are written, so that they keep their order
    std::mutex queue_mutex_; // guards what follows; held for an instant only
    std::condition_variable changed_;
    std::string queued_; /**< lines that are still to be written */
    bool ends_ = false;
    std::thread writer_;
};

} // namespace gatewayd
