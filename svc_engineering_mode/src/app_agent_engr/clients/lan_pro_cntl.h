/* The controller record of the agent: one while the agent is started. */
#pragma once

#include "base/marked_thread.h"
#include "platform/mutex.h"
#include "platform/thread.h"

#include <atomic>
#include <cstdint>

/** Most apps that are connected at once. */
constexpr int32_t lan_client_max = 10;
/** Size of the server task's receive buffer in bytes. */
constexpr uint32_t lan_recv_buf_size = 512;

/** State of a started agent. The client table consists of parallel arrays: a slot is an index into
 * all of them. Slots 0 to socket_num - 1 are in use, in the order in which their connections were
 * accepted. */
struct lan_pro_cntl_t {
    int32_t tcp_serv_fd; /**< listening socket, negative when there is none; guarded by mutex */
    int32_t socket_num;  /**< client slots in use; guarded by mutex, like the three arrays */
    int32_t sockets[lan_client_max];      /**< descriptor of each slot */
    uint32_t socket_time[lan_client_max]; /**< last activity of each slot, POSIX seconds */
    int32_t socket_fault[lan_client_max]; /**< 1 = faulty, 0 = not */
    int32_t udp_fd; /**< socket of the discovery broadcast, -1 when there is none; timer context */
    kelo_mutex_t mutex; /**< guards the client table and tcp_serv_fd; never held across a wait */
    uint8_t recv_buf[lan_recv_buf_size];    /**< receive buffer of the server task */
    thrd_handle_t thread;                   /**< the worker thread */
    uint16_t dev_tm;                        /**< discovery timer, 0 = none */
    int32_t mode;                           /**< the mode given to init */
    marked_thread server_thread;            /**< that of the server task, once it runs */
    uint32_t foreign_sends[lan_client_max]; /**< sends of other threads that are under way on each
                                               slot; guarded by mutex, like the client table */
};

/** The record, null while the agent is not started. Who may use it: see agent_use. */
extern std::atomic<lan_pro_cntl_t *> lan_pro_cntl;
