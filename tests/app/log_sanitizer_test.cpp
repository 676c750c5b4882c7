// What a stranger gets to see of a gateway's log.
#include "files/log_sanitizer.h"

#include <gtest/gtest.h>

namespace {

using engr_app::log_sanitizer;

TEST(log_sanitizer, hides_secrets_and_replaces_ids_wherever_they_stand) {
    const struct {
        const char *log;
        const char *shown;
    } cases[] = {
        {R"(Rev Data:{"ssid":"home","passwd":"a \"b\" \\"} end)",
         R"(Rev Data:{"ssid":"***","passwd":"***"} end)"},
        {R"(text:"{\"token\":\"t \\\"u\\\" v\",\"n\":1}" end)",
         R"(text:"{\"token\":\"***\",\"n\":1}" end)"},
        {R"(cut {"passwd":"sec)", R"(cut {"passwd":"***)"},
        {R"({"token":12,"n":3} {"token":true} {"secKey":["a","b"]})",
         R"({"token":***,"n":3} {"token":true} {"secKey":***)"},
        {"local_key = ab cd, ef", "local_key = ***"},
        {"passwd:p q\nnext", "passwd:***\nnext"},
        {"set password hunter2 now", "set password *** now"},
        {R"(dev id a1 can't be found; delete cid:a1. {"cid":"a1"})",
         R"(dev id id-1 can't be found; delete cid:id-1. {"cid":"id-1"})"},
        {"known-7 and known-77, known-7.", "id-1 and known-77, id-1."},
        {R"(a1 b2 on:["a1","b2"] off:["c3"] online:1)",
         R"(id-1 id-2 on:["id-1","id-2"] off:["id-3"] online:1)"},
        {R"(off:["c3"x "] {"passwd":"hunter2"})", R"(off:["id-1"x "] {"passwd":"***"})"},
        {R"({"gid":12,"sid":"no"} 12 no lines)", R"({"gid":id-1,"sid":"id-2"} 12 no lines)"},
        {R"(gid:kitchen in kitchen)", R"(gid:id-1 in id-1)"},
        {"from a4:c1:38:00:00:01 and a4c1380001000001 at 12:30:45",
         "from id-1 and id-2 at 12:30:45"},
        {"550e8400-e29b-41d4-a716-446655440000 0123456789abcdef FRM_LOCAL_DP_QUERY_2 123456789",
         "id-1 id-2 FRM_LOCAL_DP_QUERY_2 123456789"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(log_sanitizer({"known-7"}).clean(one.log), one.shown);
    }
}

TEST(log_sanitizer, long_lines_of_any_shape_are_done_in_time_and_end) {
    for (const char *part : {"a:", "a.", "\\", "\"", "\"cid\":[", "key", "cids:[\\"}) {
        std::string line;
        while (line.size() < 1'000'000) {
            line += part;
        }
        EXPECT_FALSE(log_sanitizer({}).clean(line).empty()) << part;
    }
}

} // namespace
