/* The log: one line an entry, limited for each place in the source, on standard error. */
#include "internal.h"
#include "port.h"

#include "platform/log.h"

#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum {
    LEVEL_KEPT = LOG_LEVEL_FAULTY_CLIENT,
    MESSAGE_SIZE = 1024, /**< a longer message is cut */
    LINE_SIZE = 4096,    /**< what a pipe takes in one piece */
    PLACES = 16,
    LINES_A_SECOND = 20
};

/** A place that wrote in a second, or another one that has the slot next. */
struct place {
    char file[24];
    int line;
    int64_t since;
    unsigned lines;
    unsigned left_out;
};

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static struct place places[PLACES];
static port_log_sink_t log_sink;

void port_set_log_sink(port_log_sink_t sink) {
    pthread_mutex_lock(&mutex);
    log_sink = sink;
    pthread_mutex_unlock(&mutex);
}

/** Writes a line; one that nobody takes now is lost. */
static void write_line(char *line, size_t length) {
    struct pollfd watched = {STDERR_FILENO, POLLOUT, 0};
    if (log_sink != NULL) {
        log_sink(line, length);
    } else if (poll(&watched, 1, 0) > 0) {
        line[length] = '\n';
        (void)!write(STDERR_FILENO, line, length + 1);
    }
}

/** Tells of lines that were left out in a second that is over. */
static void tell_left_out(int64_t now) {
    for (int i = 0; i < PLACES; ++i) {
        struct place *place = &places[i];
        if (place->left_out != 0 && now - place->since >= 1000) {
            char line[100];
            const int length = snprintf(line, sizeof line, "1 %s:%d %u more lines were left out",
                                        place->file, place->line, place->left_out);
            place->left_out = 0;
            write_line(line, (size_t)length);
        }
    }
}

/** Whether a place may write one more line. A new place takes the slot that was used least lately.
 */
static int admits(const char *file, int line, int64_t now) {
    struct place *found = &places[0];
    for (int i = 0; i < PLACES; ++i) {
        if (places[i].line == line && strncmp(places[i].file, file, sizeof found->file - 1) == 0) {
            found = &places[i];
            break;
        }
        found = places[i].since < found->since ? &places[i] : found;
    }
    if (found->line != line || strncmp(found->file, file, sizeof found->file - 1) != 0 ||
        now - found->since >= 1000) {
        *found = (struct place){.line = line, .since = now};
        snprintf(found->file, sizeof found->file, "%s", file);
    }
    if (found->lines == LINES_A_SECOND) {
        ++found->left_out;
        return 0;
    }
    ++found->lines;
    return 1;
}

void PrintLog(int module, int level, const char *file, int line, const char *function,
              const char *format, ...) {
    if (level > LEVEL_KEPT) {
        return;
    }
    const int saved_errno = errno;
    const int64_t now = port_now_ms();
    char message[MESSAGE_SIZE];
    char hidden[MESSAGE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    pthread_mutex_lock(&mutex);
    tell_left_out(now);
    if (admits(file, line, now)) {
        static char text[LINE_SIZE + 1];
        const int head =
            snprintf(text, 200, "%d.%d %s:%d %s ", module, level, file, line, function);
        const size_t length = head < 200 ? (size_t)head : 199;
        (void)port_hide_secrets(message, hidden, sizeof hidden);
        write_line(text, length + port_make_visible(hidden, text + length, LINE_SIZE - length));
    }
    pthread_mutex_unlock(&mutex);
    errno = saved_errno;
}
