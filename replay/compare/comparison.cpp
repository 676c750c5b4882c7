#include "compare/comparison.h"

#include <algorithm>
#include <limits>
#include <map>
#include <tuple>

namespace replay {
namespace {

/** What is compared in order. */
using group_key = std::tuple<answer_kind, uint32_t, bool, uint32_t, uint32_t, std::string>;
using answer_list = std::vector<const answer *>;

struct group {
    answer_list expected;
    answer_list got;
};

/** How far an answer is looked for that has other ones before it. */
constexpr std::size_t look_ahead = 1000;

group_key key_of(const answer &of) {
    const bool report = is_report(of);
    return {of.kind,
            of.client,
            report,
            of.content.type,
            of.kind == answer_kind::datagram ? of.port : of.content.number,
            report ? of.about : std::string()};
}

/** Keeps one of several datagrams of a port that say the same one after the other. */
void drop_repetitions(answer_list &datagrams) {
    const auto repeated = [](const answer *one, const answer *next) {
        return say_the_same(*one, *next);
    };
    datagrams.erase(std::unique(datagrams.begin(), datagrams.end(), repeated), datagrams.end());
}

bool is_found_from(const answer_list &list, std::size_t from, const answer &wanted) {
    const std::size_t end = std::min(list.size(), from + look_ahead);
    for (std::size_t at = from; at < end; ++at) {
        if (say_the_same(*list[at], wanted)) {
            return true;
        }
    }
    return false;
}

/** Whether one side has a report earlier, the other later, beside those of the operator. */
bool are_one_report(const difference &missing, const difference &unexpected) {
    return missing.kind == difference_kind::missing &&
           unexpected.kind == difference_kind::unexpected && missing.expected->is_beside_operator &&
           unexpected.got->is_beside_operator && say_the_same(*missing.expected, *unexpected.got);
}

class comparing {
  public:
    comparing(uint64_t end_us, uint64_t lost_from_us) : end_us_(end_us), lost_us_(lost_from_us) {}

    void compare_group(const group &of) {
        const std::size_t found_before = found_.size();
        is_silent_ = of.got.empty();
        std::size_t left = 0;
        std::size_t right = 0;
        while (left < of.expected.size() && right < of.got.size()) {
            const answer &expected = *of.expected[left];
            const answer &got = *of.got[right];
            if (say_the_same(expected, got)) {
                note_time(expected, got);
                ++left;
                ++right;
            } else if (is_found_from(of.got, right + 1, expected)) {
                note_unexpected(*of.got[right++]);
            } else if (is_found_from(of.expected, left + 1, got)) {
                note_missing(*of.expected[left++]);
            } else {
                note({.kind = difference_kind::other, .expected = expected, .got = got});
                ++left;
                ++right;
            }
        }
        for (; left < of.expected.size(); ++left) {
            note_missing(*of.expected[left]);
        }
        for (; right < of.got.size(); ++right) {
            note_unexpected(*of.got[right]);
        }
        drop_pairs(found_before);
    }

    std::vector<difference> take() {
        std::stable_sort(
            found_.begin(), found_.end(),
            [](const difference &one, const difference &other) { return one.at_us < other.at_us; });
        return std::move(found_);
    }

  private:
    void note(difference one) {
        one.at_us = one.shown().at_us;
        found_.push_back(std::move(one));
    }
    /** Where one side ended by itself, nothing can be expected later. Nor can what the machine
     * decides: a report at an edge, and a brief announcement of a gateway that makes others. */
    [[nodiscard]] bool counts(const answer &one) const {
        return one.kind == answer_kind::ended ||
               (one.at_us < lost_us_ && !one.is_at_edge && (!one.is_brief || is_silent_));
    }
    /** Reports beside the operator's may be in another place of the order. */
    void drop_pairs(std::size_t from) {
        for (std::size_t at = from; at < found_.size();) {
            const auto begin = found_.begin() + static_cast<std::ptrdiff_t>(from);
            const auto other = std::find_if(begin, found_.end(), [&](const difference &each) {
                return are_one_report(found_[at], each) || are_one_report(each, found_[at]);
            });
            if (other == found_.end()) {
                ++at;
                continue;
            }
            const auto place = static_cast<std::size_t>(other - found_.begin());
            found_.erase(found_.begin() + static_cast<std::ptrdiff_t>(std::max(at, place)));
            found_.erase(found_.begin() + static_cast<std::ptrdiff_t>(std::min(at, place)));
            at -= place < at ? 1 : 0;
        }
    }
    void note_missing(const answer &expected) {
        if (counts(expected)) {
            const bool has_ended = expected.kind == answer_kind::ended;
            note({.kind = has_ended ? difference_kind::ended : difference_kind::missing,
                  .expected = expected});
        }
    }
    void note_unexpected(const answer &got) {
        if (got.kind == answer_kind::ended) {
            note({.kind = difference_kind::ended, .got = got});
        } else if (got.at_us <= end_us_ && counts(got)) {
            note({.kind = difference_kind::unexpected, .got = got});
        }
    }
    void note_time(const answer &expected, const answer &got) {
        const uint64_t apart =
            std::max(expected.at_us, got.at_us) - std::min(expected.at_us, got.at_us);
        if (expected.kind == answer_kind::closed && apart > close_tolerance_us) {
            note({.kind = difference_kind::other_time, .expected = expected, .got = got});
        }
    }

    uint64_t end_us_;
    uint64_t lost_us_;       /**< nothing can be expected from then on */
    bool is_silent_ = false; /**< the other side has nothing at all in this group */
    std::vector<difference> found_;
};

} // namespace

std::vector<difference> compare(std::span<const answer> expected, std::span<const answer> got,
                                uint64_t end_us) {
    std::map<group_key, group> groups;
    uint64_t lost_us = std::numeric_limits<uint64_t>::max();
    const auto look_for_end = [&lost_us](const answer &each) {
        lost_us = each.kind == answer_kind::ended ? std::min(lost_us, each.at_us) : lost_us;
    };
    for (const answer &each : expected) {
        groups[key_of(each)].expected.push_back(&each);
        look_for_end(each);
    }
    for (const answer &each : got) {
        groups[key_of(each)].got.push_back(&each);
        look_for_end(each);
    }
    comparing all(end_us, lost_us);
    for (auto &[key, of] : groups) {
        if (std::get<answer_kind>(key) == answer_kind::datagram) {
            drop_repetitions(of.expected);
            drop_repetitions(of.got);
        }
        all.compare_group(of);
    }
    return all.take();
}

std::string_view name_of(difference_kind kind) {
    constexpr std::string_view names[] = {"missing", "unexpected", "other", "other_time", "ended"};
    return names[static_cast<std::size_t>(kind)];
}

} // namespace replay
