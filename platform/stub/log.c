/*
 * Log of a new port.
 * Needs: one line an entry, whole also when several threads write; a cheap test of the level first;
 * no secrets below level 4; a bound on what one place writes; errno and the socket error code left
 * as they were. This one writes every line that counts as a failure or a warning, so that a new
 * port is not silent.
 */
#include "platform/log.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>

void PrintLog(int module, int level, const char *file, int line, const char *function,
              const char *format, ...) {
    if (level > LOG_LEVEL_WARNING) {
        return;
    }
    const int saved_errno = errno;
    va_list arguments;
    va_start(arguments, format);
    fprintf(stderr, "%d %d %s:%d %s ", module, level, file, line, function);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    va_end(arguments);
    errno = saved_errno;
}
