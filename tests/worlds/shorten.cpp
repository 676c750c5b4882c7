/* Shorter stories with the same kind of problem. */
#include "telling.h"

#include <algorithm>
#include <functional>

namespace worlds {

namespace {

/** Without a part the threads meet at other moments: the problem may need another schedule. */
constexpr uint64_t schedules_tried = 20;

class shortener {
  public:
    explicit shortener(const story &told) : best_(told), kind_(tell(told).kind()) {}

    /** Drops actors, then runs of steps, each half as long as before; then pauses. */
    story run() {
        for (size_t before = SIZE_MAX; best_.step_count() < before;) {
            before = best_.step_count();
            drop_actors();
            drop_steps();
        }
        drop_pauses();
        return best_;
    }

  private:
    /** Takes the changed story when it has the problem. */
    bool take_if_it_fails(const std::function<void(story &)> &change) {
        story changed = best_;
        change(changed);
        for (uint64_t tried = 0; tried <= schedules_tried; ++tried) {
            if (tried != 0) {
                changed.seed = tried;
            }
            if (tell(changed).kind() == kind_) {
                best_ = changed;
                return true;
            }
        }
        return false;
    }

    void drop_actors() {
        for (size_t at = best_.actors.size(); at > 0; --at) {
            take_if_it_fails([&](story &changed) {
                changed.actors.erase(changed.actors.begin() + static_cast<ptrdiff_t>(at - 1));
            });
        }
    }

    void drop_steps() {
        for (size_t of = 0; of < best_.actors.size(); ++of) {
            for (size_t length = best_.actors[of].steps.size(); length > 0; length /= 2) {
                for (size_t at = 0; at + length <= best_.actors[of].steps.size();) {
                    const bool dropped = take_if_it_fails([&](story &changed) {
                        auto &steps = changed.actors[of].steps;
                        const auto first = steps.begin() + static_cast<ptrdiff_t>(at);
                        steps.erase(first, first + static_cast<ptrdiff_t>(length));
                    });
                    at += dropped ? 0 : length;
                }
            }
        }
    }

    void drop_pauses() {
        for (size_t of = 0; of < best_.actors.size(); ++of) {
            for (size_t at = 0; at < best_.actors[of].steps.size(); ++at) {
                if (best_.actors[of].steps[at].pause_ms != 0) {
                    take_if_it_fails(
                        [&](story &changed) { changed.actors[of].steps[at].pause_ms = 0; });
                }
            }
        }
    }

    story best_;
    std::string kind_;
};

} // namespace

story shorten(const story &told) {
    return shortener(told).run();
}

} // namespace worlds
