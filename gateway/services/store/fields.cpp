#include "gateway_services/fields.h"

#include "gateway_services/error.h"
#include "store/records.h"
#include "support/numbers.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace gateway {
namespace {

constexpr int64_t unsigned32_highest = std::numeric_limits<uint32_t>::max();

constexpr field text(const char *name, std::size_t offset, std::size_t size, field_kind kind) {
    return {.name = name, .kind = kind, .offset = offset, .size = size};
}
constexpr field number(const char *name, std::size_t offset, field_kind kind, int64_t lowest,
                       int64_t highest) {
    return {.name = name, .kind = kind, .offset = offset, .lowest = lowest, .highest = highest};
}
constexpr field secret(field of) {
    of.secret = true;
    return of;
}
constexpr field flag(field of) {
    of.is_flag = true;
    return of;
}

#define GATEWAY_TEXT(member, kind)                                                                 \
    text(#member, offsetof(gw_cntl_t, member), sizeof(gw_cntl_t::member), field_kind::kind)
#define GATEWAY_NUMBER(member, kind, highest)                                                      \
    number(#member, offsetof(gw_cntl_t, member), field_kind::kind, 0, highest)

constexpr field gateway_table[] = {
    GATEWAY_NUMBER(nw_cfg_stat, unsigned32, unsigned32_highest),
    GATEWAY_TEXT(alt_gw_id, plain_text),
    GATEWAY_TEXT(wf_ssid, text),
    secret(GATEWAY_TEXT(wf_passwd, text)),
    GATEWAY_NUMBER(ak_random, unsigned8, 255),
    GATEWAY_NUMBER(active_stat, unsigned8, 255),
    GATEWAY_NUMBER(ability, unsigned8, 255),
    GATEWAY_TEXT(gw_id, plain_text),
    GATEWAY_TEXT(gw_sw_ver, plain_text),
    GATEWAY_TEXT(disc_version, plain_text),
    GATEWAY_TEXT(product_key, plain_text),
    secret(GATEWAY_TEXT(local_key, key)),
    GATEWAY_TEXT(ak_ident1, text),
    GATEWAY_TEXT(ak_ident2, text),
    number("channel", offsetof(gateway_record, channel), field_kind::signed32, 11, 26),
};
#undef GATEWAY_TEXT
#undef GATEWAY_NUMBER

constexpr field dev_id_field() {
    field of = text("dev_id", offsetof(dev_cntl_t, dev_id), DEV_ID_SIZE, field_kind::plain_text);
    of.needs_text = true;
    return of;
}

constexpr field device_table[] = {
    dev_id_field(),
    text("sw_ver", offsetof(dev_cntl_t, sw_ver), DEV_SW_VER_SIZE, field_kind::plain_text),
    text("pid", offsetof(dev_cntl_t, pid), DEV_PID_SIZE, field_kind::plain_text),
    number("state", offsetof(dev_cntl_t, state), field_kind::unsigned32, 0, unsigned32_highest),
    flag(number("online", offsetof(dev_cntl_t, online), field_kind::unsigned8, 0, 255)),
    flag(number("excluded", offsetof(dev_cntl_t, excluded), field_kind::signed8, -128, 127)),
};

bool is_control(char c) {
    const auto code = static_cast<unsigned char>(c);
    return code < 0x20 || code == 0x7F;
}

bool is_printable_ascii(char c) {
    return !is_control(c) && static_cast<unsigned char>(c) < 0x80;
}

void check_text(const field &of, const std::string &value) {
    if (of.kind == field_kind::key) {
        if (!value.empty() && value.size() != of.size) {
            throw usage_error(
                fmt::format("has {} characters; a key has {}, or none", value.size(), of.size));
        }
    } else if (value.size() >= of.size) {
        throw usage_error(
            fmt::format("is {} bytes long; at most {} fit", value.size(), of.size - 1));
    }
    if (value.empty() && of.needs_text) {
        throw usage_error("may not be empty");
    }
    if (of.kind == field_kind::text) {
        if (std::any_of(value.begin(), value.end(), is_control)) {
            throw usage_error("holds a control character");
        }
    } else if (!std::all_of(value.begin(), value.end(), is_printable_ascii)) {
        throw usage_error("may hold printable ASCII characters only");
    }
    if (of.kind == field_kind::plain_text && value.find_first_of("\"\\") != std::string::npos) {
        throw usage_error(
            "may hold neither a double quote nor a backslash: it stands in JSON texts "
            "as it is");
    }
}

template <typename Number>
void put_number(void *place, int64_t value) {
    const auto number = static_cast<Number>(value);
    std::memcpy(place, &number, sizeof number);
}
template <typename Number>
int64_t take_number(const void *place) {
    Number number;
    std::memcpy(&number, place, sizeof number);
    return number;
}

} // namespace

std::span<const field> gateway_fields() {
    return gateway_table;
}
std::span<const field> device_fields() {
    return device_table;
}

const field *find_field(std::span<const field> fields, std::string_view name) {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const field &of) { return of.name == name; });
    return found == fields.end() ? nullptr : &*found;
}

const field &need_field(std::span<const field> fields, std::string_view name) {
    const field *found = find_field(fields, name);
    if (found == nullptr) {
        throw usage_error("no such field; there are: " + field_names(fields));
    }
    return *found;
}

std::string field_names(std::span<const field> fields) {
    std::string names;
    for (const field &of : fields) {
        names += (names.empty() ? "" : ", ") + std::string(of.name);
    }
    return names;
}

bool is_number(const field &of) {
    return of.kind >= field_kind::unsigned8;
}

void check_value(const field &of, const field_value &value) {
    if (!is_number(of)) {
        check_text(of, std::get<std::string>(value));
        return;
    }
    const int64_t number = std::get<int64_t>(value);
    if (number < of.lowest || number > of.highest) {
        throw usage_error(fmt::format("is {}; it may be {} to {}", number, of.lowest, of.highest));
    }
}

field_value value_from_text(const field &of, const std::string &text) {
    field_value value = text;
    if (of.is_flag && (text == "true" || text == "false")) {
        value = int64_t{text == "true"};
    } else if (is_number(of)) {
        const std::optional<int64_t> number = support::whole_number<int64_t>(text);
        if (!number) {
            throw usage_error(fmt::format("{} '{}' is not a whole number{}", of.name, text,
                                          of.is_flag ? ", true or false" : ""));
        }
        value = *number;
    }
    try {
        check_value(of, value);
    } catch (const usage_error &error) {
        throw usage_error(fmt::format("{} {}", of.name, error.what()));
    }
    return value;
}

void write_field(void *record, const field &of, const field_value &value) {
    char *place = static_cast<char *>(record) + of.offset;
    switch (of.kind) {
    case field_kind::text:
    case field_kind::plain_text:
    case field_kind::key: {
        const std::string &text = std::get<std::string>(value);
        std::memset(place, 0, of.size);
        text.copy(static_cast<char *>(place), of.size);
        break;
    }
    case field_kind::unsigned8:
        return put_number<uint8_t>(place, std::get<int64_t>(value));
    case field_kind::signed8:
        return put_number<int8_t>(place, std::get<int64_t>(value));
    case field_kind::signed32:
        return put_number<int32_t>(place, std::get<int64_t>(value));
    case field_kind::unsigned32:
        return put_number<uint32_t>(place, std::get<int64_t>(value));
    }
}

field_value read_field(const void *record, const field &of) {
    const char *place = static_cast<const char *>(record) + of.offset;
    switch (of.kind) {
    case field_kind::text:
    case field_kind::plain_text:
    case field_kind::key:
        return std::string(place, strnlen(place, of.size));
    case field_kind::unsigned8:
        return take_number<uint8_t>(place);
    case field_kind::signed8:
        return take_number<int8_t>(place);
    case field_kind::signed32:
        return take_number<int32_t>(place);
    case field_kind::unsigned32:
        return take_number<uint32_t>(place);
    }
    return int64_t{0};
}

} // namespace gateway
