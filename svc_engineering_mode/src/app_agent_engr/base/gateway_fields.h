/* Copies of those fields of the gateway record that may change at any time. */
#pragma once

#include "gateway/gateway.h"
#include "platform/owners.h"

#include <cstring>

/** Copy of one text of the gateway record, taken under its field_mutex. Any thread. */
template <std::size_t Size>
class gateway_text {
  public:
    explicit gateway_text(char (gw_cntl_t::*field)[Size]) {
        const gw_cntl_t &gateway = *engr_get_gw_cntl();
        const platform::held_mutex hold(gateway.field_mutex);
        std::memcpy(text_, gateway.*field, Size - 1);
    }
    [[nodiscard]] const char *text() const { return text_; }

  private:
    char text_[Size] = {};
};

/** Copy of one number or callback of the gateway record, taken under its field_mutex. Any thread.
 */
template <typename Type>
[[nodiscard]] Type gateway_field(Type gw_cntl_t::*field) {
    const gw_cntl_t &gateway = *engr_get_gw_cntl();
    const platform::held_mutex hold(gateway.field_mutex);
    return gateway.*field;
}

/** Changes one number of the gateway record, under its field_mutex. Any thread. */
template <typename Type>
void set_gateway_field(Type gw_cntl_t::*field, Type value) {
    gw_cntl_t &gateway = *engr_get_gw_cntl();
    const platform::held_mutex hold(gateway.field_mutex);
    gateway.*field = value;
}
