// What is wrong with a JSON text is told with its place.
#include "support/data_points.h"
#include "support/input_error.h"
#include "support/json_value.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace support;

std::string repeated(int count, std::string_view text) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

/** What a reading of the text says is wrong with it; "" when nothing is. */
std::string fault(std::string_view text, const std::function<void(const json_value &)> &read,
                  const json_bounds &bounds = {}) {
    try {
        const json_document document(text, "f", bounds);
        read(document.root());
        return "";
    } catch (const input_error &error) {
        return error.what();
    }
}

TEST(json_value, a_text_is_read_as_it_stands_or_refused_with_the_place_of_its_fault) {
    for (const std::string &text :
         {std::string(R"({"b":[1,-2,2.5,true,null,"ü"],"a":{"c":{},"d":[[],[{}]]},"e":""})"),
          std::string("[18446744073709551615,-9223372036854775808,5e-324,1.7976931348623157e+308]"),
          std::string("7"), std::string("[]"), repeated(200, "[") + repeated(200, "]")}) {
        EXPECT_EQ(fault(text, [&](const json_value &read) { EXPECT_EQ(read.json.dump(), text); }),
                  "");
    }
    const struct {
        std::string text;
        const char *said;
    } cases[] = {
        {"", "f: line 1, column 1: is not valid JSON in UTF-8"},
        {"{\"a\":\n [}", "f: line 2, column 3: is not valid JSON in UTF-8"},
        {"{} {}", "f: line 1, column 4: is not valid JSON in UTF-8"},
        {"\"\xff\"", "f: line 1, column 2: is not valid JSON in UTF-8"},
        {R"(["\udc00"])", "f: line 1, column 8: is not valid JSON in UTF-8"},
        {"[1e999]", "f: line 1, column 6: the number is too large"},
        {R"({"a":{"b":1,"c":2,"B":3}})", "f: member \"B\" is given twice"},
        {R"({"a":1,"b":2,"c":{},"d":3})", "f: an object has more than 3 members"},
        {R"({"a":["x",2,{"b":null}],"c":[[[7]]]})", ""},
        {R"({"a":["x",2,{"b":null}],"c":[[[7,8]]]})", "f: has more than 10 values"},
        {R"({"a":["x",2,{"b":null}],"c":[[[7]],[]]})", "f: has more than 10 values"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(fault(one.text, [](const json_value &) {}, {.members_max = 3, .values_max = 10}),
                  one.said)
            << one.text;
    }
    std::string many = "{\"ten\":10";
    for (int i = 0; i < 40; ++i) {
        many += ",\"N" + std::to_string(i) + "\":0";
    }
    EXPECT_EQ(fault(many + "}", [](const json_value &) {}), "");
    for (const char *again : {"TEN", "n0", "n16", "n39"}) {
        EXPECT_EQ(fault(many + ",\"" + again + "\":0}", [](const json_value &) {}),
                  std::string("f: member \"") + again + "\" is given twice");
    }
    for (const std::string &text : {repeated(201, "["), repeated(100'000, "{\"a\":")}) {
        EXPECT_EQ(fault(text, [](const json_value &) {}), "f: has more than 200 levels");
    }
}

TEST(json_value, what_is_not_as_expected_is_told_with_its_place) {
    const json_document document(
        R"({"list":[{"Id":"a"},{"id":"a\"b"},7],"n":-1,"big":18446744073709551615,"half":0.5,
            "flag":"yes","tab":"\t","empty":""})",
        "f");
    const json_value root = document.root();
    const json_value list = root.required("LIST");
    using function = std::function<void()>;
    const struct {
        function read;
        const char *said;
    } cases[] = {
        {[&] { (void)root.elements(); }, "f: is object, expected an array"},
        {[&] { (void)root.required("id"); }, "f: has no id"},
        {[&] { (void)list.members(); }, "f: LIST: is array, expected an object"},
        {[&] { (void)list.elements(4); }, "f: LIST: has 3 elements; it needs 4 at least"},
        {[&] { (void)list.elements(0, 2); }, "f: LIST: has 3 elements; it may have 0 to 2"},
        {[&] { (void)list.elements()[2].required("id"); },
         "f: LIST[2]: is number, expected an object"},
        {[&] { (void)list.elements()[1].required("id").plain_text(9); },
         "f: LIST[1].id: holds a double quote or a backslash"},
        {[&] { (void)root.required("tab").plain_text(9); }, "f: tab: holds a control character"},
        {[&] { (void)root.required("empty").text(9); },
         "f: empty: has 0 bytes; it may have 1 to 9"},
        {[&] { (void)root.required("flag").text(2); }, "f: flag: has 3 bytes; it may have 1 to 2"},
        {[&] { (void)root.required("flag").boolean(); },
         "f: flag: is string, expected true or false"},
        {[&] { (void)root.required("n").text(); }, "f: n: is number, expected a text"},
        {[&] { (void)root.required("n").whole_number(0, 5); }, "f: n: is -1; it may be 0 to 5"},
        {[&] { (void)root.required("big").whole_number(0, INT64_MAX); },
         "f: big: is 18446744073709551615; it may be 0 to 9223372036854775807"},
        {[&] { (void)root.required("half").whole_number(0, 5); },
         "f: half: is not whole, expected a whole number"},
        {[&] { (void)root.required("flag").whole_number(0, 5); },
         "f: flag: is string, expected a whole number"},
        {[&] {
             read_members(list.elements()[0], {{"cid", {}}, {"sid", {}}});
         },
         "f: LIST[0].Id: unknown; there are: cid, sid"},
    };
    for (const auto &one : cases) {
        std::string said;
        try {
            one.read();
        } catch (const input_error &error) {
            said = error.what();
        }
        EXPECT_EQ(said, one.said);
    }
    EXPECT_EQ(list.elements()[0].required("id").plain_text(1), "a");
    EXPECT_EQ(root.required("n").whole_number(-1, 0), -1);
    EXPECT_TRUE(root.has("N") && !root.has("m") && !list.has("n"));
}

TEST(json_value, a_mere_array_gets_the_name_of_its_list) {
    for (const char *text : {"[1]", R"({"list":[1]})"}) {
        json_document document(text, "f");
        document.name_list("list");
        EXPECT_EQ(document.root().required("list").elements().front().path, "list[0]");
    }
}

TEST(data_points, have_numbers_of_one_byte_and_plain_values) {
    const struct {
        const char *text;
        const char *said;
    } cases[] = {
        {"[]", "f: is not an object of data points like {\"1\": true}"},
        {R"({})", ""},
        {R"({"1":true,"255":0.5,"20":"12345"})", ""},
        {R"({"256":1})", "f: '256' is not a data-point number, 1 to 255"},
        {R"({"0":1})", "f: '0' is not a data-point number, 1 to 255"},
        {R"({"01":1})", "f: '01' is not a data-point number, 1 to 255"},
        {R"({"-1":1})", "f: '-1' is not a data-point number, 1 to 255"},
        {R"({"":1})", "f: '' is not a data-point number, 1 to 255"},
        {R"({"1 ":1})", "f: '1 ' is not a data-point number, 1 to 255"},
        {R"({"7":null})",
         "f: the value of data point 7 is neither true, false, a number nor a text"},
        {R"({"7":[1]})",
         "f: the value of data point 7 is neither true, false, a number nor a text"},
        {R"({"7":"123456"})", "f: the text of data point 7 is longer than 5 bytes"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(fault(one.text, [](const json_value &read) { check_data_points(read, 5); }),
                  one.said);
    }
}

} // namespace
