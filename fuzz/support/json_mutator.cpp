#include "support/json_mutator.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t most);

namespace fuzz {
namespace {

using nlohmann::ordered_json;

/** Values that readers tend to get wrong. */
const ordered_json &odd_value(std::minstd_rand &chance) {
    static const std::vector<ordered_json> values = {
        nullptr,
        true,
        false,
        0,
        1,
        -1,
        255,
        256,
        65536,
        2147483647,
        -2147483648LL,
        4294967295ULL,
        4294967296ULL,
        18446744073709551615ULL,
        0.5,
        1e300,
        "",
        "lamp1",
        "engrgw0000000002",
        "\"",
        "\\",
        "\x01",
        "%s%n",
        "0123456789012345678901234567890123456789",
        std::string(1025, 'x'),
        ordered_json::array(),
        ordered_json::object(),
        {{"1", true}},
        {{"cid", "lamp1"}, {"pid", "zbdimmer"}},
    };
    return values[chance() % values.size()];
}

/** All places of a document. */
void collect(ordered_json &value, std::vector<ordered_json *> &places) {
    places.push_back(&value);
    if (value.is_structured()) {
        for (ordered_json &part : value) {
            collect(part, places);
        }
    }
}

void mutate_text(ordered_json &value) {
    std::string text = value.get<std::string>();
    const size_t size = text.size();
    text.resize(size + 8);
    text.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t *>(text.data()), size, text.size()));
    value = text;
}

void mutate(ordered_json &document, std::minstd_rand &chance) {
    std::vector<ordered_json *> places;
    collect(document, places);
    ordered_json &place = *places[chance() % places.size()];
    const ordered_json other = *places[chance() % places.size()];
    switch (chance() % 6) {
    case 0:
        place = odd_value(chance);
        break;
    case 1:
        place = other;
        break;
    case 2: // one part less
        if (place.is_structured() && !place.empty()) {
            place.erase(std::next(place.begin(), static_cast<long>(chance() % place.size())));
        }
        break;
    case 3: // one part more
        if (place.is_array()) {
            place.push_back(other);
        } else if (place.is_object()) {
            place["x" + std::to_string(chance() % 10)] = other;
        }
        break;
    case 4: // a member under another name
        if (place.is_object() && !place.empty()) {
            const auto from = std::next(place.begin(), static_cast<long>(chance() % place.size()));
            const ordered_json moved = from.value();
            static constexpr const char *names[] = {"cid", "devId", "dps", "gid", "sid", "op"};
            place[names[chance() % std::size(names)]] = moved;
        }
        break;
    default:
        if (place.is_string()) {
            mutate_text(place);
        } else if (place.is_number_integer()) {
            place = place.get<uint64_t>() + chance() % 9 - 4; // may wrap
        }
        break;
    }
}

} // namespace

size_t mutate_json_line(uint8_t *data, size_t size, size_t most, unsigned seed) {
    std::minstd_rand chance(seed);
    const std::string_view all(reinterpret_cast<const char *>(data), size);
    const size_t lines = static_cast<size_t>(std::ranges::count(all, '\n')) + 1;
    size_t start = 0;
    for (size_t skipped = chance() % lines; skipped > 0; --skipped) {
        start = all.find('\n', start) + 1;
    }
    const size_t end = std::min(all.find('\n', start), all.size());
    const size_t json_start = std::min(all.find_first_of("{[", start), end);
    ordered_json document =
        ordered_json::parse(all.substr(json_start, end - json_start), nullptr, false);
    if (document.is_discarded() || chance() % 2 == 0) {
        return LLVMFuzzerMutate(data, size, most);
    }
    mutate(document, chance);
    std::string changed(all.substr(0, json_start));
    changed += document.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    changed += all.substr(end);
    if (changed.size() > most) {
        return LLVMFuzzerMutate(data, size, most);
    }
    std::memcpy(data, changed.data(), changed.size());
    return changed.size();
}

} // namespace fuzz
