/* AirKiss of a new port. Needed for mode 1 only; a gateway without it keeps these as they are. */
#include "platform/airkiss.h"

/* The task answers requests until its thread is told to stop; returning at once is allowed. */
void ak_lan_rev_active_task(void *argument) {
    (void)argument;
}
int32_t get_wf_gw_nw_status(uint8_t *status) {
    (void)status;
    return -1;
}
int32_t get_ak_active_status(void) {
    return -1;
}
int32_t ak_lan_nwc_fin_inform(uint8_t random) {
    (void)random;
    return -1;
}
int32_t ak_lan_disc_init(const char *identity1, const char *identity2) {
    (void)identity1;
    (void)identity2;
    return -1;
}
int32_t ak_lan_disc_pack_send(void) {
    return -1;
}
