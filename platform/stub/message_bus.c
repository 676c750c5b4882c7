/*
 * Message bus of a new port.
 * Needs: one delivery thread with a bounded queue, reference-counted blocks, and an unregistration
 * that drops what waits and waits for a callback that runs, unless that callback calls it.
 */
#include "platform/message_bus.h"

int32_t cmmod_reg_msgcb(cmmod_callback_t callback, uint16_t *message_id) {
    (void)callback;
    (void)message_id;
    return -1;
}
int32_t cmmod_unreg_msgcb(uint16_t message_id) {
    (void)message_id;
    return -1;
}
int32_t cmmod_post_msg(uint16_t message_id, const void *data, uint32_t length) {
    (void)message_id;
    (void)data;
    (void)length;
    return -1;
}
void put_rfc_data(rfc_data_t *rfc) {
    (void)rfc;
}
