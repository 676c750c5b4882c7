/* What a program that uses this port decides itself. */
#pragma once

/** The one network interface that sockets live on; "lo" unless it is set before the first socket.
 */
void port_set_interface(const char *name);

/** Takes one log line, without its newline. Called by one thread at a time. */
typedef void (*port_log_sink_t)(const char *line, unsigned long length);
/** Sets where log lines go; null: to standard error, which is also the start. */
void port_set_log_sink(port_log_sink_t sink);
