/*
 * Sockets of a new port.
 * Needs: a table from numbers that never come back to the stack's sockets; waits (select, receive,
 * accept, a send without room) that a close from another thread and a stop of the waiting thread
 * end at once; sends that go out whole, one after the other, and give up on a peer that
 * takes too little; an error code a thread.
 */
#include "platform/socket.h"

void kelo_hal_net_fd_zero(kelo_fd_set_t *set) {
    set->count = 0;
}
void kelo_hal_net_fd_set(int32_t, kelo_fd_set_t *) {}
int32_t kelo_hal_net_fd_isset(int32_t, const kelo_fd_set_t *) {
    return 0;
}
int32_t kelo_hal_net_select(int32_t, kelo_fd_set_t *, kelo_fd_set_t *, kelo_fd_set_t *, uint32_t) {
    return -1;
}

int32_t kelo_hal_net_socket_create(int32_t) {
    return -1;
}
int32_t kelo_hal_net_close(int32_t) {
    return -1;
}
int32_t kelo_hal_net_shutdown(int32_t) {
    return -1;
}

int32_t kelo_hal_net_set_bufsize(int32_t, uint32_t, int32_t) {
    return -1;
}
int32_t kelo_hal_net_set_reuse(int32_t) {
    return -1;
}
int32_t kelo_hal_net_set_cloexec(int32_t) {
    return -1;
}
int32_t kelo_hal_net_set_boardcast(int32_t) {
    return -1;
}
int32_t kelo_hal_net_set_block(int32_t, bool) {
    return -1;
}
int32_t kelo_hal_net_set_keepalive(int32_t, bool, uint32_t, uint32_t, uint32_t) {
    return -1;
}

int32_t kelo_hal_net_bind(int32_t, uint32_t, uint16_t) {
    return -1;
}
int32_t kelo_hal_net_socket_bind(int32_t, const char *) {
    return -1;
}
int32_t kelo_hal_net_listen(int32_t, int32_t) {
    return -1;
}
int32_t kelo_hal_net_accept(int32_t, uint32_t *, uint16_t *) {
    return -1;
}
int32_t kelo_hal_net_recv(int32_t, void *, uint32_t) {
    return -1;
}
int32_t kelo_hal_net_recvfrom(int32_t, void *, uint32_t, uint32_t *, uint16_t *) {
    return -1;
}
int32_t kelo_hal_net_send(int32_t, const void *, uint32_t) {
    return -1;
}
int32_t kelo_hal_net_send_to(int32_t, const void *, uint32_t, uint32_t, uint16_t) {
    return -1;
}
int32_t kelo_hal_net_get_errno() {
    return KELO_ERR_BAD_SOCKET;
}
