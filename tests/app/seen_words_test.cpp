// Ids that a gateway gave, kept for the completion of command lines.
#include "files/seen_words.h"
#include "files/user_paths.h"

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

namespace {

using namespace engr_app;

TEST(seen_words, of_a_hostile_gateway_neither_fill_the_cache_nor_mean_anything_to_a_shell) {
    std::string directory = testing::TempDir() + "engr-words-XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    setenv("XDG_CACHE_HOME", directory.c_str(), 1);
    remember_words("CID", "gw1",
                   {std::string(7'000'000, 'n'), "$(reboot)", "-rf", "", "lamp1", "a:b_c.d-e"});
    EXPECT_EQ(seen_words("CID"), (std::vector<std::string>{"a:b_c.d-e", "lamp1"}));
    EXPECT_LT(std::filesystem::file_size(seen_words_path("CID", "gw1")), 1'000U)
        << "expected a cache that costs later commands nothing";
    for (std::size_t gateway = 0; gateway < 2 * word_sources_max; ++gateway) {
        remember_words("CID", std::to_string(gateway), {"of" + std::to_string(gateway)});
    }
    remember_words("CID", "../../gw", {"elsewhere"});
    EXPECT_EQ(seen_words("CID").size(), word_sources_max) << "expected those of the last gateways";
    std::filesystem::remove_all(directory);
}

} // namespace
