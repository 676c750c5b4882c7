/* The TCP server: the agent's worker thread in its own mode. */
#pragma once

/**
 * Thread entry. Serves until its thread is told to stop.
 *
 * @param argument  not read
 */
void __lpc_task_cb(void *argument);
