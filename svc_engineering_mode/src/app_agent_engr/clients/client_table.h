/*
 * The client connection table: which apps are connected, when each was last active, and whether a
 * send or receive on it has failed. A faulty connection stays in the table, skipped by senders,
 * until the server task's next sweep closes it.
 *
 * Every function may be called inside an agent_use, on any thread; adding
 * and removing single connections is the server task's alone. None of them waits for anything but
 * the table's mutex.
 */
#pragma once

#include "lan_pro_cntl.h"

#include <cstdint>

/** Adds an accepted connection. A full table or a negative socket is logged; the socket stays open.
 * */
void __lpc_add_socket(int32_t socket, uint32_t time);
/** @return connections in the table, faulty ones included; 0 while the agent is not started */
[[nodiscard]] int32_t __get_lpc_socket_num();
/**
 * Copies the descriptors in table order.
 *
 * @return how many; 0 while the agent is not started
 */
[[nodiscard]] int32_t __get_lpc_sockets(int32_t (&sockets)[lan_client_max]);
/** Stamps a connection's activity time. An unknown socket changes nothing. */
void __up_socket_time(int32_t socket, uint32_t time);
/** Marks a connection faulty. An unknown socket changes nothing. */
void __lpc_set_socket_fault(int32_t socket);
/** @return 1 when the connection is faulty or unknown, else 0 */
[[nodiscard]] int32_t __get_lpc_sockets_fault(int32_t socket);
/** @return connections that are not faulty; 0 while the agent is not started */
[[nodiscard]] int32_t __get_lpc_valid_socket_num();
/**
 * Closes the connections that are faulty or were silent too long.
 *
 * @param now  POSIX seconds
 */
void __check_socket_tm(uint32_t now);
/** Closes one connection and removes its slot. An unknown socket changes nothing. */
void __lpc_close_socket(int32_t socket);
/** Closes every connection and the listening socket. */
void __lpc_close_all_socket();

/** @return descriptor of a slot, -1 when the slot is not in use */
[[nodiscard]] int32_t lpc_socket_at(int32_t slot);
/** @return the listening socket, negative when there is none */
[[nodiscard]] int32_t lpc_listening_socket();
/** Stores the listening socket, or the code of the failure. */
void lpc_set_listening_socket(int32_t socket);
/** Notes that the calling thread is the server task, whose sends are not foreign_sends. */
void lpc_enter_server_task();
/** For a stop that has begun: waits at most 20 ms for sends of other threads than the server task,
 * then makes those fail that still wait for a client, and every later one to it. Waits of the
 * server task itself end when its thread is told to stop. */
void lpc_end_foreign_sends();

/** A send to one client, for the life of a scope. */
class lpc_send {
  public:
    explicit lpc_send(int32_t socket);
    lpc_send(const lpc_send &) = delete;
    lpc_send &operator=(const lpc_send &) = delete;
    ~lpc_send();

    /** False for other threads than the server task once a stop has begun: the stop must not wait
     * for them. */
    [[nodiscard]] bool may_begin() const;

  private:
    int32_t socket_;
    bool is_foreign_ = false;
};
