/*
 * How a world makes its choices: at random, from a recorded list, or by a search through all
 * possibilities.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

/** Random numbers of our own, so that they are the same with every library (splitmix64). */
class random_source {
  public:
    explicit random_source(uint64_t seed) : state_(seed) {}
    uint64_t next();
    /** 0 to bound - 1; bound above 0. */
    uint64_t below(uint64_t bound) { return next() % bound; }
    /** min to max, both included. */
    uint64_t between(uint64_t min, uint64_t max) { return min + below(max - min + 1); }
    /** True with that chance; draws nothing when it is 0 or 1. */
    bool chance(double odds);

  private:
    uint64_t state_;
};

/** Chooses among threads that can run. */
class chooser {
  public:
    virtual ~chooser() = default;
    /**
     * @param count      candidates, at least 2
     * @param preempted  whether the first one is the running thread, so that choosing another
     *     preempts it
     * @return index of the one to go on
     */
    virtual size_t choose(size_t count, bool preempted) = 0;
    /** For a search of a part of the story: whether that part is under way. */
    virtual void race(bool) {}
};

/** Chooses at random. The rate of preemptions is random too, since some faults need many and some
 * need few. */
class seeded_chooser final : public chooser {
  public:
    explicit seeded_chooser(uint64_t seed);
    size_t choose(size_t count, bool preempted) override;

  private:
    random_source random_;
    uint64_t stay_of_64_;
};

/** Repeats recorded decisions; afterwards the running thread keeps running. */
class recorded_chooser final : public chooser {
  public:
    explicit recorded_chooser(std::string decisions) : decisions_(std::move(decisions)) {}
    size_t choose(size_t count, bool preempted) override;

  private:
    std::string decisions_;
    size_t next_ = 0;
};

/** Position of a depth-first search through all schedules, kept from run to run. */
class schedule_search {
  public:
    /** @param whole_story  false: only what is between race(true) and race(false) is searched */
    schedule_search(uint32_t preemptions_max, bool whole_story)
        : preemptions_max_(preemptions_max), whole_story_(whole_story) {}
    /** Starts a run from the top. */
    void begin_run();
    /** Moves to the next schedule; false when there is none. */
    bool next_schedule();
    size_t choose(size_t count, bool preempted);
    void race(bool begins) { searches_ = whole_story_ || begins; }

  private:
    struct decision {
        uint8_t chosen;
        uint8_t count;
    };
    std::vector<decision> path_;
    size_t depth_ = 0;
    uint32_t preemptions_ = 0;
    uint32_t preemptions_max_;
    bool whole_story_;
    bool searches_ = true;
};

/** One run of a search. */
class searching_chooser final : public chooser {
  public:
    explicit searching_chooser(schedule_search &search) : search_(search) {}
    size_t choose(size_t count, bool preempted) override {
        return search_.choose(count, preempted);
    }
    void race(bool begins) override { search_.race(begins); }

  private:
    schedule_search &search_;
};

/** Most candidates at one point: a decision is one digit of base 36. */
constexpr size_t candidates_max = 36;
/** Decisions as text, one digit each. */
char decision_digit(size_t index);

} // namespace sim
