/*
 * Sockets of a new port.
 * Needs: a table from numbers that never come back to the stack's sockets; waits (select, receive,
 * accept, a send without room) that a close from another thread and a stop of the waiting thread
 * end at once; sends that go out whole, one after the other, and give up on a peer that
 * takes too little; an error code a thread.
 */
#include "platform/socket.h"

int32_t kelo_hal_net_select(int32_t descriptor_count, kelo_fd_set_t *read_set,
                            kelo_fd_set_t *write_set, kelo_fd_set_t *exception_set,
                            uint32_t milliseconds) {
    (void)descriptor_count;
    (void)read_set;
    (void)write_set;
    (void)exception_set;
    (void)milliseconds;
    return -1;
}

int32_t kelo_hal_net_socket_create(int32_t kind) {
    (void)kind;
    return -1;
}
int32_t kelo_hal_net_close(int32_t descriptor) {
    (void)descriptor;
    return -1;
}
int32_t kelo_hal_net_shutdown(int32_t descriptor) {
    (void)descriptor;
    return -1;
}

int32_t kelo_hal_net_set_bufsize(int32_t descriptor, uint32_t size, int32_t kind) {
    (void)descriptor;
    (void)size;
    (void)kind;
    return -1;
}
int32_t kelo_hal_net_set_reuse(int32_t descriptor) {
    (void)descriptor;
    return -1;
}
int32_t kelo_hal_net_set_cloexec(int32_t descriptor) {
    (void)descriptor;
    return -1;
}
int32_t kelo_hal_net_set_boardcast(int32_t descriptor) {
    (void)descriptor;
    return -1;
}
int32_t kelo_hal_net_set_block(int32_t descriptor, bool block) {
    (void)descriptor;
    (void)block;
    return -1;
}
int32_t kelo_hal_net_set_keepalive(int32_t descriptor, bool on, uint32_t idle_s,
                                   uint32_t interval_s, uint32_t count) {
    (void)descriptor;
    (void)on;
    (void)idle_s;
    (void)interval_s;
    (void)count;
    return -1;
}

int32_t kelo_hal_net_bind(int32_t descriptor, uint32_t address, uint16_t port) {
    (void)descriptor;
    (void)address;
    (void)port;
    return -1;
}
int32_t kelo_hal_net_socket_bind(int32_t descriptor, const char *address) {
    (void)descriptor;
    (void)address;
    return -1;
}
int32_t kelo_hal_net_listen(int32_t descriptor, int32_t backlog) {
    (void)descriptor;
    (void)backlog;
    return -1;
}
int32_t kelo_hal_net_accept(int32_t descriptor, uint32_t *address, uint16_t *port) {
    (void)descriptor;
    (void)address;
    (void)port;
    return -1;
}
int32_t kelo_hal_net_recv(int32_t descriptor, void *buffer, uint32_t length) {
    (void)descriptor;
    (void)buffer;
    (void)length;
    return -1;
}
int32_t kelo_hal_net_recvfrom(int32_t descriptor, void *buffer, uint32_t length, uint32_t *address,
                              uint16_t *port) {
    (void)descriptor;
    (void)buffer;
    (void)length;
    (void)address;
    (void)port;
    return -1;
}
int32_t kelo_hal_net_send(int32_t descriptor, const void *buffer, uint32_t length) {
    (void)descriptor;
    (void)buffer;
    (void)length;
    return -1;
}
int32_t kelo_hal_net_send_to(int32_t descriptor, const void *buffer, uint32_t length,
                             uint32_t address, uint16_t port) {
    (void)descriptor;
    (void)buffer;
    (void)length;
    (void)address;
    (void)port;
    return -1;
}
int32_t kelo_hal_net_get_errno(void) {
    return KELO_ERR_BAD_SOCKET;
}
