#include "store/changes.h"

#include "store/records.h"
#include "store/store.h"

namespace gateway {

lasting_change::lasting_change() : change_(change_mutex()), all_(the_store().database()) {}

void change_gateway_fields(const std::vector<field_setting> &settings,
                           const std::function<void()> &with) {
    for (const field_setting &setting : settings) {
        check_value(*setting.of, setting.value);
    }
    lasting_change change;
    for (const field_setting &setting : settings) {
        the_store().set_gateway_field(*setting.of, setting.value);
    }
    if (with) {
        with();
    }
    change.commit();
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    for (const field_setting &setting : settings) {
        write_field(&the_gateway(), *setting.of, setting.value);
    }
}

} // namespace gateway
