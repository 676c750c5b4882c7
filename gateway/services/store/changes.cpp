#include "store/changes.h"

#include "calls/log.h"
#include "calls/results.h"
#include "gateway_services/error.h"
#include "store/records.h"
#include "store/store.h"

namespace gateway {

lasting_change::lasting_change() : change_(change_mutex()), all_(the_store().database()) {}

int32_t guarded(const std::function<void()> &work, std::string &reason) {
    int32_t result = 0;
    try {
        work();
    } catch (const usage_error &error) {
        result = result_argument;
        reason = error.what();
    } catch (const std::exception &error) {
        result = result_failed;
        reason = error.what();
    }
    if (result != 0) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "%s", reason.c_str());
    }
    return result;
}

int32_t guarded(const std::function<void()> &work) {
    std::string reason;
    return guarded(work, reason);
}

} // namespace gateway
