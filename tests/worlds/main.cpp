/* engr_worlds: random worlds from seeds. */
#include "telling.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr const char *usage =
    "usage: engr_worlds [--first SEED] [--seeds COUNT]   COUNT worlds from SEED on (1, 100)\n"
    "       engr_worlds --seed SEED                      one world, with its story and log\n"
    "A world with a problem is told again, shortened as far as the problem allows.\n";

/** Tells what is wrong, with the shortest story found. Returns the exit code. */
int show_failure(const worlds::story &told, const worlds::telling &found) {
    std::printf("seed %llu, %zu steps:\n%s", static_cast<unsigned long long>(told.seed),
                told.step_count(), found.problems.c_str());
    const worlds::story shorter = worlds::shorten(told);
    const worlds::telling again = worlds::tell(shorter);
    std::printf("shortened to %zu steps:\n%s%slast lines of its log:\n%s", shorter.step_count(),
                worlds::words_of(shorter).c_str(), again.problems.c_str(), again.log.c_str());
    return 1;
}

int run_seeds(uint64_t first, uint64_t count) {
    for (uint64_t seed = first; seed < first + count; ++seed) {
        const worlds::story told = worlds::make_story(seed);
        const worlds::telling found = worlds::tell(told);
        if (!found.problems.empty()) {
            return show_failure(told, found);
        }
    }
    std::printf("%llu worlds, no problem\n", static_cast<unsigned long long>(count));
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    uint64_t first = 1;
    uint64_t count = 100;
    bool shows_story = false;
    for (int at = 1; at < argc; at += 2) {
        const std::string_view option = argv[at];
        char *end = nullptr;
        const uint64_t number = at + 1 < argc ? std::strtoull(argv[at + 1], &end, 10) : 0;
        if (end == nullptr || *end != '\0' || end == argv[at + 1]) {
            std::fputs(usage, stderr);
            return 2;
        }
        if (option == "--first" || option == "--seed") {
            first = number;
            shows_story = option == "--seed";
        } else if (option == "--seeds") {
            count = number;
        } else {
            std::fputs(usage, stderr);
            return 2;
        }
    }
    if (shows_story) {
        std::fputs(worlds::words_of(worlds::make_story(first)).c_str(), stdout);
        count = 1;
    }
    return run_seeds(first, count);
}
