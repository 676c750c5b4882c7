// Numbers, digits, files, interfaces and characters as people and networks give them.
#include "support/files.h"
#include "support/input_error.h"
#include "support/interfaces.h"
#include "support/numbers.h"
#include "support/utf8.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace support;

template <typename Action>
std::string refusal(const Action &action) {
    try {
        action();
        return "nothing was refused";
    } catch (const input_error &error) {
        return error.what();
    }
}

TEST(numbers, have_nothing_around_them_and_fit_their_type) {
    EXPECT_EQ(whole_number<uint16_t>("65535"), 65535);
    EXPECT_EQ(whole_number<int8_t>("-128"), -128);
    for (const char *text : {"", " 1", "1 ", "+1", "-1", "0x1", "1.0", "65536"}) {
        EXPECT_EQ(whole_number<uint16_t>(text), std::nullopt) << text;
    }
    EXPECT_EQ(refusal([] { (void)need_whole_number<int8_t>("--mode", "128"); }),
              "--mode: '128' is not a whole number from -128 to 127");
}

TEST(hexadecimal_digits, come_in_pairs_of_either_letter_case) {
    const std::string bytes("\0\x7f\x80\xff", 4);
    EXPECT_EQ(to_hex(bytes), "007f80ff");
    EXPECT_EQ(from_hex("--hex", "007F80fF"), bytes);
    for (const char *digits : {"00f", "00 f", "00-f", "000x"}) {
        EXPECT_EQ(refusal([&] { (void)from_hex("--hex", digits); }),
                  "--hex: expected pairs of hexadecimal digits; at character 3 there is none");
    }
}

TEST(whole_files, are_read_up_to_their_bound_or_refused_by_name) {
    EXPECT_EQ(refusal([] { (void)read_file("/nonexistent"); }),
              "/nonexistent: cannot be read: No such file or directory");
    EXPECT_EQ(refusal([] { (void)read_file("/"); }), "/: cannot be read: Is a directory");
    EXPECT_EQ(refusal([] { (void)read_file("/dev/zero", 100'000); }),
              "/dev/zero: is too long; at most 100000 bytes are read");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "a\0b", 3), 3);
    close(ends[1]);
    EXPECT_EQ(read_descriptor(ends[0], "pipe", 3), std::string("a\0b", 3));
    close(ends[0]);
}

TEST(interfaces, that_are_unknown_are_answered_with_those_there_are) {
    EXPECT_EQ(interface_fault("lo"), "");
    const std::string fault = interface_fault("nosuch0");
    EXPECT_TRUE(fault.starts_with("there is no interface 'nosuch0'; there are: ")) << fault;
    EXPECT_NE(fault.find("lo"), std::string::npos) << fault;
}

TEST(utf8, each_malformed_byte_is_replaced) {
    const struct {
        const char *text;
        const char *valid;
    } cases[] = {
        {"é漢\U0001F600\U0010FFFF", "é漢\U0001F600\U0010FFFF"},
        {"\x80|\xC3|\xC3(", "\uFFFD|\uFFFD|\uFFFD("},
        {"overlong \xC0\xAF \xE0\x80\xAF", "overlong \uFFFD\uFFFD \uFFFD\uFFFD\uFFFD"},
        {"surrogate \xED\xA0\x80", "surrogate \uFFFD\uFFFD\uFFFD"},
        {"beyond \xF4\x90\x80\x80", "beyond \uFFFD\uFFFD\uFFFD\uFFFD"},
        {"cut \xF0\x9F\x98", "cut \uFFFD\uFFFD\uFFFD"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(valid_utf8(one.text), one.valid);
        EXPECT_EQ(is_utf8(one.text), std::string_view(one.text) == one.valid) << one.valid;
    }
}

TEST(characters, take_the_columns_that_a_terminal_gives_them) {
    const struct {
        char32_t character;
        bool is_visible;
        std::size_t columns;
    } cases[] = {
        {U'a', true, 1},     {U'é', true, 1},    {U'漢', true, 2},     {U'한', true, 2},
        {0x0301, true, 0},   {0x0903, true, 1},  {0x0E31, true, 0},    {0x231A, true, 2},
        {0x1F600, true, 2},  {0xFE0F, true, 0},  {0x20000, true, 2},   {0x2026, true, 1},
        {0xFF71, true, 1},   {'\n', false, 0},   {0x9B, false, 0},     {0xAD, false, 0},
        {0x200B, false, 0},  {0x202E, false, 0}, {0x2028, false, 0},   {0x2066, false, 0},
        {0x3164, false, 0},  {0xE000, false, 0}, {0xFEFF, false, 0},   {0xFFFF, false, 0},
        {0xE0041, false, 0}, {0x0378, false, 0}, {0x10FFFF, false, 0},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(static_cast<uint32_t>(one.character));
        EXPECT_EQ(is_visible(one.character), one.is_visible);
        if (one.is_visible) {
            EXPECT_EQ(columns_of(one.character), one.columns);
        }
    }
}

} // namespace
