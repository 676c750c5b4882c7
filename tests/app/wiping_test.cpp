// Keys, seeds and what is made of them do not stay in memory.
#include "lan_client/crypto.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::vector<std::string> *record = nullptr; // of what stood in memory that was wiped

} // namespace

// In the place of the C library's.
extern "C" void explicit_bzero(void *bytes, size_t count) noexcept {
    if (record != nullptr) {
        record->emplace_back(static_cast<const char *>(bytes), count);
    }
    std::memset(bytes, 0, count);
    asm volatile("" : : "r"(bytes) : "memory");
}

namespace {

using namespace lan_client;

struct wiping : testing::Test {
    wiping() { record = &wiped; }
    ~wiping() override { record = nullptr; }

    [[nodiscard]] std::ptrdiff_t times_wiped(const aes_key &key) const {
        const std::string bytes(reinterpret_cast<const char *>(key.data()), key_bytes);
        return std::ranges::count(wiped, bytes);
    }

    std::vector<std::string> wiped;
};

TEST_F(wiping, leaves_no_key) {
    std::optional<aes_key> key = aes_key::from_text("local-key-of-gw1");
    const aes_key same = *key;
    wiped.clear();
    key.reset();
    EXPECT_EQ(times_wiped(same), 1);
}

TEST_F(wiping, leaves_nothing_of_the_seed_that_a_key_is_made_of) {
    const std::string seed = "another-seed-003";
    const auto key = aes_key::from_seed(seed);
    EXPECT_EQ(std::ranges::count(wiped, seed), 1);
    EXPECT_TRUE(std::ranges::any_of(wiped, [&seed](const std::string &memory) {
        return memory.size() > seed.size() && memory.find(seed) != std::string::npos;
    })) << "expected the state of the sum to be wiped, too";

    for (const auto built_in : {configuration_key, discovery_key, unactivated_key}) {
        wiped.clear();
        const aes_key made = built_in();
        EXPECT_GE(times_wiped(made), 1) << "expected its copy in the sum to be wiped";
    }
}

TEST_F(wiping, leaves_no_round_keys) {
    const aes_key key = unactivated_key();
    const auto are_wiped = [this] {
        return std::ranges::any_of(wiped, [](const std::string &memory) {
            return memory.size() > 10 * key_bytes &&
                   memory.find_first_not_of('\0') != std::string::npos;
        });
    };
    wiped.clear();
    const std::string cipher = encrypt(key, "text");
    EXPECT_TRUE(are_wiped());
    wiped.clear();
    EXPECT_EQ(decrypt(key, cipher), "text");
    EXPECT_TRUE(are_wiped());
}

} // namespace
