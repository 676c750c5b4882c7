/* Formatted text in a fixed buffer: what fits, what is cut, and where its end is. */
#include "base/bounded_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(bounded_text, keeps_what_fits_and_records_that_it_was_cut) {
    const struct {
        std::vector<const char *> pieces;
        const char *text;
        bool is_cut;
    } cases[] = {
        {{}, "", false},
        {{""}, "", false},
        {{"abcdefg"}, "abcdefg", false},
        {{"abcdefg", ""}, "abcdefg", false},
        {{"abcdefgh"}, "abcdefg", true},
        {{"abc", "", "def"}, "abcdef", false},
        {{"abc", "defgh"}, "abcdefg", true},
        {{"abcd", "efg"}, "abcdefg", false},
        {{"abcdefgh", "x"}, "abcdefg", true},
    };
    for (const auto &one : cases) {
        char buffer[9] = "########";
        bounded_text text(buffer, 8);
        for (const char *piece : one.pieces) {
            text.add("%s", piece);
        }
        EXPECT_STREQ(text.text(), one.text);
        EXPECT_EQ(text.length(), std::string(one.text).size());
        EXPECT_EQ(text.is_cut(), one.is_cut) << one.text;
        EXPECT_EQ(buffer[8], '\0') << "expected nothing to be written behind the buffer";
        if (one.pieces.size() == 2) {
            char other[9] = "########";
            bounded_text same(other, 8);
            same.add_texts(one.pieces[0], one.pieces[1]);
            EXPECT_STREQ(same.text(), one.text);
            EXPECT_EQ(same.is_cut(), one.is_cut) << one.text;
            EXPECT_EQ(other[8], '\0') << "expected nothing to be written behind the buffer";
        }
    }
    char buffer[8];
    bounded_text list(buffer, sizeof buffer);
    list.add("a,");
    for (const char *text : {"a", "a"}) {
        list.drop_final(',');
        EXPECT_STREQ(list.text(), text) << "expected one comma to be dropped, and nothing else";
    }
    list.drop_final('a');
    list.drop_final('a');
    EXPECT_EQ(list.length(), 0U);
    char field[4] = "###";
    copy_text(field, "abcdef");
    EXPECT_STREQ(field, "abc");
}

} // namespace
