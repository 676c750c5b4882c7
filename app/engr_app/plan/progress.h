// What was sent of a plan, for what no gateway lets an app read back.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/**
 * A private file beside the plan. It is replaced atomically at each change, so that a kill at any
 * moment loses at most the note of what was being sent, which is then sent once more. It holds no
 * content, only salted fingerprints of it. Its functions may be called on any thread.
 */
class plan_progress {
  public:
    /** Reads the file if there is one. @throws failure of wrong usage when it is something else */
    explicit plan_progress(std::string path);
    plan_progress(const plan_progress &) = delete;
    plan_progress &operator=(const plan_progress &) = delete;
    ~plan_progress();

    /**
     * Says which gateway a name of the plan stands for now. When it was another one before, all
     * that was noted under the name is forgotten.
     *
     * @param id  empty: not known
     */
    void identify(const std::string &gateway, const std::string &id);

    /** @return whether exactly this content was sent last */
    [[nodiscard]] bool was_sent(const std::string &gateway, const std::string &item,
                                const std::string &content) const;

    /** Notes what was sent. @throws failure when the file can't be written */
    void note_sent(const std::string &gateway, const std::string &item, const std::string &content);

    /** Forgets what was sent, since it may be gone. @throws failure when it can't be written */
    void forget(const std::string &gateway, const std::string &item);

    /** @return seconds since 1970: now, but later than any given out for this gateway before */
    [[nodiscard]] int64_t next_time(const std::string &gateway);

  private:
    [[nodiscard]] std::string fingerprint(const std::string &item,
                                          const std::string &content) const;
    void write() const;

    const std::string path_;
    mutable std::mutex mutex_;
    std::unique_ptr<nlohmann::json> noted_;
};

} // namespace engr_app
