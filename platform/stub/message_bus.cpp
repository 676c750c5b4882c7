/*
 * Message bus of a new port.
 * Needs: one delivery thread with a bounded queue, reference-counted blocks, and an unregistration
 * that drops what waits and waits for a callback that runs, unless that callback calls it.
 */
#include "platform/message_bus.h"

int32_t cmmod_reg_msgcb(cmmod_callback_t, uint16_t *) {
    return -1;
}
int32_t cmmod_unreg_msgcb(uint16_t) {
    return -1;
}
int32_t cmmod_post_msg(uint16_t, const void *, uint32_t) {
    return -1;
}
void put_rfc_data(rfc_data_t *) {}
